"""--status: what the running host says of itself, and to whom."""

import json
import os
import pathlib
import shutil
import signal
import socket
import stat
import subprocess
import tempfile
import time

import hosting
from hosting import Host, leaves, own_run, resolve, wait_for

ROOTS_SOCKET = "/var/run/dns_proxy_host/status" if hosting.FOR_MACOS else "/run/dns_proxy_host/status"
USER = () if hosting.has_all_users() else ("--user", "root")
NAMES = ("--server", "127.0.0.2", "--map", "a.example=192.0.2.1")


class Status(hosting.TestCase):
    def test_page_and_json_say_the_same(self):
        with Host(*NAMES) as host:
            host.serving()
            for _ in range(3):
                resolve("a.example")
            time.sleep(0.1)  # an uptime that is not nothing
            os.kill(host.child(), signal.SIGKILL)
            wait_for(lambda: host.restarts() == 1 and host.answers(), "a restart")

            status, text = leaves("--status", "--json", "--socket", host.socket)
            report = json.loads(text)
            self.assertEqual(status, 0)
            self.assertEqual(report["state"], "serving")
            self.assertEqual(report["host_process"], host.process.pid)
            self.assertEqual(report["queries"], 3)
            self.assertEqual(report["last_restarts"][0]["why"], "service was ended by signal 9")
            self.assertGreater(report["uptime_s"], 0)
            self.assertEqual(report["upstreams"][0]["address"], "127.0.0.2")
            self.assertIsNone(report["upstreams"][0]["round_trip_ms"], "nobody is there")
            self.assertIsNotNone(report["last_probe_s_ago"])
            self.assertIsNone(report["error"])

            status, page = leaves("--status", "--socket", host.socket)
            self.assertEqual(status, 0)
            self.assertRegex(page, r"^serving for \d+ s\n")
            self.assertIn(f"host process {host.process.pid}, service process {host.child()}\n", page)
            self.assertRegex(page, r"\nqueries +3\n  static name +3 100 %\n")
            self.assertRegex(page, r"\n  127\.0\.0\.2 +\S")
            self.assertRegex(page, r"\nrestarts +1\n  started again \d+ s ago: service was ended by signal 9\n")
            self.assertNotIn("null", page)

    def test_root_needs_no_socket(self):
        with own_run(), Host(*NAMES, default_socket=True, status_at=ROOTS_SOCKET) as host:
            host.serving()
            status, page = leaves("--status")
            self.assertEqual(status, 0, page)
            self.assertIn(f"host process {host.process.pid},", page)
            self.assertEqual(stat.S_IMODE(os.stat(host.socket).st_mode), 0o600)
            host.stop()
            self.assertEqual(os.listdir("/run"), [])

    @hosting.linux_only
    def test_another_user_needs_none_either(self):
        if not hosting.has_all_users():
            self.skipTest("only root exists in this namespace")
        pathlib.Path("/proc/sys/net/ipv4/ip_unprivileged_port_start").write_text("53")
        with tempfile.TemporaryDirectory() as folder:
            os.chown(folder, 65534, 65534)
            # A copy: the build may be in a folder that only its owner can enter.
            become = {"preexec_fn": lambda: os.setuid(65534), "cwd": "/",
                      "executable": shutil.copy(hosting.HOST, folder + "/copy")}
            environment = dict(os.environ, XDG_RUNTIME_DIR=folder)
            with Host(*NAMES, default_socket=True, status_at=folder + "/dns_proxy_host/status",
                      environment=environment, **become) as host:
                host.serving()
                status, page = leaves("--status", env=environment, **become)
                self.assertEqual(status, 0, page)
                self.assertIn(f"host process {host.process.pid},", page)
            environment.pop("XDG_RUNTIME_DIR")
            with Host(*NAMES, default_socket=True, environment={"XDG_RUNTIME_DIR": ""}, **become) as host:
                wait_for(lambda: resolve("a.example", tries=1, wait=0.1), "an answer")
                self.assertIn("warning: --socket $XDG_RUNTIME_DIR/dns_proxy_host/status: No such file", host.log())
                self.assertIn("; --status will find no host (--socket names another place)", host.log())
            status, said = leaves("--status", env=environment, **become)
            self.assertEqual((status, said.count("\n")), (6, 1), said)
            self.assertIn("no host answers at $XDG_RUNTIME_DIR/dns_proxy_host/status: start one", said)

    def test_default_that_cannot_be_made_is_told_and_stops_nothing_and_one_asked_for_does(self):
        with own_run("-o", "ro"):
            with Host(*NAMES, default_socket=True) as host:
                wait_for(lambda: resolve("a.example", tries=1, wait=0.1), "an answer")
                self.assertIn(f"warning: --socket {ROOTS_SOCKET}: ", host.log())
                self.assertIn("--status will find no host", host.log())
            status, said = leaves(*NAMES, *USER, "--socket", ROOTS_SOCKET)
            self.assertEqual(status, 1, said)
            self.assertIn(f"error: --socket {ROOTS_SOCKET}: ", said)

    def test_no_socket_is_made_if_none_is_wanted(self):
        with own_run(), Host(*NAMES, "--socket", "", default_socket=True) as host:
            wait_for(lambda: resolve("a.example", tries=1, wait=0.1), "an answer")
            self.assertEqual(os.listdir("/run"), [])
            self.assertNotIn("socket", host.log())

    def test_check_leaves_no_default_socket(self):
        with own_run():
            self.assertEqual(leaves(*NAMES, *USER, "--check")[0], 0)
            self.assertEqual(os.listdir("/run"), [])

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

    def test_each_outcome_is_counted_and_the_sum_is_that_of_the_queries(self):
        server = self.upstream("127.0.0.2")
        other = self.upstream("127.0.0.3")
        with Host(*NAMES, "--server", "127.0.0.3") as host:
            host.serving()

            def outcomes(**more):
                expected = {"static_name": 0, "no_such_name": 0, "lost_in_restarts": 0, "still_waiting": 0} | more
                report = host.status()
                self.assertEqual(sum(report["outcomes"].values()), report["queries"])
                self.assertEqual(report["outcomes"], expected)

            outcomes()
            for kind in (hosting.A, hosting.AAAA):
                self.assertIsNotNone(hosting.ask("A.example", kind))
            outcomes(static_name=2)
            hosting.send(hosting.BAD["root"])
            wait_for(lambda: host.status()["kept_away"]["root"] == 1, "a query that is refused")
            outcomes(static_name=2)
            self.assertIsNotNone(hosting.ask("1.2.0.192.in-addr.arpa", hosting.PTR))
            outcomes(static_name=2, no_such_name=1)
            self.assertIsNotNone(hosting.ask("none.example"))
            outcomes(static_name=2, no_such_name=2)
            self.assertIsNotNone(resolve("b.example"))
            outcomes(static_name=2, no_such_name=2, **{"127.0.0.2": 1})

            # Before the right answer: one to no query, and one of another server than was asked.
            self.assertEqual(host.status()["stray_answers"], 0)

            def strays(query):
                if hosting.question_name(query):  # and not the host's own
                    other.sock.sendto(hosting.answer(query, "192.0.2.9"), server.asker)
                    return [bytes([query[0] ^ 1]) + hosting.answer(query, None)[1:]]
                return []

            server.first = strays
            self.assertEqual(resolve("c.example"), hosting.address_of("c.example"))
            outcomes(static_name=2, no_such_name=2, **{"127.0.0.2": 2})
            self.assertEqual(host.status()["stray_answers"], 2)

            server.loss = 1.0
            self.assertIsNone(hosting.ask("d.example", tries=3, wait=0.05))
            outcomes(static_name=2, no_such_name=2, still_waiting=3, **{"127.0.0.2": 2})
            os.kill(host.child(), signal.SIGKILL)
            wait_for(lambda: host.restarts() == 1 and host.answers(), "a restart")
            outcomes(static_name=2, no_such_name=2, lost_in_restarts=3, **{"127.0.0.2": 2})

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
        for watch in ((), ("--watch",)):
            status, said = leaves("--status", *watch, "--socket", "/nonexistent/socket")
            self.assertEqual((status, said.count("\n")), (6, 1), said)
            self.assertIn("no host answers at /nonexistent/socket: start one, ", said)

    def test_file_that_is_no_socket_is_not_removed(self):
        with tempfile.NamedTemporaryFile() as file:
            status, said = leaves(*NAMES, "--socket", file.name)
            self.assertEqual(status, 1, said)
            self.assertTrue(os.path.exists(file.name))


if __name__ == "__main__":
    hosting.main()
