"""Runs a host and asks it for the name that the examples map."""

import contextlib
import socket
import struct
import subprocess
import time

MAPPED_NAME = ["printer", "internal"]
MAPPED_ADDRESS = bytes([192, 0, 2, 80])


def question(labels, query_type=1):
    """A query for one name, class Internet, with recursion desired."""
    name = b"".join(bytes([len(label)]) + label.encode() for label in labels) + b"\0"
    return struct.pack("!HHHHHH", 0x1234, 0x0100, 1, 0, 0, 0) + name + struct.pack("!HH", query_type, 1)


def ask(query, patience=10.0):
    """The answer, asked for again every fifth of a second until it comes; None when it does not."""
    until = time.monotonic() + patience
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.settimeout(0.2)
        while time.monotonic() < until:
            # Nobody there yet: the system says so on this socket.
            with contextlib.suppress(ConnectionRefusedError, TimeoutError):
                sock.sendto(query, ("127.0.0.1", 53))
                return sock.recv(512)
            time.sleep(0.05)
    return None


@contextlib.contextmanager
def running(*command):
    """The command while the block runs; killed afterwards."""
    with subprocess.Popen(command, stdout=subprocess.DEVNULL) as process:
        try:
            yield process
        finally:
            process.kill()
