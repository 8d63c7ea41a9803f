"""The ad-hoc signature of a Mach-O program: without one that fits, Apple silicon starts nothing.

The system compares a page with its hash when it first reads it, so a signature that has become wrong
(a program that was changed after the link) may show late, as a program that is killed.
"""

import hashlib
import struct

LC_CODE_SIGNATURE = 0x1D
SUPER_BLOB, CODE_DIRECTORY = 0xFADE0CC0, 0xFADE0C02
AD_HOC = 0x2
SHA256 = 2


def signature_place(program):
    """Offset and size of the signature in the file, or None."""
    commands = struct.unpack_from("<I", program, 16)[0]
    at = 32
    for _ in range(commands):
        command, size = struct.unpack_from("<II", program, at)
        if command == LC_CODE_SIGNATURE:
            return struct.unpack_from("<II", program, at + 8)
        at += size
    return None


def signature_faults(program):
    """What is wrong with the signature of `program`, the bytes of a thin 64-bit Mach-O file."""
    place = signature_place(program)
    if place is None:
        yield "is not signed"
        return
    offset, size = place
    blob = program[offset : offset + size]
    magic, _, count = struct.unpack_from(">III", blob)
    entries = [struct.unpack_from(">II", blob, 12 + 8 * i)[1] for i in range(count)]
    directories = [at for at in entries if struct.unpack_from(">I", blob, at)[0] == CODE_DIRECTORY]
    if magic != SUPER_BLOB or len(directories) != 1:
        yield "has a signature without a code directory"
        return

    directory = blob[directories[0] :]
    flags, hashes, _, _, pages, limit = struct.unpack_from(">6I", directory, 12)
    hash_size, hash_type, _, page_bits = struct.unpack_from(">4B", directory, 36)
    if not flags & AD_HOC:
        yield "has a signature that is not an ad-hoc one"
    if hash_type != SHA256 or limit != offset or pages != -(-limit >> page_bits):
        yield "has a signature of another file"
        return
    page_size = 1 << page_bits
    for page in range(pages):
        content = program[page * page_size : min((page + 1) * page_size, limit)]
        begin = hashes + page * hash_size
        if hashlib.sha256(content).digest() != directory[begin : begin + hash_size]:
            yield f"differs from its signature in page {page}"
