#!/usr/bin/env python3
"""Measures the service against bare loops that do the same system calls and nothing else.

usage: measure.py PROGRAMS RESULTS [--quick | --smoke]

  PROGRAMS   the folder of the programs (a Release build)
  RESULTS    the JSON file to write
  --quick    a quarter of the time
  --smoke    one round of a few queries: shows that all works, and measures nothing

Every measured program runs in a network namespace of its own (cell.py) on one processor; load and
responder run on another. All of them stay up, one has load at a time, and rounds are interleaved:
what disturbs the machine for a while disturbs all. What counts is processor time by the clock of
the measured process. Exit status 77 when the machine does not allow the namespaces.
"""

import datetime
import json
import os
import pathlib
import platform
import re
import shutil
import subprocess
import sys
import tempfile
import time

SKIPPED = 77

HOST_MAP = ("host-map", "intranet.example.com")
FORWARD = ("forward", "www.example.org")

# name: (program, where its trace goes, what it is asked)
SUBJECTS = {
    "echo": ("bare_echo", "none", [HOST_MAP]),
    "echo-traced": ("bare_echo", "null", [HOST_MAP]),
    "relay": ("bare_relay", "none", [FORWARD]),
    "relay-traced": ("bare_relay", "null", [FORWARD]),
    "service": ("service", "null", [HOST_MAP, FORWARD]),
    "service-off": ("service", "off", [HOST_MAP, FORWARD]),
    "service-file": ("service", "file", [HOST_MAP, FORWARD]),
    "service-large-file": ("service", "large-file", [HOST_MAP, FORWARD]),
    "service-pipe": ("service", "pipe", [HOST_MAP, FORWARD]),
    "service-terminal": ("service", "terminal", [HOST_MAP, FORWARD]),
    "host": ("dns_proxy_host", "off", [HOST_MAP, FORWARD]),
}

QUERIES = 20000  # a round
WINDOW = 32  # queries on their way at a time

# 60,000 pending, the queries that show their arrival (one for 64), warm-up and load have to fit
# into 65,536 identifiers.
PENDING_LEVELS = [0, 1000, 10000, 60000]
PENDING_WARM_UP = 300
PENDING_QUERIES = 4000


class Cell:
    def __init__(self, programs, subject, trace, folder):
        self.process = subprocess.Popen(
            ["unshare", "--user", "--map-root-user", "--net", sys.executable,
             str(pathlib.Path(__file__).with_name("cell.py")), str(programs), subject, trace,
             folder],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.answer()

    def answer(self):
        line = self.process.stdout.readline()
        if not line:
            raise RuntimeError("a cell has ended, see above")
        return json.loads(line)

    def ask(self, *words):
        self.process.stdin.write(" ".join(str(word) for word in words) + "\n")
        self.process.stdin.flush()
        return self.answer()

    def close(self):
        self.process.stdin.close()
        self.process.wait(timeout=30)


def rounds_for(seconds, least):
    """Counts rounds from 0 until so many seconds have passed, at least so many rounds."""
    began = time.monotonic()
    number = 0
    while number < least or time.monotonic() - began < seconds:
        yield number
        number += 1


def measure_ratios(cells, seconds, queries):
    """{subject: {work: [a round's figures]}}; the first round warms up and is not kept."""
    results = {name: {work: [] for work, _ in SUBJECTS[name][2]} for name in SUBJECTS}
    order = list(SUBJECTS)
    for number in rounds_for(seconds, 5 if seconds else 2):
        for name in order:
            for work, question in SUBJECTS[name][2]:
                figures = cells[name].ask("load", question, queries, WINDOW)
                if number > 0:
                    results[name][work].append(figures)
        order = order[1:] + order[:1]
    return results


def measure_pending(cell, seconds, scale):
    """{level: [a round's figures]}: each on a service of its own that was just started."""
    results = {level: [] for level in PENDING_LEVELS}
    for _ in rounds_for(seconds, 3 if seconds else 1):
        for level in PENDING_LEVELS:
            cell.ask("restart")
            before = cell.ask("memory")
            if level:
                cell.ask("pend", level // scale)
            after = cell.ask("memory")
            cell.ask("load", FORWARD[1], PENDING_WARM_UP, WINDOW)
            figures = cell.ask("load", FORWARD[1], PENDING_QUERIES // scale, WINDOW)
            results[level].append(figures | {"memory_before": before, "memory": after})
    return results


def measure_generators(cell, smoke):
    """Who keeps the bare loop busy: ours or dnsperf."""
    ours = cell.ask("load", HOST_MAP[1], 2000 if smoke else 50000, WINDOW)
    if shutil.which("dnsperf") is None:
        return {"load": ours}
    return {"load": ours, "dnsperf": cell.ask("dnsperf", 1, 100)}


def machine():
    model = re.search(r"^model name\s*:\s*(.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.M)
    return {
        "processor": model[1] if model else platform.processor(),
        "processors": os.cpu_count(),
        "system": f"{platform.system()} {platform.release()}",
        "c_library": " ".join(platform.libc_ver()),
        "date": datetime.date.today().isoformat(),
        "load_average": os.getloadavg()[0],
    }


def namespaces_allowed():
    return subprocess.run(["unshare", "--user", "--map-root-user", "--net", "ip", "link"],
                          capture_output=True, check=False).returncode == 0


def main():
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    programs, results_file = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2])
    smoke, quick = "--smoke" in sys.argv, "--quick" in sys.argv
    if platform.system() != "Linux" or not namespaces_allowed():
        print("skipped: needs network namespaces")
        return SKIPPED
    scale = 100 if smoke else 1
    seconds = 0 if smoke else 25 if quick else 100
    queries = QUERIES // scale

    results = {"machine": machine(), "queries": queries, "window": WINDOW}
    with tempfile.TemporaryDirectory(dir=results_file.resolve().parent) as folder:
        cells = {}
        try:
            for name, (program, trace, _) in SUBJECTS.items():
                cells[name] = Cell(programs, program, trace, folder)
            results["idle_memory"] = cells["service"].ask("memory")
            results["generators"] = measure_generators(cells["echo"], smoke)
            results["loads"] = measure_ratios(cells, seconds, queries)
            results["rounds"] = len(results["loads"]["echo"]["host-map"])
            results["pending"] = measure_pending(cells["service"], seconds / 2, scale)
        finally:
            for cell in cells.values():
                cell.close()
    results_file.write_text(json.dumps(results, indent=1) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
