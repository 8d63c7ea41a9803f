"""Each story is what was asked and answered: the real service, two threads, many queries at once."""

import collections
import os
import pathlib
import random
import signal
import socket
import struct
import sys
import tempfile
import threading
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "host"))
import hosting
from hosting import Host, question, send, wait_for
from traces import read, tables

FIRST, SECOND, STRANGER = "127.0.0.2", "127.0.0.3", "127.0.0.66"

ANSWERED = f"map → {FIRST} answered"
NEXT = f"map → {FIRST} no such name → {SECOND}"
# What a name begins with decides what becomes of it.
EXPECTED = {
    "map": ("map answered 192.0.2.1", "answered from the map"),
    "first": (ANSWERED, "answered by a server"),
    "second": (NEXT + " answered", "answered by a server"),
    "nobody": (NEXT + " no such name", "no such name"),
    "silent": (f"map → {FIRST} silent", "not answered"),
    "late": (NEXT + " silent", "not answered"),
    "reverse": ("reverse look-up", "no such name"),
}


def printable(name):
    """The name as the reader has to print it."""
    return "".join(chr(c) * (1 + (c == 92)) if 32 < c < 127 else f"\\{c:03d}" for c in name)


def query(name, additional=b""):
    """As hosting.question, for any bytes; a dot ends a label."""
    plain = question("x")
    labels = b"".join(bytes([len(label)]) + label for label in name.split(b"."))
    count = struct.pack("!H", 1 if additional else 0)
    return plain[:10] + count + labels + plain[-5:] + additional


def name_in(message):
    labels, at = [], 12
    while message[at]:
        labels.append(message[at + 1 : at + 1 + message[at]])
        at += 1 + message[at]
    return b".".join(labels)


class Server:
    """Answers by the beginning of the name."""

    def __init__(self, address, answers, empty):
        self._sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._sock.bind((address, 53))
        self._stranger = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._stranger.bind((STRANGER, 0))
        self._answers, self._empty = answers, empty
        self.doubled = 0
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self):
        while True:
            asked, sender = self._sock.recvfrom(8192)
            name = name_in(asked)
            if name.endswith(b"stranger"):
                self._stranger.sendto(hosting.answer(asked, "192.0.2.66"), sender)
            if name.startswith(self._empty):
                self._sock.sendto(hosting.answer(asked, None), sender)
            elif name.startswith(self._answers):
                self._sock.sendto(hosting.answer(asked, "198.51.100.1"), sender)
                if name.endswith(b"doubled"):
                    self._sock.sendto(hosting.answer(asked, "198.51.100.1"), sender)
                    self.doubled += 1


def stories(*files):
    """What the reader tells: name, road, outcome."""
    rows = [line.split(maxsplit=2)[1:] for line in read("--stories", *files).splitlines()]
    return collections.Counter((name, *(part.strip() for part in rest.split("  ") if part)) for name, rest in rows)


class Served(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.first = Server(FIRST, b"first", (b"second", b"nobody", b"late"))
        cls.second = Server(SECOND, b"second", b"nobody")

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.path = pathlib.Path(self.folder.name, "trace")

    def host(self, *more):
        os.chmod(self.folder.name, 0o755)
        return Host("--server", FIRST, "--server", SECOND, "--map", "map.internal=192.0.2.1", "--trace", self.path,
                    *more)

    def ask_all(self, names, at_once=200):
        """Asks for each name, so many at a time, and waits for what will be answered."""
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
            sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)
            sock.settimeout(hosting.PATIENCE)
            for i in range(0, len(names), at_once):
                some = names[i : i + at_once]
                for name, additional in some:
                    sock.sendto(query(name, additional), ("127.0.0.1", 53))
                for name, _ in some:
                    if not name.startswith((b"silent", b"late")):
                        sock.recv(8192)

    def test_every_story_of_thousands_that_mix_is_what_was_asked(self):
        dice = random.Random(0)
        ends = [".example", ".stranger", ".doubled", ".\x1b[2J", ".\\x", ".a b", ".\n", ".line\nfeed", ".\xff",
                ".\nfunc: thread_answer(line:125) AnswerThread: received dns response\n.x"]
        names = []
        for i in range(4000):
            kind = dice.choices(list(EXPECTED), [4, 8, 4, 4, 1, 1, 1])[0]
            name = f"{kind}{i}{dice.choice(ends)}".encode("latin-1")
            name = {"map": b"map.internal", "reverse": b"reverse%d.in-addr.arpa" % i}.get(kind, name)
            edns = b"\0\0\x29\x04\xd0\0\0\0\0" + dice.choice([b"\0\0", b"\0\x80" + b"\0\x0c\0\x7c" + bytes(124)])
            names.append((name, dice.choice([b"", edns]) if kind != "map" else b""))
        expected = collections.Counter()
        strange = doubled = 0
        for name, _ in names:
            kind = next(kind for kind in EXPECTED if name.startswith(kind.encode()))
            expected[(printable(name), *EXPECTED[kind])] += 1
            servers = {"map": 0, "reverse": 0, "first": 1, "silent": 1}.get(kind, 2)
            strange += servers * name.endswith(b"stranger")
            doubled += kind in ("first", "second") and name.endswith(b"doubled")

        with self.host() as host:
            host.serving()
            self.ask_all(names)
            # Silent servers have read the last query, and the service the last answer that nobody wants.
            def ends(text):
                return b"".join(path.read_bytes() for path in self.path.parent.glob("trace*")).count(text)

            wait_for(lambda: ends(b", it seems error\n") == strange and ends(b", request not found\n") == doubled,
                     f"{strange} answers of a stranger and {doubled} doubled ones")
        told = stories(*self.path.parent.glob("trace*"))
        self.assertEqual(told - expected, {}, "told and not asked")
        self.assertEqual(expected - told, {}, "asked and not told")
        self.assertEqual(sum(expected.values()), 4000)

        told = tables(read(*self.path.parent.glob("trace*")))
        self.assertEqual(told["Answers from another than the server that was asked, by sender"],
                         {STRANGER: [strange]})
        self.assertEqual(told["Answers under an identifier that nobody waits for, by sender"],
                         {FIRST: [self.first.doubled], SECOND: [doubled - self.first.doubled]})
        self.assertEqual(set(told["The trace"]), {"lines", "names with line feeds", "starts of the service"})

    def test_name_that_imitates_its_own_query_and_more_is_one_story(self):
        query_line = "func: RecvAndProcessPacketsFromLocalApps(line:72)"
        # What would be a whole other query, with its answer; a dot in time ends each label.
        forged = (f"firsty\n{query_line}FromAPP: the request domain is firsty, id:0\n"
                  "func: RecvAndProcessPacketsFromDNSServer(line:105) domain firsty received answer "
                  "1.2.3.4 from 127.0.0.2, we have to delete id:0\n"
                  "func: thread_query(line:146) ****QureyThread***: received dns request\n"
                  f"{query_line}.FromAPP: received 30 data from 127.0.0.1\n"
                  f"{query_line} received dns request............firsty").encode()
        labels = []
        for part in forged.split(b"."):  # none is empty or longer than 127 bytes on the wire
            labels += [part[i : i + 120] for i in range(0, len(part), 120)] or [b""]
        labels = [label for label in labels if label]  # the text has a dot where the name has one
        name = b".".join(labels)
        self.assertLess(len(name), 1023)
        with self.host() as host:
            host.serving()
            self.ask_all([(b"first1.example", b""), (name, b""), (b"first2.example", b"")], at_once=1)
            wait_for(lambda: self.path.read_bytes().count(b"domain first2.example received") == 1, "the last answer")
        self.assertEqual(stories(self.path), {(n, ANSWERED, "answered by a server"): 1
                                              for n in ("first1.example", printable(name), "first2.example")})

    def test_what_waited_when_the_service_is_started_again_is_not_answered(self):
        with self.host() as host:
            host.serving()
            send(query(b"silent.example"))
            wait_for(lambda: b"silent.example" in self.path.read_bytes(), "the query")
            os.kill(host.child(), signal.SIGKILL)
            wait_for(lambda: host.restarts() == 1 and host.answers(), "a restart")
            self.ask_all([(b"first.example", b"")])
            wait_for(lambda: b"first.example received" in self.path.read_bytes(), "the answer")
        self.assertEqual(stories(self.path), {("silent.example", *EXPECTED["silent"]): 1,
                                              ("first.example", *EXPECTED["first"]): 1})
        self.assertEqual(tables(read(self.path))["The trace"]["starts of the service"], [2])


if __name__ == "__main__":
    hosting.main()
