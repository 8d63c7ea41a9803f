"""Universal files: several Mach-O files or archives in one, each for a processor."""

import struct

MAGIC = 0xCAFEBABE
PROCESSORS = {0x01000007: "x86_64", 0x0100000C: "arm64"}


def slices(content):
    """The parts of a universal file by processor, {} if it is none."""
    magic, count = struct.unpack_from(">II", content)
    if magic != MAGIC:
        return {}
    parts = {}
    for i in range(count):
        processor, _, offset, size = struct.unpack_from(">4I", content, 8 + 20 * i)
        parts[PROCESSORS.get(processor, processor)] = content[offset : offset + size]
    return parts
