"""It keeps answering: whatever ends, stops or hangs the service, it is back at once."""

import os
import pathlib
import resource
import signal
import socket
import statistics
import time

import hosting
from hosting import Host, KILLERS, resolve, send, wait_for

# Bare, so that a datagram can end a worker.
NAMES = ("--unguarded", "--server", "127.0.0.2", "--map", "a.example=192.0.2.1")

# A long interval, so that no probe can be what finds out.
BY_EVENT = NAMES + ("--probe-interval", "60000")


def back_after(host, blow):
    """The seconds from `blow` to the next answer, asked for every 5 ms."""
    restarts = host.restarts()
    began = time.monotonic()
    blow()
    while host.restarts() == restarts or resolve("a.example", tries=1, wait=0.005) is None:
        if time.monotonic() - began > hosting.PATIENCE:
            raise AssertionError("the service does not come back")
    return time.monotonic() - began


class Supervision(hosting.TestCase):
    def measure(self, host, name, blow, rounds=5):
        times = []
        for _ in range(rounds):
            time.sleep(0.03)  # the host does not start more often than every 20 ms
            times.append(back_after(host, blow))
        print(f"  back after {name}: median {statistics.median(times) * 1000:.0f} ms, "
              f"longest {max(times) * 1000:.0f} ms")
        if not hosting.SANITIZED:
            self.assertLess(statistics.median(times), 0.5)

    def test_back_within_half_a_second_without_any_probe(self):
        self.upstream("127.0.0.2")
        with Host(*BY_EVENT) as host:
            host.serving()
            for name, datagram in KILLERS.items():
                self.measure(host, name, lambda d=datagram: send(d))
                self.assertIn("query thread ended; its last datagram", host.status()["last_restarts"][0]["why"])
            self.measure(host, "a runt from a server", lambda: send(hosting.question("runt.example")))
            self.assertIn("answer thread ended; its last datagram: short_answer", host.status()["last_restarts"][0]["why"])
            self.measure(host, "kill -9", lambda: os.kill(host.child(), signal.SIGKILL))
            self.assertEqual(host.status()["last_restarts"][0]["why"], "service was ended by signal 9")
            self.measure(host, "SIGSTOP", lambda: os.kill(host.child(), signal.SIGSTOP))
            self.assertEqual(host.status()["last_restarts"][0]["why"], "service was stopped by a signal")

    def test_hang_that_nothing_reports_is_found_by_the_probe(self):
        with Host(*NAMES) as host:
            host.serving()

            def hold():
                if not hosting.hold_query_thread(host.child()):
                    self.skipTest("no right to trace")

            send(hosting.question("a.example"))  # not idle: probed four times a second
            seconds = back_after(host, hold)
            print(f"  back after a hang: {seconds * 1000:.0f} ms")
            self.assertEqual(host.status()["last_restarts"][0]["why"], "service does not answer")

    def test_client_that_retries_gets_its_answer_beside_bad_datagrams(self):
        with Host(*NAMES) as host:
            host.serving()
            for _ in range(3):
                for datagram in KILLERS.values():
                    send(datagram)
                    self.assertEqual(resolve("a.example"), "192.0.2.1")

    def test_what_comes_between_two_services_is_answered(self):
        with Host(*NAMES) as host:
            host.serving()
            for number in range(1, 16):
                send(KILLERS["runt"])
                # Nobody may be there now. Asked once, from a connected socket.
                self.assertEqual(resolve("a.example", tries=1, wait=hosting.PATIENCE), "192.0.2.1")
                wait_for(lambda: host.restarts() == number, "a restart")

    def test_start_that_fails_behind_the_bind_is_tried_less_and_less_often_too(self):
        if not hosting.has_all_users():
            self.skipTest("only root exists in this namespace")
        if hosting.SANITIZED:
            self.skipTest("the sanitizer's own threads would be refused first")
        # A user who may have two threads: the service gets its port, but not its workers.
        few = lambda: resource.setrlimit(resource.RLIMIT_NPROC, (2, 1000))
        with Host(*NAMES, user="games", preexec_fn=few) as host:
            # Where root is not exempt from the limit, not even a child.
            wait_for(lambda: "could not be started" in host.log() or "no child" in host.log(), "a failed start")
            time.sleep(1)
            self.assertLess(host.restarts(), 6)
            resource.prlimit(host.process.pid, resource.RLIMIT_NPROC, (1000, 1000))
            self.assertEqual(wait_for(lambda: resolve("a.example", wait=0.3), "an answer"), "192.0.2.1")

    def test_60_restarts_leave_no_zombie_and_no_descriptor(self):
        with Host(*BY_EVENT) as host:
            host.serving()
            descriptors = pathlib.Path(f"/proc/{host.process.pid}/fd")
            before = len(list(descriptors.iterdir()))
            for number in range(60):
                wait_for(lambda: host.restarts() >= number and host.status()["state"] == "serving", "serving")
                send(KILLERS["runt"])
                wait_for(lambda: host.restarts() > number, "a restart")
            wait_for(lambda: host.status()["state"] == "serving", "serving")
            self.assertGreaterEqual(host.restarts(), 60)
            self.assertEqual(host.children(), [host.child()])
            self.assertLessEqual(len(list(descriptors.iterdir())), before)
            self.assertEqual(resolve("a.example"), "192.0.2.1")

    def test_services_that_end_at_once_are_started_20_ms_apart(self):
        with Host(*BY_EVENT) as host:
            host.serving()
            restarts, began = host.restarts(), time.monotonic()
            while time.monotonic() < began + 2:
                send(KILLERS["runt"])
                time.sleep(0.001)
            restarts = host.restarts() - restarts
            seconds = time.monotonic() - began
            print(f"  {restarts} restarts in {seconds:.2f} s")
            self.assertGreater(restarts, 2)
            self.assertLessEqual(restarts, seconds / 0.02 + 1)

    def test_start_that_fails_again_and_again_is_tried_less_and_less_often(self):
        with Host(*BY_EVENT) as host:
            host.serving()
            child = host.child()
            limits = resource.prlimit(host.process.pid, resource.RLIMIT_NOFILE)
            # No descriptor more than it has.
            resource.prlimit(host.process.pid, resource.RLIMIT_NOFILE, (4, limits[1]))
            os.kill(child, signal.SIGKILL)
            wait_for(lambda: host.log().count("error") > 0 or host.log().count("again") > 0, "a failed start")
            time.sleep(1)
            tried = host.log().count("\n")
            self.assertLess(tried, 16)
            # What was asked meanwhile is answered by the first one that does not fail.
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as client:
                client.settimeout(hosting.PATIENCE)
                client.connect(("127.0.0.1", 53))
                client.send(hosting.question("a.example"))
                resource.prlimit(host.process.pid, resource.RLIMIT_NOFILE, limits)
                self.assertEqual(hosting.address_in(client.recv(8192)), "192.0.2.1")

    def test_service_does_not_outlive_the_host(self):
        with Host(*NAMES) as host:
            host.serving()
            child = host.child()
            host.process.kill()
            host.process.wait()
            # Its new parent is process 1 of the namespace: this one.
            self.assertEqual(os.waitpid(child, 0)[0], child)
            # Its socket file stays behind; the next host takes its place.
            self.assertTrue(os.path.exists(host.socket))
            with Host(*NAMES, status_at=host.socket) as next_host:
                next_host.serving()


if __name__ == "__main__":
    hosting.main()
