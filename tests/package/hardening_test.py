#!/usr/bin/env python3
"""The packaged programs are compiled as distributions ask, and the host's guard has no way round it.

usage: hardening_test.py PACKAGE_FOLDER C++_COMPILER

Exits with 77 where hardening-check (Debian: devscripts) is missing.
"""

import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

COMPILER = ""
TREE = pathlib.Path()
CONTROL_FLOW = "Control flow integrity"
MARKED = "Properties: x86 feature: IBT, SHSTK"


def run(*command):
    return subprocess.run(command, check=False, capture_output=True, text=True).stdout


def verdicts(program):
    """hardening-check's, by name."""
    lines = run("hardening-check", "--nocolor", str(program)).splitlines()
    return dict(line.strip().split(": ", 1) for line in lines if line.startswith(" "))


def compiler_marks():
    """Whether objects can have the marks for control flow: the processor's are x86-64's."""
    source = TREE / "empty.cpp"
    source.write_text("int main() {}\n")
    command = [COMPILER, "-fcf-protection", "-c", str(source), "-o", str(TREE / "empty.o")]
    compiled = subprocess.run(command, check=False, capture_output=True).returncode == 0
    return compiled and MARKED in run("readelf", "-n", str(TREE / "empty.o"))


class Hardening(unittest.TestCase):
    def test_programs(self):
        for program in ("usr/sbin/dns_proxy_host", "usr/bin/dns_proxy_trace"):
            found = verdicts(TREE / program)
            self.assertGreaterEqual(len(found), 7)
            if not compiler_marks():
                found.pop(CONTROL_FLOW)
            wanting = {what: said for what, said in found.items() if not said.startswith("yes")}
            self.assertEqual(wanting, {}, program)

    def test_objects_are_marked_for_control_flow(self):
        if not compiler_marks():
            self.skipTest("this compiler marks nothing")
        archives = sorted(TREE.rglob("*.a"))
        self.assertEqual(len(archives), 3)
        for archive in archives:
            members = run("ar", "t", str(archive)).split()
            self.assertEqual(run("readelf", "-n", str(archive)).count(MARKED), len(members), archive)

    # A fortified call would be another function of the C library's.
    def test_service_receives_through_the_guard(self):
        symbols = run("nm", "-D", str(TREE / "usr/sbin/dns_proxy_host")).splitlines()
        receiving = sorted(line.split()[-2:] for line in symbols if "recvfrom" in line or " select" in line)
        self.assertEqual(receiving, [["T", "recvfrom"], ["T", "select"]])


def main():
    global COMPILER, TREE
    folder, COMPILER = sys.argv[1:]
    if shutil.which("hardening-check") is None:
        print("skipped: no hardening-check on this machine")
        sys.exit(77)
    with tempfile.TemporaryDirectory() as tree:
        TREE = pathlib.Path(tree)
        for package in pathlib.Path(folder).glob("*.deb"):
            subprocess.run(["dpkg-deb", "--extract", str(package), tree], check=True)
        unittest.main(argv=sys.argv[:1])


if __name__ == "__main__":
    main()
