"""Runs the real dns_proxy_host in a network, a mount and a process namespace of the test's own.

A test file imports this and ends with `hosting.main()`: the file is started again inside the
namespaces, where everything that a test leaves behind dies with it.
"""

import contextlib
import ctypes
import itertools
import json
import os
import pathlib
import random
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))
import own_namespaces
import waiting

HOST = os.environ.get("DNS_PROXY_HOST", "")
SANITIZED = bool(os.environ.get("SANITIZER"))

# The program may be the one that is built for macOS: tests/macos runs it here.
FOR_MACOS = bool(os.environ.get("DNS_PROXY_HOST_IS_FOR_MACOS"))
linux_only = unittest.skipIf(FOR_MACOS, "only the program for Linux has it")

# What a test waits for at the most, in seconds. Nothing here is a measurement.
PATIENCE = 30

A, PTR, AAAA = 1, 12, 28


def main(*tools):
    """Runs the tests of the calling file inside the namespaces; exit status 77 if there are none, or
    one of `tools` is not here."""
    own_namespaces.enter(*tools)
    program = unittest.main(module="__main__", exit=False)
    result = program.result
    if result.testsRun and len(result.skipped) == result.testsRun:
        own_namespaces.skip("all of it")
    sys.exit(0 if result.wasSuccessful() else 1)


def has_all_users():
    """False inside a user namespace, where only root exists."""
    return int(pathlib.Path("/proc/self/uid_map").read_text().split()[2]) > 65534


@contextlib.contextmanager
def own_run(*options):
    """An empty /run, in the test's own mount namespace."""
    subprocess.run(["mount", "-t", "tmpfs", *options, "none", "/run"], check=True)
    try:
        yield
    finally:
        subprocess.run(["umount", "/run"], check=True)


def wait_for(condition, what, seconds=PATIENCE):
    return waiting.wait_for(condition, what, seconds)


# --- DNS messages -------------------------------------------------------------------------------


def question(name, kind=A, identifier=None):
    """The bytes of a query without EDNS."""
    if identifier is None:
        identifier = random.randrange(65536)
    labels = b"".join(bytes([len(label)]) + label.encode() for label in name.split(".") if label)
    return struct.pack("!6H", identifier, 0x0100, 1, 0, 0, 0) + labels + struct.pack("!BHH", 0, kind, 1)


def question_name(message):
    """The name of a message's question."""
    labels, at = [], 12
    while message[at]:
        labels.append(message[at + 1 : at + 1 + message[at]].decode())
        at += 1 + message[at]
    return ".".join(labels)


def answer(query, address):
    """The response to `query` with one A record, or with none."""
    count = 0 if address is None else 1
    record = b"" if address is None else b"\xc0\x0c" + struct.pack("!HHIH", A, 1, 60, 4) + socket.inet_aton(address)
    return query[:2] + struct.pack("!5H", 0x8180, 1, count, 0, 0) + query[12:] + record


def address_in(response):
    """The address of a response whose last record is an A record; None for one without records."""
    if struct.unpack("!H", response[6:8])[0] == 0:
        return None
    return socket.inet_ntoa(response[-4:])


def one_question(rest):
    """A header that announces a question, and `rest` in its place."""
    return struct.pack("!6H", 0x1234, 0, 1, 0, 0, 0) + rest


def counting(count):
    """A query whose header announces `count` questions."""
    return question("a.example")[:4] + struct.pack("!H", count) + question("a.example")[6:]


# Datagrams that end the query thread, by design, unless they are kept away.
KILLERS = {"runt": b"\x00" * 5, "root": question(""), "two questions": counting(2)}
BAD = KILLERS | {
    "nothing": b"",
    "a byte short of a header": one_question(b"")[:11],
    "no question": counting(0),
    "65,535 questions": counting(65535),
    "nothing behind the header": one_question(b""),
    "nothing behind a length": one_question(b"\x05"),
    "pointer": one_question(b"\xc0\x0c\0\1\0\1"),
    "length of 128": one_question(b"\x80aaa"),
    "length of 255": one_question(b"\xffaaa"),
    "zero at a label's begin": one_question(b"\x03\0aa\0\0\1\0\1"),
}


def send(datagram):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.sendto(datagram, ("127.0.0.1", 53))


def ask(name, kind=A, tries=3, wait=1.0):
    """Asks as a resolver does: again after `wait` seconds, `tries` times. The response or None.

    From a connected socket, as dig and the C library: a port that nobody has costs a try at once.
    """
    query = question(name, kind)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.connect(("127.0.0.1", 53))
        for _ in range(tries):
            end = time.monotonic() + wait
            try:
                sock.send(query)
            except ConnectionRefusedError:
                continue
            while (left := end - time.monotonic()) > 0:
                sock.settimeout(left)
                try:
                    response = sock.recv(8192)
                except (TimeoutError, ConnectionRefusedError):
                    break
                if response[:2] == query[:2]:
                    return response
    return None


def resolve(name, **how):
    """The address of `name`, or None."""
    response = ask(name, **how)
    return None if response is None else address_in(response)


def hold_query_thread(child):
    """Holds the query thread of the service `child` by a tracer: for its parent the service neither
    ends nor stops. False where that is not allowed."""
    libc = ctypes.CDLL(None, use_errno=True)
    libc.ptrace.argtypes = [ctypes.c_long, ctypes.c_long, ctypes.c_void_p, ctypes.c_void_p]
    seize, interrupt = 0x4206, 0x4207
    # In the order of their creation: the caller, the channel to the parent, the workers. Under a
    # sanitizer there may be one more in front.
    thread = max(int(path.name) for path in pathlib.Path(f"/proc/{child}/task").iterdir())
    if libc.ptrace(seize, thread, None, None) != 0:
        return False
    libc.ptrace(interrupt, thread, None, None)
    # The end of a thread that is traced is first the tracer's to see.
    wall = 0x40000000
    threading.Thread(target=lambda: [os.waitpid(thread, wall) for _ in range(2)], daemon=True).start()
    return True


def seconds_to_an_answer():
    """Asks for one name after the other, as applications do, until there is an answer."""
    began = time.monotonic()
    names = (f"n{number}.example" for number in itertools.count())
    wait_for(lambda: resolve(next(names), tries=1, wait=0.2), "an answer")
    return time.monotonic() - began


# --- Upstream servers ---------------------------------------------------------------------------


def address_of(name):
    """The one right address of a name, so that any other is known to be wrong."""
    value = sum(ord(c) * 31**i for i, c in enumerate(name)) % 65536
    return f"198.18.{value >> 8}.{value & 255}"


class Upstream:
    """A server on this machine. `loss`: the part of the questions that it does not answer."""

    def __init__(self, address, loss=0.0):
        self.address = address
        self.loss = loss
        self.asked = 0  # by applications
        self.questions = 0  # by the host itself, for the root
        self.last = b""  # query of an application
        self.asker = None  # the service's address
        self.first = lambda query: []  # what is sent before the answer
        self._random = random.Random(address)
        self.sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.sock.settimeout(0.05)
        self.sock.bind((address, 53))
        self._closing = False
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    def close(self):
        self._closing = True
        self._thread.join()
        self.sock.close()

    def _serve(self):
        while not self._closing:
            try:
                query, sender = self.sock.recvfrom(8192)
            except TimeoutError:
                continue
            name = question_name(query)
            self.questions += not name
            if name:
                self.asked += 1
                self.last, self.asker = query, sender
            if self._random.random() < self.loss:
                continue
            for datagram in self.first(query):
                self.sock.sendto(datagram, sender)
            if name.startswith("runt."):
                self.sock.sendto(query[:4], sender)  # ends the answer thread, by design
            elif name.startswith("none.") or not name:
                self.sock.sendto(answer(query, None), sender)
            else:
                self.sock.sendto(answer(query, address_of(name)), sender)


class TestCase(unittest.TestCase):
    def upstream(self, address, loss=0.0):
        """A server that runs to the end of the test."""
        server = Upstream(address, loss)
        self.addCleanup(server.close)
        return server


# --- The host -----------------------------------------------------------------------------------


class Host:
    """One dns_proxy_host. Ended, and its descendants with it, at the end of the `with` block."""

    def __init__(self, *arguments, environment=None, stdout=subprocess.DEVNULL, stderr=None, user=None,
                 status_at=None, default_socket=False, **popen):
        self.folder = tempfile.TemporaryDirectory()
        self.socket = status_at or self.folder.name + "/status"
        self.log_path = pathlib.Path(self.folder.name, "log")
        if user is None and not has_all_users():
            user = "root"
        log = self.log_path.open("w")
        self.process = subprocess.Popen(
            [HOST]
            + ([] if default_socket else ["--socket", self.socket])
            + (["--user", user] if user else [])
            + [str(argument) for argument in arguments],
            env=dict(os.environ, **(environment or {})),
            stdin=subprocess.DEVNULL,
            stdout=stdout,
            stderr=log if stderr is None else stderr,
            **popen,
        )
        log.close()

    def __enter__(self):
        return self

    def __exit__(self, kind, value, traceback):
        if self.process.poll() is None:
            self.process.terminate()
            with contextlib.suppress(subprocess.TimeoutExpired):
                self.process.wait(PATIENCE)
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        log = self.log()
        found = "Sanitizer" in log or "runtime error" in log
        if kind is not None or found:
            print(log, file=sys.stderr)
        self.folder.cleanup()
        if kind is None and found:
            raise AssertionError("a sanitizer has found something")

    def log(self):
        return self.log_path.read_text()

    def serving(self):
        """Waits until it serves."""
        wait_for(lambda: self.process.poll() is not None or self.answers(), "serving")
        if self.process.poll() is not None:
            raise AssertionError(f"the host has left with status {self.process.returncode}")
        return self

    def answers(self):
        try:
            return self.status()["state"] == "serving" and self.status()["last_probe_s_ago"] is not None
        except (OSError, ValueError):
            return False

    def status(self):
        """What --status --json prints, asked without a process of its own."""
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as sock:
            sock.settimeout(PATIENCE)
            sock.connect(self.socket)
            text = b"".join(iter(lambda: sock.recv(4096), b""))
        return json.loads(text)

    def child(self):
        """The process of the service, once it is there."""
        return wait_for(lambda: self.status()["service_process"], "a service process")

    def restarts(self):
        return self.status()["restarts"]

    def children(self):
        """Every child process, zombies too."""
        children = []
        for path in pathlib.Path("/proc").glob("[0-9]*/stat"):
            with contextlib.suppress(OSError):
                if int(path.read_text().rsplit(")", 1)[1].split()[1]) == self.process.pid:
                    children.append(int(path.parent.name))
        return children

    def hang_up(self):
        self.process.send_signal(signal.SIGHUP)

    def stop(self):
        """Ends it as a service manager does. Its exit status and the seconds that it took."""
        began = time.monotonic()
        self.process.terminate()
        self.process.wait(PATIENCE)
        return self.process.returncode, time.monotonic() - began


def leaves(*arguments, **how):
    """Runs a host that does not stay. Its exit status and what it said."""
    done = subprocess.run(
        [HOST] + [str(argument) for argument in arguments],
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        timeout=PATIENCE,
        **how,
    )
    return done.returncode, done.stdout + done.stderr
