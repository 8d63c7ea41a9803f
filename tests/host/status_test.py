"""--status: what the running host says of itself, and to whom."""

import json
import os
import signal
import socket
import stat
import subprocess
import tempfile
import time
import unittest

import hosting
from hosting import Host, leaves, resolve, wait_for

NAMES = ("--server", "127.0.0.2", "--map", "a.example=192.0.2.1")


class Status(unittest.TestCase):
    def test_table_and_json_say_the_same(self):
        with Host(*NAMES) as host:
            host.serving()
            for _ in range(3):
                resolve("a.example")
            time.sleep(0.1)  # an uptime that is not nothing
            os.kill(host.child(), signal.SIGKILL)
            wait_for(lambda: host.restarts() == 1 and host.answers(), "a restart")

            status, table = leaves("--status", "--socket", host.socket)
            self.assertEqual(status, 0)
            rows = dict(line.split(maxsplit=1) for line in table.splitlines() if line[0] != " ")

            status, text = leaves("--status", "--json", "--socket", host.socket)
            report = json.loads(text)
            self.assertEqual(status, 0)
            self.assertEqual([name + ":" for name in report], list(rows))
            for name in ("state", "host_process", "service_process", "queries", "restarts"):
                self.assertEqual(str(report[name]), rows[name + ":"])
            self.assertEqual(report["state"], "serving")
            self.assertEqual(report["host_process"], host.process.pid)
            self.assertEqual(report["last_restarts"][0]["why"], "service was ended by signal 9")
            self.assertIn("why: service was ended by signal 9", rows["last_restarts:"])
            self.assertGreater(report["uptime_s"], 0)
            self.assertEqual(report["upstreams"],
                             [{"address": "127.0.0.2", "state": "not watched", "round_trip_ms": None}])
            self.assertIsNotNone(report["last_probe_s_ago"])

    def test_queries_are_counted_without_probes(self):
        with Host(*NAMES, "--probe-interval", "50") as host:
            host.serving()
            before = host.status()["queries"]
            for _ in range(50):
                resolve("a.example")
            time.sleep(1)  # some twenty probes
            # A probe or a retry that is under way may be counted on either side.
            self.assertAlmostEqual(host.status()["queries"] - before, 50, delta=5)
            self.assertEqual(sum(host.status()["kept_away"].values()), 0)

    def test_socket_is_the_owners_alone(self):
        with Host(*NAMES) as host:
            host.serving()
            self.assertEqual(stat.S_IMODE(os.stat(host.socket).st_mode), 0o600)

    def test_client_that_does_not_read_holds_nothing_up(self):
        with Host(*NAMES) as host:
            host.serving()
            clients = [socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) for _ in range(4)]
            for client in clients:
                client.connect(host.socket)
            self.assertEqual(host.status()["state"], "serving")
            for client in clients:
                client.close()

    def test_host_that_does_not_answer_is_not_waited_for(self):
        with Host(*NAMES) as host:
            host.serving()
            host.process.send_signal(signal.SIGSTOP)
            askers = [subprocess.Popen([hosting.HOST, "--status", "--socket", host.socket],
                                       stderr=subprocess.DEVNULL) for _ in range(30)]
            self.assertEqual({asker.wait(hosting.PATIENCE) for asker in askers}, {6})
            host.process.send_signal(signal.SIGCONT)
            wait_for(host.answers, "an answer")

    def test_nobody_there_is_a_status_of_its_own(self):
        status, said = leaves("--status", "--socket", "/nonexistent/socket")
        self.assertEqual(status, 6)
        self.assertIn("no host answers there", said)

    def test_file_that_is_no_socket_is_not_removed(self):
        with tempfile.NamedTemporaryFile() as file:
            status, said = leaves(*NAMES, "--socket", file.name)
            self.assertEqual(status, 1, said)
            self.assertTrue(os.path.exists(file.name))


if __name__ == "__main__":
    hosting.main()
