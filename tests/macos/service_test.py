#!/usr/bin/env python3
"""The service that is built for macOS beside the one that is built for Linux: same answers, same
datagrams to the servers, same trace.

usage: service_test.py MACOS_HOST LINUX_HOST      both of tests/clients/client_test_host.cpp
"""

import pathlib
import socket
import struct
import subprocess
import sys
import tempfile
import unittest

TESTS = pathlib.Path(__file__).resolve().parent.parent
sys.path[:0] = [str(TESTS / "host"), str(TESTS / "support")]
import hosting
import own_namespaces

MACOS, LINUX = sys.argv[1:3]
SERVERS = ("127.0.0.2", "127.0.0.3", "127.0.0.4")
MAPS = ("printer.internal=192.0.2.80", "db.internal=10.1.2.3", "bad.internal=none")

# The kernel's calls that a thread of the service waits in: select, futex, pselect6.
WAITING = ("23", "202", "270")


class Service:
    """A program in service, its servers and its application, one step after the other."""

    def __init__(self, program, *arguments):
        self.trace_file = tempfile.TemporaryFile()
        self.answers = []  # to the application
        self.asked = []  # of the servers: which, and the datagram
        self.servers = [self.bound((address, 53)) for address in SERVERS]
        self.application = self.bound(("127.0.0.1", 40000))
        self.process = subprocess.Popen([program, *arguments], stdout=self.trace_file)

    def bound(self, address):
        sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        sock.bind(address)
        sock.setblocking(False)
        return sock

    def settle(self, threads=3):
        """Waits until each thread of the service waits, or until the service has ended."""
        tasks = pathlib.Path(f"/proc/{self.process.pid}/task")

        def waiting():
            if self.process.poll() is not None:
                return True
            try:
                calls = [(task / "syscall").read_text().split()[0] for task in tasks.iterdir()]
            except (OSError, IndexError):
                return False
            return len(calls) == threads and all(call in WAITING for call in calls)

        hosting.wait_for(waiting, "every thread waits")

    def take(self):
        """What has arrived. Returns what the servers have been asked, each with where from."""
        questions = []
        for number, server in enumerate(self.servers):
            try:
                datagram, sender = server.recvfrom(8192)
            except BlockingIOError:
                continue
            self.asked.append((number, datagram))
            questions.append((number, datagram, sender))
        try:
            while True:
                self.answers.append(self.application.recv(8192))
        except BlockingIOError:
            return questions

    def ask(self, datagram, replies=()):
        """One query, and what becomes of it: `replies` are functions of what a server was asked."""
        self.application.sendto(datagram, ("127.0.0.1", 53))
        self.settle()
        for reply in replies:
            for number, asked, sender in self.take():
                self.servers[number].sendto(reply(asked), sender)
            self.settle()
        return self.take()

    def end(self):
        """Its exit status and its trace."""
        status = self.process.wait(hosting.PATIENCE)
        self.take()
        return status, self.trace()

    def trace(self):
        self.trace_file.seek(0)
        return self.trace_file.read()

    def close(self):
        self.process.kill()
        self.process.wait()
        for each in (*self.servers, self.application, self.trace_file):
            each.close()


def no_records(asked):
    return hosting.answer(asked, None)


def one_record(asked):
    return hosting.answer(asked, "198.51.100.7")


def many_records(asked):
    return asked[:2] + struct.pack("!5H", 0x8180, 1, 256, 0, 0) + asked[12:] + b"\xc0\x0c" * 100


def unknown(asked):
    return struct.pack("<H", 40000) + one_record(asked)[2:]


# A query each, and the replies to it in turn.
STEPS = (
    ("printer.internal", hosting.A, ()),
    ("PRINTER.Internal", hosting.A, ()),
    ("printer.internal", hosting.AAAA, ()),
    ("bad.internal", hosting.A, ()),
    ("forwarded.example", hosting.A, (one_record,)),
    ("second.example", hosting.A, (no_records, one_record)),
    ("third.example", hosting.A, (no_records, no_records, one_record)),
    ("nowhere.example", hosting.A, (no_records, no_records, no_records)),
    ("silent.example", hosting.A, ()),
    ("unknown.example", hosting.A, (unknown,)),
    ("large.example", hosting.A, (many_records,)),
    ("80.2.0.192.in-addr.arpa", hosting.PTR, ()),
    ("f" * 63 + "." + "g" * 63 + ".example", 65, (one_record,)),
    (".".join("x" * 60 for _ in range(4)), hosting.A, (one_record,)),
)


def serve(program):
    """All that a run leaves: exit status, trace, answers, what the servers were asked."""
    options = [word for server in SERVERS for word in ("--server", server)]
    options += [word for entry in MAPS for word in ("--map", entry)]
    service = Service(program, *options)
    try:
        service.settle()
        identifier = 0x1200
        for name, kind, replies in STEPS:
            identifier += 1
            service.ask(hosting.question(name, kind, identifier), replies)

        # From a server that was not asked; then one that is too short, which ends the service.
        [(number, asked, sender)] = service.ask(hosting.question("wrong.example", hosting.A, 0x1300))
        service.servers[number - 1].sendto(one_record(asked), sender)
        service.settle()
        service.servers[number].sendto(asked[:4], sender)
        status, trace = service.end()
    finally:
        service.close()
    return status, trace, service.answers, service.asked


class BesideLinux(unittest.TestCase):
    maxDiff = None

    def test_a_run_from_start_to_end(self):
        status, trace, answers, asked = serve(MACOS)
        linux_status, linux_trace, linux_answers, linux_asked = serve(LINUX)
        self.assertEqual(trace.splitlines(), linux_trace.splitlines())
        self.assertEqual(answers, linux_answers)
        self.assertEqual(asked, linux_asked)
        self.assertEqual(status, linux_status)
        # That it was a run at all.
        self.assertEqual(status, 0)
        self.assertEqual(len(answers), 12)
        self.assertEqual(len(asked), 15)
        self.assertGreater(trace.count(b"(line:"), 100)

    def test_a_query_that_ends_its_thread(self):
        ends = []
        for program in (MACOS, LINUX):
            service = Service(program, "--server", SERVERS[0])
            try:
                service.settle()
                service.application.sendto(hosting.KILLERS["runt"], ("127.0.0.1", 53))
                service.settle(threads=2)
                ends.append(service.trace())
            finally:
                service.close()
        self.assertIn(b"QureyThread", ends[0])
        self.assertEqual(ends[0].splitlines(), ends[1].splitlines())

    def test_a_port_that_is_taken(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as taken:
            taken.bind(("127.0.0.1", 53))
            ends = [subprocess.run([program], capture_output=True, check=False) for program in (MACOS, LINUX)]
        self.assertEqual(ends[0].returncode, 1)
        self.assertEqual(ends[0].returncode, ends[1].returncode)
        self.assertIn(b"bind 127.0.0.1:53 failed", ends[0].stdout)
        self.assertEqual(ends[0].stdout, ends[1].stdout)


if __name__ == "__main__":
    own_namespaces.enter()
    unittest.main(argv=sys.argv[:1], verbosity=2)
