"""A trace one can live with: where it goes, what is in it, and that nobody can hold it up."""

import os
import pathlib
import re
import stat
import tempfile
import time
import unittest

import hosting
from hosting import KILLERS, Host, ask, resolve, send, wait_for

NAMES = ("--server", "127.0.0.2", "--map", "a.example=192.0.2.1")

# The lines of one query that the static names answer, by their ends.
OF_ONE_QUERY = [
    r"\*{4}QureyThread\*{3}: received dns request",
    r"FromAPP: received 27 data from 127\.0\.0\.1",
    r"QuestionCount :1",
    r"received dns request\.{12}a\.example",
    r"FromAPP: the request domain is a\.example, id:\d+",
    r"id: \d+, bReasonIsTimeout:0",
    r"CurrentDNSMethodIndex: 0, DnsListSize:2",
    r"iCurrentDNSMethodType:1\(0: dns, 1:hostmap\)",
    r"find a\.example from hostmap, ip:192\.0\.2\.1, req id:\d+",
]


class Trace(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        os.chmod(self.folder.name, 0o755)
        self.addCleanup(self.folder.cleanup)
        self.path = pathlib.Path(self.folder.name, "trace")

    def test_file_has_every_line_of_a_query_at_once_and_none_of_a_probe(self):
        with Host(*NAMES, "--trace", self.path, "--probe-interval", "50") as host:
            host.serving()
            for _ in range(2):
                time.sleep(0.2)  # some probes
                self.assertEqual(resolve("a.example"), "192.0.2.1")
            text = self.path.read_text()
            lines = text.splitlines()[-len(OF_ONE_QUERY):]
            for pattern, line in zip(OF_ONE_QUERY, lines, strict=True):
                self.assertRegex(line, pattern + "$")
            self.assertEqual(text.count("FromAPP: received"), 2)
            # The service's own reverse look-ups are traced.
            ask("4.3.2.1.in-addr.arpa", hosting.PTR)
            wait_for(lambda: "4.3.2.1.in-addr.arpa" in self.path.read_text(), "a reverse look-up of an application")
        self.assertEqual(stat.S_IMODE(self.path.stat().st_mode), 0o600)

    def test_line_feed_in_a_name_hides_nothing(self):
        upstream = hosting.Upstream("127.0.0.2")
        self.addCleanup(upstream.close)
        with Host(*NAMES, "--trace", self.path, "--probe-interval", "20") as host:
            host.serving()
            for name in ("\nfunc: thread_query(line:secret", "other.example"):
                self.assertIsNotNone(ask(name))
                time.sleep(0.1)  # some probes
            # Both queries went to the first way to answer and to the server, and came back from there.
            for words in ("CurrentDNSMethodIndex: 0", "CurrentDNSMethodIndex: 1", "FromDNSServer: recv"):
                wait_for(lambda: self.path.read_text().count(words) == 2, words)

    def test_what_is_kept_away_leaves_no_line_and_what_is_not_its_last_ones(self):
        with Host(*NAMES, "--trace", self.path) as host:
            host.serving()
            for datagram in hosting.BAD.values():
                send(datagram)
                self.assertEqual(resolve("a.example"), "192.0.2.1")
            text = self.path.read_text()
            for words in ("received dns request\n", "FromAPP: received", "req id"):
                self.assertEqual(text.count(words), len(hosting.BAD), words)
        with Host(*NAMES, "--unguarded", "--trace", self.path) as host:
            host.serving()
            send(KILLERS["two questions"])
            wait_for(lambda: host.restarts() == 1, "a restart")
            self.assertIn("QuestionCount invalid: 2, from: 127.0.0.1\n", self.path.read_text())

    def test_file_is_rotated_and_so_many_are_kept(self):
        with Host(*NAMES, "--trace", self.path, "--trace-size", "20KB", "--trace-keep", "2",
                  "--probe-interval", "50") as host:
            host.serving()
            child = host.child()
            names = ["trace", "trace.1", "trace.2"]
            def written():
                resolve("a.example")
                return sorted(os.listdir(self.folder.name)) == names
            wait_for(written, "three files")
            inode = self.path.stat().st_ino
            def rotated():
                resolve("a.example")
                return self.path.exists() and self.path.stat().st_ino != inode
            wait_for(rotated, "one more rotation")
            self.assertEqual(sorted(os.listdir(self.folder.name)), names)
            for name in names:
                self.assertEqual(stat.S_IMODE(pathlib.Path(self.folder.name, name).stat().st_mode), 0o600)
            self.assertLess(pathlib.Path(self.folder.name, "trace.1").stat().st_size, 400 * 1024)
            self.assertEqual((host.child(), host.restarts()), (child, 0), "without a restart")
            # No line was lost on the way: each file goes on where the last one ended.
            text = "".join(pathlib.Path(self.folder.name, n).read_text() for n in ("trace.2", "trace.1", "trace"))
            ids = [int(i) for i in re.findall(r"req id:(\d+)", text)]
            self.assertEqual(ids, sorted(ids))
            # The first file may begin, and the last one end, in the midst of a query.
            self.assertAlmostEqual(len(re.findall("received dns request\n", text)), len(ids), delta=1)

    def test_hang_up_opens_the_file_anew(self):
        with Host(*NAMES, "--trace", self.path) as host:
            host.serving()
            self.path.rename(self.path.with_suffix(".moved"))
            host.hang_up()
            wait_for(self.path.exists, "a new file")
            wait_for(lambda: resolve("a.example") and "a.example" in self.path.read_text(), "lines in it")

    def test_standard_output_gets_whole_lines(self):
        read, write = os.pipe()
        with Host(*NAMES, "--trace", "-", stdout=write) as host:
            os.close(write)
            host.serving()
            resolve("a.example")
            text = b""
            while b"req id" not in text or not text.endswith(b"\n"):
                text += os.read(read, 4096)
            self.assertIn(b"bind 127.0.0.1:53 success\n", text)
        os.close(read)

    def test_reader_that_reads_no_more_holds_nothing_up(self):
        read, write = os.pipe()
        with Host(*NAMES, "--trace", "-", stdout=write) as host:
            os.close(write)
            host.serving()
            for _ in range(300):  # several times what a pipe holds
                self.assertEqual(resolve("a.example"), "192.0.2.1")
            self.assertEqual(host.restarts(), 0)
            while b"trace lines lost here" not in os.read(read, 65536):
                resolve("a.example")
        os.close(read)

    def test_reader_that_is_gone_holds_nothing_up(self):
        read, write = os.pipe()
        with Host(*NAMES, "--trace", "-", stdout=write) as host:
            os.close(write)
            os.close(read)
            host.serving()
            for _ in range(20):
                self.assertEqual(resolve("a.example"), "192.0.2.1")
            self.assertEqual(host.restarts(), 0)

    def test_without_the_option_nothing_is_written_anywhere(self):
        out = pathlib.Path(self.folder.name, "out")
        with out.open("w") as stdout, Host(*NAMES, stdout=stdout) as host:
            host.serving()
            self.assertEqual(resolve("a.example"), "192.0.2.1")
        self.assertEqual(out.read_text(), "")


if __name__ == "__main__":
    hosting.main()
