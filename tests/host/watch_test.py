"""--status --watch: the live page as somebody at a terminal sees it (tmux), and without one."""

import os
import re
import signal
import subprocess
import tempfile
import time

import hosting
from hosting import Host, resolve, wait_for

NAMES = ("--server", "127.0.0.2", "--map", "a.example=192.0.2.1")


class Terminal:
    """A shell in a terminal of tmux's. `with` ends it."""

    def __init__(self, columns=80, rows=30, **environment):
        self.folder = tempfile.TemporaryDirectory()
        self._tmux("-u", "-f", "/dev/null", "new-session", "-d", "-x", str(columns), "-y", str(rows),
                   "bash", "--norc", "--noprofile", "-i", LC_ALL="C.UTF-8", PS1="$ ", **environment)

    def _tmux(self, *arguments, **environment):
        return subprocess.run(["tmux", "-S", self.folder.name + "/socket", *arguments], check=True, text=True,
                              capture_output=True, env=dict(os.environ, **environment)).stdout

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._tmux("kill-server")
        self.folder.cleanup()

    def type(self, text):
        self._tmux("send-keys", "-l", text)

    def press(self, key):
        self._tmux("send-keys", key)

    def resize(self, columns, rows):
        self._tmux("resize-window", "-x", str(columns), "-y", str(rows))

    def screen(self, *options):
        return self._tmux("capture-pane", "-p", *options).rstrip("\n")

    def state(self):
        """Which of its two screens it shows, and whether it shows a cursor."""
        return self._tmux("display-message", "-p", "#{alternate_on} #{cursor_flag}").strip()

    def process(self):
        """The first process that the shell runs."""
        shell = self._tmux("display-message", "-p", "#{pane_pid}").strip()
        with open(f"/proc/{shell}/task/{shell}/children") as children:
            return int(children.read().split()[0])

    def sees(self, pattern):
        try:
            return wait_for(lambda: re.search(pattern, self.screen(), re.M), pattern)
        except AssertionError:
            print(self.screen())  # what it sees instead
            raise

    def run(self, command):
        self.type(command + "\n")

    def modes(self):
        """What stty says, asked at the shell's prompt."""
        path = self.folder.name + "/modes"
        self.run(f"stty -a >{path}.new; mv {path}.new {path}")
        wait_for(lambda: os.path.exists(path), "the shell's prompt")
        with open(path) as file:
            modes = file.read()
        os.unlink(path)
        return modes


class Page(hosting.TestCase):
    def watch(self, host, seconds="0.2"):
        return f"{hosting.HOST} --status --watch {seconds} --socket {host.socket}; echo left with $?"

    def test_shows_what_happens_at_80_columns_and_at_120(self):
        self.upstream("127.0.0.2")
        with Host(*NAMES) as host, Terminal(80) as terminal:
            host.serving()
            hosting.send(b"\0" * 5)
            terminal.run(self.watch(host))
            terminal.sees(r"^serving for \d+ s$")
            for _ in range(20):
                resolve("a.example")
            resolve("b.example")
            for wanted in (r"^(?=.{80}$) +\d+\.\d a second  +[▁▂▃▄▅▆▇█]+$",
                           r"^queries +21 +21  in the last \d+ s$",
                           r"^  static name +20 +95 % +20  █{30}$",
                           r"^  127\.0\.0\.2 +1 +5 % +1  █$",
                           r"^  short query +1 100 %",
                           r"^  127\.0\.0\.2 +alive +\d+ ms  +[▁▂▃▄▅▆▇█]+$",
                           r"^restarts +0$",
                           r"^p pauses, q leaves$"):
                terminal.sees(wanted)
            os.kill(host.child(), signal.SIGKILL)
            terminal.sees(r"^  started again \d+ s ago: service was ended by signal 9$")
            terminal.resize(120, 30)
            terminal.sees(r"^  static name +20 +95 % +20  █{68}$")
            # What is narrower cuts lines off: there are as many as before.
            lines = len(terminal.screen().splitlines())
            terminal.resize(40, 30)
            terminal.sees(r"^(?=.{40}$)  started again \d+ s ago: service was .*9$")
            self.assertEqual(len(terminal.screen().splitlines()), lines)
            self.assertNotIn("\x1b[3", re.sub(r"\x1b\[3[126]m|\x1b\[39m", "", terminal.screen("-e")))
            self.assertIn("\x1b[32mserving", terminal.screen("-e"))

    def test_p_pauses_and_q_leaves(self):
        with Host(*NAMES) as host, Terminal(NO_COLOR="1") as terminal:
            host.serving()
            terminal.run(self.watch(host))
            terminal.sees("^queries +0$")
            terminal.type("p")
            terminal.sees("^paused: p goes on, q leaves$")
            resolve("a.example")
            paused = terminal.screen()
            time.sleep(0.5)  # more than two renewals
            self.assertEqual(terminal.screen(), paused)
            terminal.type("p")
            terminal.sees("^queries +1 ")
            self.assertNotRegex(terminal.screen("-e"), "\x1b\\[[0-9;]*m", "no colour is wanted")
            terminal.type("q")
            terminal.sees("^left with 0$")

    def test_leaves_the_terminal_as_it_was_whatever_ends_it(self):
        with Host(*NAMES) as host, Terminal() as terminal:
            host.serving()
            before, modes = terminal.state(), terminal.modes()
            for end in ("q", "C-c", "C-\\", signal.SIGTERM, signal.SIGHUP):
                with self.subTest(end=end):
                    terminal.run("clear; echo this was here before")
                    terminal.run(self.watch(host))
                    terminal.sees("^serving for")
                    self.assertNotEqual(terminal.state(), before)
                    if isinstance(end, str):
                        terminal.press(end)
                    else:
                        os.kill(terminal.process(), end)
                    terminal.sees("^left with 0$")
                    self.assertIn("this was here before", terminal.screen())
                    self.assertNotIn("serving for", terminal.screen())
                    self.assertEqual((terminal.state(), terminal.modes()), (before, modes))

    def test_can_be_suspended_and_goes_on(self):
        with Host(*NAMES) as host, Terminal() as terminal:
            host.serving()
            before, modes = terminal.state(), terminal.modes()
            terminal.run(self.watch(host))
            terminal.sees("^serving for")
            terminal.press("C-z")
            terminal.sees("Stopped")
            self.assertEqual((terminal.state(), terminal.modes()), (before, modes))
            terminal.run("fg")
            terminal.sees("^serving for")
            terminal.type("q")
            wait_for(lambda: terminal.state() == before, "the first screen")
            self.assertEqual(terminal.modes(), modes)

    def test_host_that_stops_is_waited_for(self):
        with tempfile.TemporaryDirectory() as folder, Terminal() as terminal:
            with Host(*NAMES, status_at=folder + "/status") as host:
                host.serving()
                resolve("a.example")
                terminal.run(self.watch(host))
                terminal.sees("^queries +1$|^queries +1 ")
            terminal.sees("^no host answers; the last one said:$")
            terminal.sees("^queries +1$")
            with Host(*NAMES, status_at=folder + "/status") as host:
                host.serving()
                terminal.sees(f"^host process {host.process.pid}, ")
                self.assertNotIn("no host answers", terminal.screen())
                terminal.sees("^queries +0$")

    def test_without_a_terminal_it_is_a_line_each_time(self):
        with Host(*NAMES) as host:
            host.serving()
            with subprocess.Popen([hosting.HOST, "--status", "--watch", "0.1", "--socket", host.socket],
                                  stdout=subprocess.PIPE, text=True) as watch:
                try:
                    lines = [watch.stdout.readline() for _ in range(2)]
                    host.stop()
                    wait_for(lambda: watch.stdout.readline().endswith("Z no host answers\n"), "that nobody answers")
                finally:
                    watch.terminate()
            for line in lines:
                self.assertRegex(line, r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ serving, \d+\.\d queries a second, 0 waiting, "
                                       r"127\.0\.0\.2 .*, 0 kept away, 0 restarts\n$")


if __name__ == "__main__":
    hosting.main("tmux")
