"""The life of the package dns-proxy-host in a system of its own (systemd_test.py), from its
installation until it is purged. The tests run in the order of their names."""

import contextlib
import json
import os
import pathlib
import signal
import socket
import subprocess
import time
import unittest

import asking
import waiting

PACKAGE = str(next(pathlib.Path("/root").glob("dns-proxy-host_*.deb")))
UNIT = "dns-proxy-host.service"
DROP_IN = pathlib.Path(f"/etc/systemd/system/{UNIT}.d/options.conf")
HOSTS = pathlib.Path("/etc/static-names")
OPTIONS = f"--server 127.0.0.2 --map printer.internal=192.0.2.80 --hosts {HOSTS}"
TRACE = pathlib.Path("/var/log/dns-proxy-host/trace")
ADDRESS = asking.MAPPED_ADDRESS
PATIENCE = 20  # seconds, for what is no measurement


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()


def dpkg(*arguments):
    # Without the index of manual pages, which takes longer than all the rest.
    return run("dpkg", "--no-triggers", "--force-unsafe-io", *arguments)


def show(name):
    return run("systemctl", "show", "--value", f"--property={name}", UNIT)


def parent():
    return int(show("MainPID"))


def child():
    """0 between two of them."""
    children = pathlib.Path(f"/proc/{parent()}/task/{parent()}/children").read_text().split()
    return int(children[0]) if children else 0


def status_of(process, name):
    lines = pathlib.Path(f"/proc/{process}/status").read_text().splitlines()
    return next(line.split()[1] for line in lines if line.startswith(name + ":"))


def ask(labels=tuple(asking.MAPPED_NAME), patience=PATIENCE):
    """The last four bytes of the answer: an address."""
    return (asking.ask(asking.question(labels), patience) or b"")[-4:]


def ask_without_pause():
    """Asks every few milliseconds until there is an answer."""
    query = asking.question(asking.MAPPED_NAME)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as client:
        client.settimeout(0.005)
        until = time.monotonic() + PATIENCE
        while time.monotonic() < until:
            with contextlib.suppress(TimeoutError):
                client.sendto(query, ("127.0.0.1", 53))
                return client.recv(512)
    return None


def wait_for(condition, what):
    return waiting.wait_for(condition, what, PATIENCE)


def journal():
    """What the unit's processes and systemd have said of it."""
    lines = run("journalctl", "--quiet", "--output=json", f"--unit={UNIT}")
    return [json.loads(line) for line in lines.splitlines()]


@contextlib.contextmanager
def port_taken():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as holder:
        holder.bind(("127.0.0.1", 53))
        yield


class Life(unittest.TestCase):
    def test_01_install_says_how_to_start_and_does_not(self):
        said = dpkg("--install", PACKAGE)
        (line,) = [line for line in said.splitlines() if "systemctl" in line]
        self.assertIn("systemctl enable --now dns-proxy-host", line)
        self.assertEqual((show("ActiveState"), show("UnitFileState")), ("inactive", "disabled"))

    def test_02_started_means_answering(self):
        HOSTS.write_text("192.0.2.1 old.internal\n")
        DROP_IN.parent.mkdir()
        command = f"/usr/sbin/dns_proxy_host --socket /run/dns_proxy_host/status --trace {TRACE} {OPTIONS}"
        DROP_IN.write_text(f"[Service]\nExecStart=\nExecStart={command}\n")
        run("systemctl", "daemon-reload")
        run("systemctl", "enable", "--now", UNIT)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as client:
            client.settimeout(PATIENCE)
            client.sendto(asking.question(asking.MAPPED_NAME), ("127.0.0.1", 53))
            self.assertEqual(client.recv(512)[-4:], ADDRESS)

    def test_03_rights(self):
        bind, none = f"{1 << 10:016x}", "0" * 16
        self.assertNotEqual(status_of(parent(), "Uid"), "0")
        for process in (parent(), child()):
            held = [status_of(process, "Cap" + which) for which in ("Prm", "Eff", "Bnd", "Amb")]
            self.assertEqual(held, [none, none, bind, none])
            self.assertEqual([status_of(process, "NoNewPrivs"), status_of(process, "Seccomp")], ["1", "2"])

    def test_04_journal_knows_levels(self):
        said = {entry["MESSAGE"]: entry for entry in journal()}
        self.assertEqual(said["serving on UDP 127.0.0.1 port 53"]["PRIORITY"], "6")

    def test_05_reload_takes_new_names(self):
        before = parent()
        HOSTS.write_text("192.0.2.2 new.internal\n")
        run("systemctl", "reload", UNIT)
        wait_for(lambda: ask(("new", "internal"), 0.5) == bytes([192, 0, 2, 2]), "the new name")
        self.assertEqual(parent(), before)

    def test_06_bad_datagrams_change_nothing(self):
        before = child()
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            for datagram in (b"", bytes(5), bytes(12), asking.question([]), b"\xff" * 600):
                sender.sendto(datagram, ("127.0.0.1", 53))
        self.assertEqual((ask(), child()), (ADDRESS, before))

    def test_07_killed_child_is_followed(self):
        before = parent(), child()
        os.kill(before[1], signal.SIGKILL)
        wait_for(lambda: child() not in (0, before[1]), "another child")
        self.assertEqual((ask(), parent()), (ADDRESS, before[0]))

    def test_08_killed_parent_is_followed_at_once(self):
        took = []
        while not took or min(took) > 0.3 and len(took) < 5:
            before = parent()
            began = time.monotonic()
            os.kill(before, signal.SIGKILL)
            # Its child answers for as long as it has not noticed.
            wait_for(lambda: show("MainPID") != str(before), "its end")
            self.assertIsNotNone(ask_without_pause())
            took.append(time.monotonic() - began)
            wait_for(lambda: show("ActiveState") == "active", "systemd's word for it")
        print(", ".join(f"{seconds:.3f} s" for seconds in took), end=" ", flush=True)
        self.assertLess(min(took), 0.3)

    def test_09_memory_limit_costs_the_child_alone(self):
        # Where the container has no memory controller the limit is the process's own.
        counted = show("MemoryCurrent").isdigit()
        limit = "MemoryMax=48M\nMemorySwapMax=0" if counted else "LimitDATA=48M"
        print(limit.split("\n")[0], end=" ", flush=True)
        limited = DROP_IN.with_name("limit.conf")
        limited.write_text(f"[Service]\n{limit}\n")
        run("systemctl", "daemon-reload")
        run("systemctl", "restart", UNIT)
        before = parent(), child()
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            until = time.monotonic() + PATIENCE
            while os.path.exists(f"/proc/{before[1]}") and time.monotonic() < until:
                # Each waits for a server that is silent, in a record of 8 kB.
                for number in range(100):
                    sender.sendto(asking.question([f"n{number}", "internal"]), ("127.0.0.1", 53))
                ask()  # it has kept up
        wait_for(lambda: child() not in (0, before[1]), "another child")
        self.assertEqual((ask(), parent()), (ADDRESS, before[0]))
        limited.unlink()
        run("systemctl", "daemon-reload")

    def test_10_stop(self):
        processes = parent(), child()
        began = time.monotonic()
        run("systemctl", "stop", UNIT)
        took = time.monotonic() - began
        print(f"{took:.3f} s", end=" ", flush=True)
        self.assertLess(took, 1.2)
        with port_taken():
            pass
        for process in processes:
            self.assertFalse(os.path.exists(f"/proc/{process}"))
        self.assertFalse(os.path.exists("/run/dns_proxy_host"))
        self.assertFalse(os.path.exists("/run/dns-proxy-host-ends"))

    def test_11_taken_port_is_tried_less_and_less_and_its_holder_named(self):
        with port_taken():
            run("systemctl", "start", "--no-block", UNIT)

            def refusals():
                return [entry for entry in journal() if "taken by" in entry["MESSAGE"]]

            three = wait_for(lambda: len(refusals()) >= 3 and refusals()[:3], "three tries")
            for entry in three:
                self.assertIn(f"taken by python3 (process {os.getpid()})", entry["MESSAGE"])
                self.assertEqual(entry["PRIORITY"], "3")
            times = [int(entry["__MONOTONIC_TIMESTAMP"]) / 1e6 for entry in three]
            self.assertLess(times[1] - times[0], 1)
            self.assertGreater(times[2] - times[1], 1)
        # Somebody who has seen to it does not wait for the next try, which is 2 s away.
        wait_for(lambda: show("SubState") == "start-pre", "the wait for it")
        time.sleep(0.1)  # in which the wait begins
        began = time.monotonic()
        run("systemctl", "restart", UNIT)
        self.assertLess(time.monotonic() - began, 1)
        self.assertEqual(ask(), ADDRESS)

    def test_12_upgrade_restarts_what_runs(self):
        before = parent()
        dpkg("--install", PACKAGE)
        self.assertNotIn(parent(), (0, before))
        self.assertEqual(ask(), ADDRESS)
        run("systemctl", "stop", UNIT)
        dpkg("--install", PACKAGE)
        self.assertEqual((show("ActiveState"), show("UnitFileState")), ("inactive", "enabled"))

    def test_13_remove_stops_and_purge_leaves_nothing(self):
        run("systemctl", "start", UNIT)
        process = parent()
        dpkg("--remove", "dns-proxy-host")
        self.assertFalse(os.path.exists(f"/proc/{process}"))
        self.assertTrue(TRACE.exists())
        dpkg("--purge", "dns-proxy-host")
        DROP_IN.unlink()
        DROP_IN.parent.rmdir()
        folders = ("/etc", "/usr", "/var", "/run")
        self.assertEqual(run("find", *folders, "-xdev", "-iname", "*dns[-_]proxy[-_]host*"), "")


if __name__ == "__main__":
    unittest.main()
