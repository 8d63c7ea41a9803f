#!/usr/bin/env python3
"""One measured program in a network namespace of its own, with responder and load (see measure.py).

usage: unshare --user --map-root-user --net cell.py PROGRAMS SUBJECT TRACE FOLDER

  PROGRAMS   the folder of the programs
  SUBJECT    bare_echo, bare_relay, service or dns_proxy_host
  TRACE      where standard output goes: none (as null, and the bare loops print nothing), null,
             file (in FOLDER), large-file (the same, 64 KiB a write), pipe, terminal, off (the
             service's printf is refused; dns_proxy_host knows no other)

Reads commands from standard input, a line each, and answers with a line of JSON; ends, and its
processes with it, when its input does:

  load NAME QUERIES WINDOW   processor time of the subject for QUERIES answered queries
  pend QUERIES               QUERIES that the responder never answers
  memory                     of the subject
  restart                    the subject anew
  dnsperf SECONDS WINDOW     the same load from dnsperf
  trace                      the different lines in the trace file, identifiers and line numbers
                             as N; what was loaded last is still in the subject's buffer
"""

import ctypes
import json
import os
import pathlib
import pty
import re
import signal
import subprocess
import sys
import time
import tty

PR_SET_PDEATHSIG = 1
MAPPED_NAME = "intranet.example.com"

# As many names as service.cpp has. The namespace knows no other user than root.
HOST_OPTIONS = ["--user", "root", "--server", "127.0.0.2", "--map", f"{MAPPED_NAME}=10.1.2.3"] + [
    option for i in range(1, 100) for option in ("--map", f"host{i}.example.com=192.0.2.1")]


def child_setup(processor):
    """What a child does before it becomes its program: dies with the cell, keeps to a processor."""
    def run():
        ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
        if (os.cpu_count() or 1) > 1:
            os.sched_setaffinity(0, {processor})
    return run


class Cell:
    def __init__(self, programs, subject, trace, folder):
        self.programs = pathlib.Path(programs)
        self.subject_name = subject
        self.trace = trace
        self.into_file = trace in ("file", "large-file")
        self.folder = pathlib.Path(folder)
        self.trace_file = self.folder / f"{subject}-{os.getpid()}.trace"
        self.processors = sorted(os.sched_getaffinity(0))
        self.children = []
        self.subject = None
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
        self.start([str(self.programs / "responder")], 1)
        self.restart()

    def start(self, command, processor, **streams):
        processor = self.processors[processor % len(self.processors)]
        child = subprocess.Popen(command, preexec_fn=child_setup(processor),
                                 **({"stdin": subprocess.DEVNULL} | streams))
        self.children.append(child)
        return child

    def restart(self):
        if self.subject is not None:
            self.children.remove(self.subject)
            self.subject.kill()
            self.subject.wait()
        command = [str(self.programs / self.subject_name)]
        if self.subject_name == "dns_proxy_host":
            command += HOST_OPTIONS
        elif self.trace == "off":
            command.append("--trace-off")
        elif self.trace == "large-file":
            command.append("--large-buffer")
        elif self.trace != "none" and self.subject_name != "service":
            command.append("--trace")

        if self.into_file:
            output = os.open(self.trace_file, os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o600)
        elif self.trace == "pipe":
            reading, output = os.pipe()
            self.start(["cat"], 1, stdin=reading, stdout=subprocess.DEVNULL)
            os.close(reading)
        elif self.trace == "terminal":
            reading, output = pty.openpty()
            tty.setraw(output)
            self.start(["cat"], 1, stdin=reading, stdout=subprocess.DEVNULL)
            os.close(reading)
        else:
            output = os.open(os.devnull, os.O_WRONLY)
        self.subject = self.start(command, 0, stdout=output)
        os.close(output)

        for _ in range(200):
            if self.run_load(MAPPED_NAME, 1, 1, check=False) is not None:
                return
            time.sleep(0.01)
        raise RuntimeError(f"{self.subject_name} does not answer")

    def run_load(self, name, queries, window, check=True):
        """(seconds passed, seconds of the load's own processor time); None when it failed."""
        command = [str(self.programs / "load"), name, str(queries), str(window)]
        child = self.start(command, 1, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        output, error = child.communicate(timeout=120)
        self.children.remove(child)
        if child.returncode != 0:
            if check:
                raise RuntimeError(f"{self.subject_name}, {name}: {error.strip()}")
            return None
        return [float(field) for field in output.split()]

    def processes(self):
        """The subject and its children: a host has the service in one."""
        own = self.subject.pid
        children = pathlib.Path(f"/proc/{own}/task/{own}/children").read_text().split()
        return [own, *map(int, children)]

    def processor_seconds(self):
        """What all threads of the subject have used, by the clocks of its processes."""
        return sum(time.clock_gettime((~process << 3) | 2) for process in self.processes())

    def statistics(self):
        """(page faults, seconds in user mode, seconds in the kernel) of the subject."""
        sums = [0, 0, 0]
        for process in self.processes():
            text = pathlib.Path(f"/proc/{process}/stat").read_text()
            fields = text.rsplit(")", 1)[1].split()
            sums = [total + int(fields[i]) for total, i in zip(sums, (7, 11, 12))]
        ticks = os.sysconf("SC_CLK_TCK")
        return sums[0], sums[1] / ticks, sums[2] / ticks

    def load(self, name, queries, window):
        if self.into_file:
            os.truncate(self.trace_file, 0)
        processes = self.processes()
        faults, user, system = self.statistics()
        used = self.processor_seconds()
        seconds, own = self.run_load(name, queries, window)
        used = self.processor_seconds() - used
        if self.processes() != processes:
            raise RuntimeError(f"{self.subject_name} has started its service again")
        faults_after, user_after, system_after = self.statistics()
        result = {
            "queries": int(queries), "processor": used, "passed": seconds, "load_processor": own,
            "faults": faults_after - faults,
            "user": user_after - user, "system": system_after - system}
        if self.into_file:
            result["trace_bytes"] = self.trace_file.stat().st_size
        return result

    def pend(self, queries):
        self.run_load("silent.example.org", queries, "silent")
        return {}

    def memory(self):
        text = pathlib.Path(f"/proc/{self.subject.pid}/status").read_text()
        kib = {key: int(value) for key, value in re.findall(r"^(\w+):\s+(\d+) kB$", text, re.M)}
        return {"resident": kib["VmRSS"] * 1024, "anonymous": kib["RssAnon"] * 1024}

    def dnsperf(self, seconds, window):
        data = self.folder / f"questions-{os.getpid()}"
        data.write_text(f"{MAPPED_NAME} A\n")
        used = self.processor_seconds()
        child = self.start(
            ["dnsperf", "-s", "127.0.0.1", "-d", str(data), "-l", seconds, "-q", window,
             "-c", "1", "-T", "1"], 1,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        output, _ = child.communicate(timeout=60)
        used = self.processor_seconds() - used
        self.children.remove(child)
        data.unlink()
        completed = re.search(r"Queries completed:\s+(\d+)", output)
        passed = re.search(r"Run time \(s\):\s+([\d.]+)", output)
        if child.returncode != 0 or completed is None or passed is None:
            raise RuntimeError(f"dnsperf: {output}")
        return {"queries": int(completed[1]), "passed": float(passed[1]), "processor": used}

    def trace_lines(self):
        lines = self.trace_file.read_text().split("\n")[1:-1]  # the ends may be parts of lines
        return {"lines": sorted({re.sub(r"(line:|id: ?)\d+", r"\1N", line) for line in lines})}

    def obey(self, line):
        command, *arguments = line.split()
        actions = {"load": self.load, "pend": self.pend, "memory": self.memory,
                   "restart": self.restart, "dnsperf": self.dnsperf,
                   "trace": self.trace_lines}
        return actions[command](*arguments) or {}

    def end(self):
        for child in self.children:
            child.kill()
            child.wait()
        self.trace_file.unlink(missing_ok=True)


def main():
    cell = Cell(*sys.argv[1:5])
    try:
        print(json.dumps({"ready": True}), flush=True)
        for line in sys.stdin:
            print(json.dumps(cell.obey(line)), flush=True)
    finally:
        cell.end()


if __name__ == "__main__":
    main()
