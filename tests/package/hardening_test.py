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


def run(*command):
    return subprocess.run(command, check=False, capture_output=True, text=True).stdout


def verdicts(program):
    """hardening-check's, by name."""
    lines = run("hardening-check", "--nocolor", str(program)).splitlines()
    return dict(line.strip().split(": ", 1) for line in lines if line.startswith(" "))


class Hardening(unittest.TestCase):
    def test_host(self):
        found = verdicts(TREE / "usr/sbin/dns_proxy_host")
        self.assertGreaterEqual(len(found), 7)
        wanting = {name: verdict for name, verdict in found.items() if not verdict.startswith("yes")}
        # A program is marked if every object in it is, those with which the C library starts it too.
        # Debian 12 has not compiled them so.
        if not verdicts(self.empty_program())[CONTROL_FLOW].startswith("yes"):
            wanting.pop(CONTROL_FLOW, None)
        self.assertEqual(wanting, {})

    def test_objects_are_marked_for_control_flow(self):
        marked = "Properties: x86 feature: IBT, SHSTK"
        if marked not in run("readelf", "-n", str(self.empty_object())):
            self.skipTest("this compiler marks nothing")
        archives = sorted(TREE.rglob("*.a"))
        self.assertEqual(len(archives), 3)
        for archive in archives:
            members = run("ar", "t", str(archive)).split()
            self.assertEqual(run("readelf", "-n", str(archive)).count(marked), len(members), archive)

    # A fortified recvfrom would be another function of the C library's.
    def test_service_receives_through_the_guard(self):
        symbols = run("nm", "-D", str(TREE / "usr/sbin/dns_proxy_host")).splitlines()
        receiving = [line.split()[-2:] for line in symbols if "recvfrom" in line]
        self.assertEqual(receiving, [["T", "recvfrom"]])

    def empty_object(self):
        return self.compiled("empty.o", "-c")

    def empty_program(self):
        return self.compiled("empty")

    def compiled(self, name, *options):
        source = TREE / "empty.cpp"
        source.write_text("int main() {}\n")
        command = [COMPILER, "-O2", "-fcf-protection", *options, str(source), "-o", str(TREE / name)]
        subprocess.run(command, check=True)
        return TREE / name


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
