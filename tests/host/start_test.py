"""A start that explains itself: input, port, rights, descriptors, and the way out."""

import fcntl
import os
import pathlib
import resource
import shutil
import signal
import socket
import subprocess
import tempfile
import time

import hosting
from hosting import Host, leaves, resolve, wait_for

SERVER = ("--server", "127.0.0.2")
USER = () if hosting.has_all_users() else ("--user", "root")


class BadInput(hosting.TestCase):
    def test_each_fault_is_one_line_and_status_2_before_anything_starts(self):
        with tempfile.NamedTemporaryFile("w", suffix=".hosts") as hosts:
            hosts.write("192.0.2.1 fine.example\n192.0.2.300 bad.example\n")
            hosts.flush()
            cases = (
                (("--map", "name"), "not NAME=ADDRESS"),
                (("--map", "name=300.0.0.1"), "not an IPv4 address"),
                (("--map", "a b=192.0.2.1"), "a character other than"),
                (("--hosts", hosts.name), f"{hosts.name}:2: '192.0.2.300' is not an IPv4 address"),
                (("--hosts", "/nonexistent"), "/nonexistent: cannot be read"),
                (("--server", "router"), "--server router: not an IPv4 address"),
                (("--server", "127.0.0.1"), "the proxy's own address"),
                (("--user", "no-such-user"), "there is no such user"),
                (("--trace", "/dev/null"), "not a regular file"),
                (("--trace-size", "many"), "--trace-size"),
                (("--trace-size", "-5"), "--trace-size"),
                (("--trace-size", "0"), "--trace-size"),
                (("--hosts", "/proc/self/mem"), "/proc/self/mem: cannot be read"),
                (("--hosts", "/dev/null"), "/dev/null: cannot be read, or is not a regular file"),
                (("--probe-interval", "0"), "--probe-interval"),
                (("--json",), "--status"),
                (("--no-such-option",), "--no-such-option"),
            )
            for arguments, reason in cases:
                with self.subTest(arguments=arguments):
                    status, said = leaves(*SERVER, *arguments)
                    self.assertEqual(status, 2, said)
                    self.assertIn(reason, said.splitlines()[-1])
                    self.assertIn("error", said.splitlines()[-1])

    def test_check_validates_says_what_would_run_and_leaves(self):
        status, said = leaves(*SERVER, "--map", "A.example=192.0.2.1", "--map", "a.example.=192.0.2.2", "--check")
        self.assertEqual(status, 0, said)
        self.assertIn("a.example: 192.0.2.1", said)
        self.assertIn("wins over 192.0.2.2", said)
        self.assertIn("upstream servers: 127.0.0.2\n", said)
        self.assertIn("static names: 1\n", said)
        self.assertIn("everything is in order", said)

    def test_check_leaves_the_trace_file_alone(self):
        with tempfile.TemporaryDirectory() as folder:
            status, said = leaves(*SERVER, "--trace", folder + "/trace", "--check")
            self.assertEqual((status, os.listdir(folder)), (0, []), said)
            path = pathlib.Path(folder, "trace")
            path.write_text("old\n")
            status, said = leaves(*SERVER, "--trace", path, "--check")
            self.assertEqual((status, path.read_text()), (0, "old\n"), said)
            path.unlink()

    def test_check_looks_at_the_socket_and_leaves_nothing(self):
        with tempfile.TemporaryDirectory() as folder:
            path = folder + "/status"
            status, said = leaves(*SERVER, "--socket", path, "--check")
            self.assertEqual((status, os.listdir(folder)), (0, []), said)
            for bad in (folder + "/none/status", folder + "/" + "x" * 200):
                status, said = leaves(*SERVER, "--socket", bad, "--check")
                self.assertEqual(status, 1, said)
                self.assertIn("error: --socket " + bad, said)

    @hosting.linux_only
    def test_files_are_read_with_the_rights_that_the_host_keeps(self):
        if not hosting.has_all_users():
            self.skipTest("only root exists in this namespace")
        # What root could read at the start alone could not be read again.
        with tempfile.NamedTemporaryFile("w") as hosts:
            os.chown(hosts.name, 1, 1)
            status, said = leaves(*SERVER, "--hosts", hosts.name, "--check")
        self.assertEqual(status, 2, said)
        self.assertIn("cannot be read", said)

    def test_bad_input_is_told_before_a_port_that_is_taken(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
            sock.bind(("127.0.0.1", 53))
            self.assertEqual(leaves(*SERVER, "--map", "name")[0], 2)

    def test_version_and_help_go_to_standard_output(self):
        for option, text in (("--version", "dns_proxy_host 1."), ("--help", "--map")):
            done = subprocess.run([hosting.HOST, option], capture_output=True, text=True)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            self.assertIn(text, done.stdout)


class Port(hosting.TestCase):
    @hosting.linux_only
    def test_port_taken_names_who_has_it(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
            sock.bind(("0.0.0.0", 53))
            status, said = leaves(*SERVER)
        self.assertEqual(status, 3)
        self.assertIn("UDP 127.0.0.1 port 53: taken by python3", said)
        self.assertIn(f"(process {os.getpid()})", said)

    def test_second_host_fails_and_does_not_disturb_the_first(self):
        with Host(*SERVER, "--map", "a.example=192.0.2.1") as host:
            host.serving()
            child = host.child()
            status, said = leaves(*SERVER, "--socket", host.socket)
            self.assertEqual(status, 3, said)
            self.assertIn("taken; ask with" if hosting.FOR_MACOS else "taken by dns_proxy_host", said)
            self.assertEqual(resolve("a.example"), "192.0.2.1")
            self.assertEqual((host.child(), host.restarts()), (child, 0))

    def test_no_privilege_says_what_to_do(self):
        if not hosting.has_all_users():
            self.skipTest("only root exists in this namespace")
        as_nobody = {"preexec_fn": lambda: os.setuid(65534), "cwd": "/"}
        # A copy: the build may be in a folder that only its owner can enter. What runs a program for macOS stays there.
        if hosting.FOR_MACOS and subprocess.run(["test", "-x", hosting.HOST], **as_nobody).returncode != 0:
            self.skipTest("the build is in a folder that only its owner can enter")
        with tempfile.TemporaryDirectory() as folder:
            os.chmod(folder, 0o755)
            host = shutil.copy(hosting.HOST, folder)
            done = subprocess.run(
                [host, *SERVER], **as_nobody,
                capture_output=True, text=True, timeout=hosting.PATIENCE,
            )
        self.assertEqual(done.returncode, 4, done.stderr)
        self.assertIn("launchd daemon" if hosting.FOR_MACOS else "CAP_NET_BIND_SERVICE", done.stderr)

    def test_user_that_does_not_exist_in_the_namespace_is_named(self):
        if hosting.has_all_users():
            command = ["unshare", "--user", "--map-root-user", "--net",
                       "sh", "-c", 'ip link set lo up && exec "$@"', "sh"]
            if subprocess.run(command + ["true"], stderr=subprocess.DEVNULL).returncode != 0:
                self.skipTest("no user namespaces")
        else:
            command = []
        done = subprocess.run(
            command + [hosting.HOST, *SERVER, "--user", "nobody"],
            capture_output=True, text=True, timeout=hosting.PATIENCE,
        )
        self.assertEqual(done.returncode, 4, done.stderr)
        self.assertIn("cannot run as 'nobody'", done.stderr)

    def test_port_cannot_be_taken_while_the_service_is_away(self):
        with Host(*SERVER, "--map", "a.example=192.0.2.1") as host:
            host.serving()
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as thief:
                os.kill(host.child(), signal.SIGKILL)
                tried = 0
                while host.restarts() == 0 or not host.answers() or tried < 1000:
                    with self.assertRaises(OSError):
                        thief.bind(("127.0.0.1", 53))
                    tried += 1
            self.assertEqual(resolve("a.example"), "192.0.2.1")


class Surroundings(hosting.TestCase):
    def test_descriptors_of_the_starting_process_do_not_keep_the_sockets_out_of_select(self):
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        wanted = 1100 if hard == resource.RLIM_INFINITY else min(hard, 4096)
        if wanted < 1100:
            self.skipTest("too few descriptors allowed")
        resource.setrlimit(resource.RLIMIT_NOFILE, (max(soft, wanted), hard))
        files = [os.open("/dev/null", os.O_RDONLY) for _ in range(1050)]
        try:
            for fd in files:
                os.set_inheritable(fd, True)
            with Host(*SERVER, "--map", "a.example=192.0.2.1", close_fds=False) as host:
                host.serving()
                self.assertEqual(resolve("a.example"), "192.0.2.1")
                numbers = [int(path.name) for path in pathlib.Path(f"/proc/{host.child()}/fd").iterdir()]
                self.assertLess(max(numbers), 16)
        finally:
            for fd in files:
                os.close(fd)

    def test_descriptor_above_the_limit_that_the_host_is_started_with_is_closed(self):
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        if hard != resource.RLIM_INFINITY and hard < 1600:
            self.skipTest("too few descriptors allowed")

        def high():
            resource.setrlimit(resource.RLIMIT_NOFILE, (1600, hard))
            fcntl.fcntl(0, fcntl.F_DUPFD, 1500)
            resource.setrlimit(resource.RLIMIT_NOFILE, (1024, hard))

        with Host(*SERVER, close_fds=False, preexec_fn=high) as host:
            host.serving()
            for process in (host.process.pid, host.child()):
                numbers = [int(path.name) for path in pathlib.Path(f"/proc/{process}/fd").iterdir()]
                self.assertLess(max(numbers), 16)

    def test_closed_standard_descriptors_are_filled(self):
        with Host(*SERVER, "--map", "a.example=192.0.2.1", preexec_fn=lambda: (os.close(0), os.close(1))) as host:
            host.serving()
            self.assertEqual(resolve("a.example"), "192.0.2.1")
            self.assertEqual(os.readlink(f"/proc/{host.child()}/fd/1"), "/dev/null")

    @hosting.linux_only
    def test_thread_stacks_stay_below_what_the_second_wait_can_take(self):
        def large():
            resource.setrlimit(resource.RLIMIT_STACK, (64 * 1024 * 1024, resource.getrlimit(resource.RLIMIT_STACK)[1]))

        self.upstream("127.0.0.2")
        with Host(*SERVER, "--unguarded", preexec_fn=large) as host:
            host.serving()
            child = host.child()
            limits = pathlib.Path(f"/proc/{child}/limits").read_text()
            self.assertRegex(limits, r"Max stack size +67108864")
            # Between two guard pages that nobody may touch lies a thread's stack.
            stacks = []
            for line in pathlib.Path(f"/proc/{child}/maps").read_text().splitlines():
                fields = line.split()
                begin, end = (int(part, 16) for part in fields[0].split("-"))
                if len(fields) == 5 and fields[1] == "rw-p":
                    stacks.append(end - begin)
            if not hosting.SANITIZED:
                self.assertLess(max(stacks), 40 * 1024 * 1024)
            hosting.ask("runt.example", tries=1, wait=0.2)
            wait_for(lambda: host.restarts() == 1, "a restart")
            self.assertIn("answer thread ended", host.status()["last_restarts"][0]["why"])

    @hosting.linux_only
    def test_journal_gets_levels_as_it_knows_them_and_no_second_time(self):
        reader, writer = os.pipe()
        with open(reader, encoding="ascii") as lines, open(writer, "w", encoding="ascii") as log:
            file = os.fstat(log.fileno())

            def said(stream):
                environment = {**os.environ, "JOURNAL_STREAM": stream}
                command = [hosting.HOST, *SERVER, "--map", "a=192.0.2.1", "--map", "a=192.0.2.1", "--check"]
                subprocess.run(command, stderr=log, env=environment, check=True)
                return [lines.readline() for _ in range(4)]

            warning, *others = said(f"{file.st_dev}:{file.st_ino}")
            self.assertTrue(warning.startswith("<4>given twice"), warning)
            texts = ("static names: 1", "upstream servers: 127.0.0.2", "everything is in order")
            self.assertEqual(others, [f"<6>{text}\n" for text in texts])
            # A parent's journal that this error output is not.
            for line in said(f"{file.st_dev}:{file.st_ino + 1}"):
                self.assertRegex(line, r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ dns_proxy_host (info|warning): ")

    def test_blocked_signals_are_let_through(self):
        def block():
            signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGTERM, signal.SIGCHLD})

        with Host(*SERVER, preexec_fn=block) as host:
            host.serving()
            self.assertEqual(host.stop()[0], 0)


class Manners(hosting.TestCase):
    def test_term_and_interrupt_stop_everything_and_leave_nothing(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(signal=number), Host(*SERVER) as host:
                host.serving()
                child = host.child()
                began = time.monotonic()
                host.process.send_signal(number)
                self.assertEqual(host.process.wait(hosting.PATIENCE), 0)
                print(f"  stopped in {time.monotonic() - began:.3f} s")
                self.assertFalse(os.path.exists(f"/proc/{child}"))
                self.assertFalse(os.path.exists(host.socket))
                with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
                    sock.bind(("127.0.0.1", 53))

    def test_stops_within_a_second(self):
        if hosting.SANITIZED:
            self.skipTest("timing under a sanitizer means nothing")
        with Host(*SERVER) as host:
            host.serving()
            self.assertLess(host.stop()[1], 1.0)

    def test_manager_is_told_when_it_serves_and_when_it_stops(self):
        for path in ("file", "@dns-proxy-host-test"):
            with self.subTest(path=path), tempfile.TemporaryDirectory() as folder:
                address = path if path[0] == "@" else folder + "/notify"
                with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
                    manager.bind(address.replace("@", "\0"))
                    manager.settimeout(hosting.PATIENCE)
                    with Host(*SERVER, environment={"NOTIFY_SOCKET": address}, user=USER[1] if USER else None) as host:
                        self.assertEqual(manager.recv(100), b"READY=1")
                        self.assertTrue(host.answers())
                        host.stop()
                        self.assertEqual(manager.recv(100), b"STOPPING=1")

    def test_terminal_that_nobody_reads_holds_nothing_up(self):
        reader, terminal = os.openpty()
        with Host(*SERVER, "--map", "a.example=192.0.2.1", "--trace", "-", stdout=terminal, stderr=terminal) as host:
            os.close(terminal)
            host.serving()
            for _ in range(300):  # several times what a terminal holds
                host.hang_up()
                self.assertEqual(resolve("a.example"), "192.0.2.1")
            self.assertEqual(host.restarts(), 0)
            os.kill(host.child(), signal.SIGKILL)
            self.assertEqual(resolve("a.example"), "192.0.2.1")
            self.assertEqual(host.stop()[0], 0)
        os.close(reader)

    def test_own_messages_have_time_and_level(self):
        with Host(*SERVER) as host:
            host.serving()
            for line in host.log().splitlines():
                self.assertRegex(line, r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ dns_proxy_host (info|warning|error): .+")

    def test_hang_up_reads_the_hosts_file_again_and_keeps_the_old_names_if_it_is_bad(self):
        with tempfile.NamedTemporaryFile("w") as hosts:
            def write(text):
                pathlib.Path(hosts.name).write_text(text)
                os.chmod(hosts.name, 0o644)

            write("192.0.2.1 a.example\n")
            with Host(*SERVER, "--hosts", hosts.name) as host:
                host.serving()
                self.assertEqual(resolve("a.example"), "192.0.2.1")
                write("192.0.2.2 a.example\n")
                host.hang_up()
                wait_for(lambda: resolve("a.example", wait=0.2) == "192.0.2.2", "the new address")
                restarts = host.restarts()
                write("nonsense\n")
                host.hang_up()
                wait_for(lambda: "runs on with the names that it has" in host.log(), "a line about it")
                host.hang_up()  # nothing has changed: nothing is restarted
                self.assertEqual(resolve("a.example"), "192.0.2.2")
                self.assertEqual(host.restarts(), restarts)


if __name__ == "__main__":
    hosting.main()
