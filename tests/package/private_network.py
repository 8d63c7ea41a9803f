"""A network namespace of our own, in which a host may have port 53 of 127.0.0.1."""

import contextlib
import os
import shutil
import socket
import struct
import subprocess
import sys
import time

SKIPPED = 77  # what CTest counts as skipped
MAPPED_NAME = ["printer", "internal"]  # as the examples map it
MAPPED_ADDRESS = bytes([192, 0, 2, 80])


def enter():
    """Runs this script again inside the namespace; returns only there."""
    if os.environ.get("PRIVATE_NETWORK") == "yes":
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
        return
    unshare = ["unshare", "--net", "--mount"]
    if os.geteuid() != 0:
        unshare += ["--user", "--map-root-user"]
    if (
        shutil.which("unshare") is None
        or subprocess.run([*unshare, "true"], capture_output=True, check=False).returncode
    ):
        print("skipped: this system allows no network namespace")
        sys.exit(SKIPPED)
    os.environ["PRIVATE_NETWORK"] = "yes"
    os.execvp("unshare", [*unshare, sys.executable, *sys.argv])


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
