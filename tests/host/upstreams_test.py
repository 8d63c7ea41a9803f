"""The right upstream servers: found, followed when the network changes, left when they are silent."""

import os
import pathlib
import subprocess
import tempfile
import time

import hosting
from hosting import Host, address_of, leaves, resolve, wait_for

USER = () if hosting.has_all_users() else ("--user", "root")


class ResolvConf(hosting.TestCase):
    """/etc/resolv.conf is a file of the test's own, in the test's own mount namespace."""

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.file = pathlib.Path(self.folder.name, "resolv.conf")
        self.file.write_text("")
        real = pathlib.Path("/etc/resolv.conf").resolve()
        subprocess.run(["mount", "--bind", str(self.file), str(real)], check=True)
        self.addCleanup(self.folder.cleanup)
        self.addCleanup(subprocess.run, ["umount", str(real)], check=True)

    def add_addresses(self, *addresses):
        for address in addresses:
            subprocess.run(["ip", "address", "add", address + "/32", "dev", "lo"], check=True)
            self.addCleanup(subprocess.run, ["ip", "address", "del", address + "/32", "dev", "lo"], check=True)

    def test_servers_are_taken_from_the_file_without_this_machine(self):
        self.add_addresses("192.0.2.1", "192.0.2.2")
        upstreams = [self.upstream("192.0.2.1"), self.upstream("192.0.2.2")]
        self.file.write_text("nameserver 127.0.0.1\nnameserver 192.0.2.1 # office\nnameserver 192.0.2.2\n")
        with Host() as host:
            host.serving()
            self.assertIn("left out: 127.0.0.1 (this machine)", host.log())
            self.assertIn("upstream servers from /etc/resolv.conf: 192.0.2.1, 192.0.2.2", host.log())
            self.assertEqual(resolve("a.example"), address_of("a.example"))
        self.assertEqual(upstreams[0].asked, 1)

    def test_change_of_the_file_is_followed_without_a_signal(self):
        self.add_addresses("192.0.2.1", "192.0.2.2")
        upstreams = [self.upstream("192.0.2.1"), self.upstream("192.0.2.2")]
        self.file.write_text("nameserver 192.0.2.1\n")
        with Host() as host:
            host.serving()
            self.file.write_text("nameserver 192.0.2.2\n")
            wait_for(lambda: host.status()["upstreams"][0]["address"] == "192.0.2.2", "the new server")
            wait_for(lambda: resolve("a.example", wait=0.3) and upstreams[1].asked, "an answer from it")
            # A file without a server (the network is down): the last ones stay.
            self.file.write_text("# nothing\n")
            wait_for(lambda: "runs on with the servers that it has" in host.log(), "a line about it")
            self.assertEqual(host.status()["upstreams"][0]["address"], "192.0.2.2")
            self.assertEqual(resolve("b.example"), address_of("b.example"))

    def test_hang_up_reads_the_file_too(self):
        self.file.write_text("nameserver 192.0.2.1\n")
        with Host("--probe-interval", "60000") as host:
            host.serving()
            self.file.write_text("nameserver 192.0.2.2\n")
            host.hang_up()
            wait_for(lambda: host.status()["upstreams"][0]["address"] == "192.0.2.2", "the new server")

    def test_no_server_is_a_status_of_its_own(self):
        for text in ("", "nameserver 127.0.0.53\n", "nameserver ::1\n", "x" * 70000):
            self.file.write_text(text)
            status, said = leaves(*USER)
            self.assertEqual(status, 5, said)
            self.assertIn("--server ADDRESS", said)

    def test_given_servers_leave_the_file_alone(self):
        self.file.write_text("nameserver 192.0.2.1\n")
        status, said = leaves("--server", "192.0.2.9", "--check")
        self.assertEqual(status, 0, said)
        self.assertIn("upstream servers: 192.0.2.9\n", said)

    def test_file_that_is_none_is_no_server_and_does_not_end_the_host(self):
        real = pathlib.Path("/etc/resolv.conf").resolve()
        self.file.write_text("nameserver 192.0.2.1\n")
        with Host("--probe-interval", "50") as host:
            host.serving()
            subprocess.run(["mount", "--bind", "/dev/null", str(real)], check=True)  # over the other file
            self.addCleanup(subprocess.run, ["umount", str(real)], check=True)
            wait_for(lambda: "runs on with the servers that it has" in host.log(), "a line about it")
            self.assertEqual(leaves(*USER)[0], 5)
            self.assertEqual(host.status()["upstreams"][0]["address"], "192.0.2.1")

    def test_network_change_is_followed_also_while_a_hosts_file_is_broken(self):
        hosts = pathlib.Path(self.folder.name, "hosts")
        hosts.write_text("192.0.2.9 a.example\n")
        self.file.write_text("nameserver 192.0.2.1\n")
        os.chmod(self.folder.name, 0o755)
        with Host("--hosts", hosts) as host:
            host.serving()
            hosts.unlink()
            self.file.write_text("nameserver 192.0.2.2\n")
            wait_for(lambda: host.status()["upstreams"][0]["address"] == "192.0.2.2", "the new server")
            self.assertIn("runs on with the names that it has", host.log())
            self.assertEqual(resolve("a.example"), "192.0.2.9")


class FailOver(hosting.TestCase):
    def states(self, host):
        return [upstream["state"] for upstream in host.status()["upstreams"]]

    def test_names_resolve_again_within_five_seconds_and_the_first_server_comes_back(self):
        first, second = self.upstream("127.0.0.2"), self.upstream("127.0.0.3")
        with Host("--server", "127.0.0.2", "--server", "127.0.0.3") as host:
            host.serving()
            wait_for(lambda: all(u["round_trip_ms"] is not None for u in host.status()["upstreams"]), "answers")
            self.assertEqual(resolve("a.example"), address_of("a.example"))
            self.assertEqual((first.asked, second.asked), (1, 0))

            first.loss = 1.0
            began = time.monotonic()
            seconds = hosting.seconds_to_an_answer()
            self.assertLess(seconds, hosting.PATIENCE if hosting.SANITIZED else 5)
            print(f"  names resolve again after {seconds:.1f} s")
            self.assertEqual(self.states(host), ["silent", "alive"])
            self.assertGreater(host.status()["upstreams"][0]["silent_s"], 0.9)
            self.assertIsNone(host.status()["upstreams"][1]["silent_s"])
            self.assertEqual(host.log().count(": upstream server 127.0.0.2 is silent\n"), 1)
            self.assertIn("upstream servers are now 127.0.0.3", host.log())
            # A name without records ends the list of servers, which has no silent one in it.
            self.assertIsNotNone(hosting.ask("none.example"))

            first.loss = 0.0
            # Servers are asked while applications are.
            wait_for(lambda: resolve("c.example") and self.states(host) == ["alive", "alive"], "the first server back")
            self.assertEqual(host.log().count(": upstream server 127.0.0.2 answers again\n"), 1)
            print(f"  trusted again {time.monotonic() - began - seconds:.1f} s later")
            asked = first.asked
            self.assertEqual(wait_for(lambda: resolve("c.example", wait=0.3), "an answer"), address_of("c.example"))
            self.assertGreater(first.asked, asked)
            self.assertEqual(host.restarts(), 2)

    def test_loss_of_30_percent_does_not_change_the_order(self):
        self.upstream("127.0.0.2", loss=0.3)
        self.upstream("127.0.0.3", loss=0.3)
        with Host("--server", "127.0.0.2", "--server", "127.0.0.3") as host:
            host.serving()
            end = time.monotonic() + 5
            while time.monotonic() < end:
                hosting.ask("a.example", tries=1, wait=0.5)  # servers are asked while applications are
                time.sleep(0.5)
            self.assertEqual(host.restarts(), 0, host.log())

    def test_when_all_are_silent_the_order_stays(self):
        self.upstream("127.0.0.2", loss=1.0)
        self.upstream("127.0.0.3", loss=1.0)
        with Host("--server", "127.0.0.2", "--server", "127.0.0.3") as host:
            host.serving()
            wait_for(lambda: self.states(host) == ["silent", "silent"], "both silent")
            self.assertEqual(host.log().count(" is silent; none is left that answers\n"), 1)
            # One may have been found silent a moment before the other: then the order went to the
            # other one and back.
            time.sleep(1)
            self.assertIn(host.restarts(), (0, 1, 2))
            restarts = host.restarts()
            time.sleep(1.5)
            self.assertEqual(host.restarts(), restarts)
            self.assertIsNone(hosting.ask("a.example", tries=1, wait=0.3), "a server is waited for")

    def test_single_server_is_watched_too_and_its_silence_changes_nothing(self):
        server = self.upstream("127.0.0.2")
        with Host("--server", "127.0.0.2") as host:
            host.serving()
            wait_for(lambda: self.states(host) == ["alive"], "an answer")
            server.loss = 1.0
            wait_for(lambda: self.states(host) == ["silent"], "silence")
            self.assertIn(": upstream server 127.0.0.2 is silent; none is left that answers\n", host.log())
            self.assertEqual(host.restarts(), 0)


if __name__ == "__main__":
    hosting.main()
