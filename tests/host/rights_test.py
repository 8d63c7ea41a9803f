"""Least privilege: what the processes may still do once the service runs."""

import fcntl
import os
import pathlib
import signal
import subprocess
import termios
import unittest

import hosting
from hosting import Host, resolve, wait_for

NAMES = ("--server", "127.0.0.2", "--map", "a.example=192.0.2.1")

# Bits of the capability masks (capabilities(7)).
KILL, SETGID, SETUID = 1 << 5, 1 << 6, 1 << 7


def statuses(process):
    """The fields of /proc/PROCESS/task/*/status, one dictionary a thread."""
    result = []
    for path in pathlib.Path(f"/proc/{process}/task").glob("*/status"):
        result.append(dict(line.split(":\t", 1) for line in path.read_text().splitlines() if ":\t" in line))
    return result


class Rights(unittest.TestCase):
    @hosting.linux_only
    def test_service_has_none_in_any_thread_and_cannot_gain_any(self):
        with Host(*NAMES) as host:
            host.serving()
            threads = statuses(host.child())
            self.assertGreaterEqual(len(threads), 4)
            for thread in threads:
                for mask in ("CapInh", "CapPrm", "CapEff", "CapAmb"):
                    self.assertEqual(int(thread[mask], 16), 0, mask)
                self.assertEqual(thread["NoNewPrivs"], "1")
                if hosting.has_all_users():
                    self.assertEqual(thread["Uid"].split(), ["65534"] * 4)
                    self.assertEqual(set(thread["Gid"].split()), {"65534"})
                    self.assertEqual(thread["Groups"].split(), ["65534"])

    def test_every_service_after_a_restart_is_as_powerless(self):
        with Host(*NAMES) as host:
            host.serving()
            os.kill(host.child(), signal.SIGKILL)
            wait_for(lambda: host.restarts() == 1 and host.answers(), "a restart")
            self.assertEqual({thread["CapEff"] for thread in statuses(host.child())}, {"0" * 16})

    @hosting.linux_only
    def test_parent_keeps_what_it_takes_to_start_again(self):
        with Host(*NAMES) as host:
            host.serving()
            (thread,) = statuses(host.process.pid)
            for mask in ("CapPrm", "CapEff"):
                self.assertEqual(int(thread[mask], 16), KILL | SETGID | SETUID, mask)
            for mask in ("CapInh", "CapAmb"):
                self.assertEqual(int(thread[mask], 16), 0, mask)
            self.assertEqual(thread["NoNewPrivs"], "1")

    @hosting.linux_only
    def test_user_with_the_one_capability_is_enough_and_the_service_has_none(self):
        if not hosting.has_all_users():
            self.skipTest("only root exists in this namespace")
        if os.environ.get("SANITIZER") == "thread":
            self.skipTest("the sanitizer has a thread of its own in every process, which keeps its rights")
        for also, kept in (("", 0), (",+kill", KILL)):
            capabilities = "+net_bind_service" + also
            command = ["setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups",
                       "--inh-caps", "-all," + capabilities, "--ambient-caps", capabilities, hosting.HOST, *NAMES]
            with self.subTest(also=also), subprocess.Popen(command, stderr=subprocess.DEVNULL) as process:
                try:
                    wait_for(lambda: resolve("a.example", tries=1, wait=0.1) == "192.0.2.1", "an answer")
                    child = int(pathlib.Path(f"/proc/{process.pid}/task/{process.pid}/children").read_text())
                    (parent,) = statuses(process.pid)
                    self.assertEqual(int(parent["CapPrm"], 16), kept)
                    for thread in statuses(child):
                        self.assertEqual(int(thread["CapPrm"], 16), 0)
                finally:
                    process.terminate()

    def test_service_has_no_terminal(self):
        # TIOCSTI would put words into the mouth of who has started the host there.
        reader, terminal = os.openpty()
        def take():
            os.setsid()
            fcntl.ioctl(terminal, termios.TIOCSCTTY, 0)
        with Host(*NAMES, stderr=terminal, preexec_fn=take) as host:
            os.close(terminal)
            host.serving()
            terminal_of = lambda process: int(
                pathlib.Path(f"/proc/{process}/stat").read_text().rsplit(")", 1)[1].split()[4])
            self.assertNotEqual(terminal_of(host.process.pid), 0)
            self.assertEqual(terminal_of(host.child()), 0)
        os.close(reader)

    def test_service_has_the_trace_and_its_sockets_and_nothing_else_open(self):
        with Host(*NAMES) as host:
            host.serving()
            targets = [os.readlink(path) for path in pathlib.Path(f"/proc/{host.child()}/fd").iterdir()]
            sockets = [target for target in targets if target.startswith("socket:")]
            self.assertEqual(len(sockets), 3, targets)  # the channel to the parent and the service's two
            self.assertEqual(len(targets), 6, targets)


if __name__ == "__main__":
    hosting.main()
