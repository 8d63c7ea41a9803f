#!/usr/bin/env python3
"""The gate passes a program that is linked the right way and refuses the same one linked wrongly.

usage: mach_o_gate_test.py COMPILER LINKER LIBRARY_FOLDER FLOOR
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

FOLDER = pathlib.Path(__file__).parent
COMPILER, LINKER, LIBRARIES, FLOOR = sys.argv[1:5]

# FD_SET refers to a function that came with macOS 11.
SOURCE = """
#include <sys/select.h>
int main(int argc, char** argv) {
  (void)argv;
  fd_set set;
  FD_ZERO(&set);
  FD_SET(argc, &set);
  return FD_ISSET(argc, &set) ? 0 : 1;
}
"""

# A library that every macOS has, and that the programs have no need of.
OTHER_LIBRARY = """--- !tapi-tbd
tbd-version: 4
targets: [ x86_64-macos ]
install-name: '/usr/lib/libz.1.dylib'
exports:
  - targets: [ x86_64-macos ]
    symbols: [ _zlibVersion ]
...
"""


class MachOGate(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        (pathlib.Path(self.folder.name) / "program.c").write_text(SOURCE)

    def run_tool(self, *command):
        subprocess.run(command, cwd=self.folder.name, check=True, capture_output=True)

    def compile(self, target):
        self.run_tool(COMPILER, "-target", target, "-O2", "-c", "program.c", "-o", "program.o")

    def link(self, *more, arch="x86_64", floor=FLOOR):
        self.run_tool(
            LINKER, "-arch", arch, "-platform_version", "macos", floor, "14.0", "-o", "program",
            "program.o", *more, f"{LIBRARIES}/libSystem.tbd",
        )  # fmt: skip

    def faults(self, program="program"):
        """What the gate says, a line a fault, and whether its exit status agrees."""
        result = subprocess.run(
            [
                sys.executable, FOLDER / "mach_o_gate.py", "--floor", FLOOR,
                "--imports", FOLDER / "imports.txt", program,
            ],
            cwd=self.folder.name, capture_output=True, text=True, check=False,
        )  # fmt: skip
        self.assertEqual(result.stderr, "")
        self.assertEqual(result.returncode, 1 if result.stdout else 0)
        return [line.removeprefix(f"{program}: ") for line in result.stdout.splitlines()]

    def test_a_program_linked_for_the_floor_passes(self):
        self.compile(f"x86_64-macos.{FLOOR}")
        self.link()
        self.assertEqual(self.faults(), [])

    def test_without_a_version_in_the_target_floor_and_import_are_refused(self):
        self.run_tool(COMPILER, "-target", "x86_64-macos", "-O2", "program.c", "-o", "program")
        floor, missing = self.faults()
        self.assertRegex(floor, rf"^names the floor 1[1-9][0-9.]*, not {FLOOR}$")
        self.assertEqual(
            missing,
            "cannot start without ___darwin_check_fd_set_overflow, "
            "which is not known to be in the floor release",
        )

    def test_one_object_for_a_newer_macos_makes_the_import_strong_and_is_refused(self):
        self.compile("x86_64-macos.11.0")
        self.link()
        self.assertEqual(
            self.faults(),
            [
                "cannot start without ___darwin_check_fd_set_overflow, "
                "which is not known to be in the floor release"
            ],
        )

    def test_another_library_is_refused(self):
        self.compile(f"x86_64-macos.{FLOOR}")
        (pathlib.Path(self.folder.name) / "libz.tbd").write_text(OTHER_LIBRARY)
        self.link("libz.tbd")
        self.assertEqual(
            self.faults(),
            [
                "loads /usr/lib/libz.1.dylib, /usr/lib/libSystem.B.dylib, "
                "not /usr/lib/libSystem.B.dylib alone"
            ],
        )

    def test_an_object_file_is_refused(self):
        self.compile(f"x86_64-macos.{FLOOR}")
        self.assertIn("is X86_64 OBJECT, not X86_64 EXECUTE", self.faults("program.o"))

    def test_another_processor_is_refused(self):
        self.compile("aarch64-macos.11.0")
        self.link(arch="arm64", floor="11.0")
        self.assertIn("is ARM64 EXECUTE, not X86_64 EXECUTE", self.faults())

    def test_a_program_for_linux_is_refused(self):
        self.assertEqual(self.faults("/bin/true"), ["is no 64-bit Mach-O file"])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
