#!/usr/bin/env python3
"""Instructions outside the kernel that one query costs, by callgrind, in all and by function.

usage: count.py DRIVER COMPILER [--functions N] [--json FILE]
                [--record FILE | --compare FILE | --check FILE]

  DRIVER, COMPILER  the program to count in (driver.cpp), and what it was compiled with
  --functions N     how many functions of each workload to print (default 12, 0: none)
  --json FILE       also write the counts there
  --record FILE     write the counts there as those to compare with
  --compare FILE    print the recorded counts beside
  --check FILE      the same; exit status 1, and the functions that grew, when a workload takes more
                    than 3 % more than recorded; 77 when there is no valgrind or the counts were
                    recorded with another compiler or C library

The counts repeat from run to run. They belong to a compiler and a C library: most
of them are printf's.
"""

import argparse
import json
import pathlib
import platform
import re
import shutil
import subprocess
import sys
import tempfile

PASSES = 1000
TOLERANCE = 0.03  # growth over the recorded count that a check accepts
SKIPPED = 77

# What DRIVER can run, in its words, and the count to reach.
WORKLOADS = {
    "host-map": ("host-map answer", 11000),
    "forward-miss": ("forward after a miss, with its answer", 18000),
    "forward": ("forward without a host map, with its answer", None),
    "relayed-answer": ("relayed answer alone", None),
    "no-such-name": ("no such name (reverse look-up)", None),
}


class Profile:
    """Cost by function, from callgrind's file: `inclusive` with all that it calls, `attributed`
    with what it calls outside the program (the C and C++ libraries), which sum to the total."""

    def __init__(self, path, program):
        self.own = {}  # (object, function) -> cost of its own instructions
        self.calls = {}  # (object, function) -> {(object, function): inclusive cost}
        self._read(path)
        inside = lambda node: node[0] == program and not node[1].startswith("std::")
        self.total = sum(self.own.values())
        self.inclusive = {}
        self.attributed = {}
        self.library = {}  # what of the libraries the program calls itself -> inclusive cost
        nodes = set(self.own) | set(self.calls)
        for node in filter(inside, nodes):
            name = node[1]
            callees = self.calls.get(node, {})
            cost = self.own.get(node, 0)
            everything = cost + sum(callees.values())
            if "'" not in name:  # "f'2" is f called by itself: already in the cost of f
                self.inclusive[name] = everything
            for callee, callee_cost in callees.items():
                if not inside(callee):
                    cost += callee_cost
                    self.library[callee[1]] = self.library.get(callee[1], 0) + callee_cost
            base = name.split("'")[0]
            self.attributed[base] = self.attributed.get(base, 0) + cost

    def own_of(self, name):
        """Its own instructions alone, at every depth of recursion."""
        return sum(cost for (_, other), cost in self.own.items() if other.split("'")[0] == name)

    def _read(self, path):
        current_object = function = called_object = called = None
        in_call = False
        for line in path.read_text().splitlines():
            key, equals, value = line.partition("=")
            if line[:1].isdigit():
                cost = int(line.split()[1])
                if in_call:
                    costs = self.calls.setdefault((current_object, function), {})
                    callee = (called_object or current_object, called)
                    costs[callee] = costs.get(callee, 0) + cost
                    in_call, called_object = False, None
                else:
                    node = (current_object, function)
                    self.own[node] = self.own.get(node, 0) + cost
            elif not equals:
                continue
            elif key == "ob":
                current_object = value
            elif key == "fn":
                function = value
            elif key == "cob":
                called_object = value
            elif key == "cfn":
                called = value
            elif key == "calls":
                in_call = True


def short(name):
    """A function's name without its parameters and its library's choice for this processor:
    `(anonymous namespace)::F(int)` is F, `__memcpy_avx_unaligned_erms` is memcpy."""
    name = name.replace("(anonymous namespace)::", "").split("(")[0]
    return re.sub(r"^__(\w+?)_(sse|avx|evex|erms).*$", r"\1", name)


def count(driver, workload):
    """The counts of one workload, each for one pass."""
    with tempfile.TemporaryDirectory() as folder:
        out = pathlib.Path(folder) / "callgrind.out"
        run = subprocess.run(
            ["valgrind", "--tool=callgrind", "--collect-atstart=no", "--compress-strings=no",
             "--compress-pos=no", f"--callgrind-out-file={out}",
             str(driver), workload, str(PASSES)],
            capture_output=True, text=True, timeout=300, check=False)
        if run.returncode != 0 or not out.exists():
            sys.exit(f"{workload}: the driver failed under valgrind:\n{run.stderr}")
        profile = Profile(out, str(driver))
    if sum(profile.attributed.values()) < 0.97 * profile.total:
        sys.exit(f"{workload}: the functions do not sum to the total")
    functions = {
        short(name): {"inclusive": round(profile.inclusive.get(name, 0) / PASSES),
                      "with_library": round(cost / PASSES),
                      "own": round(profile.own_of(name) / PASSES)}
        for name, cost in sorted(profile.attributed.items(), key=lambda item: -item[1])
        if cost >= PASSES}
    library = {
        short(name): round(cost / PASSES)
        for name, cost in sorted(profile.library.items(), key=lambda item: -item[1])
        if cost >= PASSES}
    return {"total": round(profile.total / PASSES), "functions": functions, "library": library}


def environment(compiler):
    """What the counts belong to."""
    return {"machine": platform.machine(), "compiler": compiler,
            "c_library": " ".join(platform.libc_ver())}


def print_functions(counts, number):
    for workload, (meaning, _) in WORKLOADS.items():
        print(f"\n{meaning}: {counts[workload]['total']:,} instructions")
        print(f"  {'inclusive':>9} {'own + library':>14} {'own':>6}  function")
        for name, cost in list(counts[workload]["functions"].items())[:number]:
            print(f"  {cost['inclusive']:>9,} {cost['with_library']:>14,} {cost['own']:>6,}  "
                  f"{name}")
        print(f"  {'inclusive':>9}  of the libraries, called by these")
        for name, cost in list(counts[workload]["library"].items())[:number]:
            print(f"  {cost:>9,}  {name}")


def print_totals(counts, recorded):
    print(f"{'instructions a query':<45} {'now':>7} {'goal':>9} {'recorded':>9} {'change':>8}")
    for workload, (meaning, goal) in WORKLOADS.items():
        now = counts[workload]["total"]
        before = recorded.get(workload, {}).get("total")
        print(f"{meaning:<45} {now:>7,} {f'<= {goal:,}' if goal else '':>9} "
              f"{f'{before:,}' if before else '-':>9} "
              f"{f'{100 * (now / before - 1):+.1f} %' if before else '':>8}")


def grown(counts, recorded):
    """A line for each workload that grew too much, with the functions that did."""
    lines = []
    for workload, (meaning, _) in WORKLOADS.items():
        now, before = counts[workload], recorded[workload]
        if now["total"] <= before["total"] * (1 + TOLERANCE):
            continue
        growth = {
            name: now["functions"].get(name, {}).get("with_library", 0)
            - before["functions"].get(name, {}).get("with_library", 0)
            for name in {*now["functions"], *before["functions"]}}
        worst = [f"{name} {by:+,}"
                 for name, by in sorted(growth.items(), key=lambda item: -item[1])[:3] if by > 0]
        lines.append(f"{meaning}: {before['total']:,} -> {now['total']:,}; "
                     f"grown: {', '.join(worst)}")
    return lines


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("driver", type=pathlib.Path)
    parser.add_argument("compiler")
    parser.add_argument("--functions", type=int, default=12)
    parser.add_argument("--json", type=pathlib.Path)
    parser.add_argument("--record", type=pathlib.Path)
    parser.add_argument("--compare", type=pathlib.Path)
    parser.add_argument("--check", type=pathlib.Path)
    arguments = parser.parse_args()
    if shutil.which("valgrind") is None:
        print("skipped: valgrind is not installed")
        return SKIPPED

    reference = arguments.check or arguments.compare or arguments.record
    recorded = json.loads(reference.read_text()) if reference and reference.exists() else {}
    here = environment(arguments.compiler)
    if arguments.check and recorded.get("environment") != here:
        print(f"skipped: recorded with {recorded.get('environment')}, here is {here}")
        return SKIPPED

    driver = arguments.driver.resolve()
    counts = {workload: count(driver, workload) for workload in WORKLOADS}
    print_totals(counts, recorded.get("workloads", {}))
    if arguments.functions:
        print_functions(counts, arguments.functions)

    text = json.dumps({"environment": here, "workloads": counts}, indent=1) + "\n"
    for path in filter(None, (arguments.json, arguments.record)):
        path.write_text(text)
    if arguments.check:
        too_many = grown(counts, recorded["workloads"])
        for line in too_many:
            print(f"FAILED (more than {TOLERANCE:.0%} above the recorded count): {line}")
        return 1 if too_many else 0
    return 0


if __name__ == "__main__":
    sys.exit(main())
