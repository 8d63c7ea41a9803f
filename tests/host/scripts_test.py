"""scripts/run and scripts/demo: what a newcomer types first."""

import os
import pathlib
import signal
import socket
import subprocess
import unittest

import hosting
from hosting import resolve, wait_for

SCRIPTS = pathlib.Path(os.environ["DNS_PROXY_SOURCE"], "scripts")
USER = () if hosting.has_all_users() else ("--user", "root")


def hosts():
    """The processes of dns_proxy_host in this namespace."""
    names = (path.read_text() for path in pathlib.Path("/proc").glob("[0-9]*/comm"))
    return [name for name in names if name.startswith("dns_proxy_host")]


class Run(unittest.TestCase):
    def test_serves_until_interrupted_and_says_what_to_type(self):
        command = [SCRIPTS / "run", "--server", "127.0.0.2", "--map", "A.example=192.0.2.1", *USER]
        with (hosting.own_run(),
              subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True) as run):
            try:
                wait_for(lambda: resolve("a.example", tries=1, wait=0.1) == "192.0.2.1", "an answer")
                self.assertEqual(resolve("dns-proxy.internal"), "127.0.0.53")
                self.assertEqual(hosting.leaves("--status")[0], 0)
            finally:
                run.send_signal(signal.SIGINT)
            said = run.communicate(timeout=hosting.PATIENCE)[0]
        self.assertEqual(run.returncode, 0)
        self.assertIn("dig @127.0.0.1 dns-proxy.internal\n", said)
        self.assertIn(f"{hosting.HOST} --status --watch\n", said)
        self.assertEqual(hosts(), [])

    def test_each_refusal_is_one_clear_line_and_leaves_nothing_running(self):
        def refused(*arguments):
            done = subprocess.run([SCRIPTS / "run", *arguments], capture_output=True, text=True, timeout=hosting.PATIENCE)
            self.assertEqual((done.stdout, done.stderr.count("\n")), ("", 1), done)
            self.assertEqual(hosts(), [])
            return done.returncode, done.stderr

        status, line = refused("--server", "router")
        self.assertEqual(status, 2)
        self.assertIn("--server router: not an IPv4 address", line)
        status, line = refused("--server", "127.0.0.2", "--map", "name=1")
        self.assertEqual(status, 2)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
            sock.bind(("127.0.0.1", 53))
            status, line = refused("--server", "127.0.0.2")
        self.assertEqual(status, 3)
        self.assertIn("taken by", line)


class Demo(unittest.TestCase):
    def test_shows_questions_answers_trace_and_a_recovery_and_ends_with_status_0(self):
        if subprocess.run(["sh", "-c", "command -v nsd || test -x /usr/sbin/nsd"], capture_output=True).returncode != 0:
            self.skipTest("NSD is not installed")
        before = set(os.listdir("/tmp"))
        done = subprocess.run([SCRIPTS / "demo"], capture_output=True, text=True, timeout=120)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        for text in ("198.51.100.10", "127.0.0.53", "status: NXDOMAIN", "****QureyThread***: received dns request",
                     "status: REFUSED", "starting the service again: service was ended by signal 9", "\nrestarts                      1\n"):
            self.assertIn(text, done.stdout)
        stories = done.stdout.split("$ dns_proxy_trace --stories FILE\n")[1]
        for story in (r"dns-proxy\.internal +map answered 127\.0\.0\.53 +answered from the map",
                      r"www\.demo\.example +map → 127\.0\.0\.2 answered +answered by a server",
                      r"nowhere\.demo\.example +map → 127\.0\.0\.2 no such name +no such name",
                      r"10\.100\.51\.198\.in-addr\.arpa +reverse look-up +no such name"):
            self.assertRegex(stories, r"(?m)^\d+ +" + story + "$")
        self.assertEqual(hosts(), [])
        new = {name for name in set(os.listdir("/tmp")) - before if os.path.exists(f"/tmp/{name}/demo.zone")}
        self.assertEqual(new, set())


if __name__ == "__main__":
    hosting.main()
