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

# What a compiler's run-time library may have.
OWN_MEMSET = """
void* memset(void* at, int value, unsigned long count) {
  volatile char* bytes = at;
  while (count-- > 0) bytes[count] = (char)value;
  return at;
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


class LinkedProgram(unittest.TestCase):
    """A folder with one program in it, and what the gate says of it."""

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        (pathlib.Path(self.folder.name) / "program.c").write_text(SOURCE)

    def run_tool(self, *command):
        subprocess.run(command, cwd=self.folder.name, check=True, capture_output=True)

    def compile(self, target, name="program"):
        self.run_tool(COMPILER, "-target", target, "-O2", "-c", f"{name}.c", "-o", f"{name}.o")

    def link(self, *more, arch="x86_64", floor=FLOOR):
        self.run_tool(
            LINKER, "-arch", arch, "-platform_version", "macos", floor, "14.0", "-o", "program",
            "program.o", *more, f"{LIBRARIES}/libSystem.tbd",
        )  # fmt: skip

    def faults(self, program="program", processor="x86_64", floor=FLOOR, imports="imports.txt"):
        """What the gate says, a line a fault, and whether its exit status agrees."""
        result = subprocess.run(
            [
                sys.executable, FOLDER / "mach_o_gate.py", "--processor", processor, "--floor", floor,
                "--imports", FOLDER / imports, program,
            ],
            cwd=self.folder.name, capture_output=True, text=True, check=False,
        )  # fmt: skip
        self.assertEqual(result.stderr, "")
        self.assertEqual(result.returncode, 1 if result.stdout else 0)
        return [line.removeprefix(f"{program}: ") for line in result.stdout.splitlines()]


class MachOGate(LinkedProgram):
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

    def test_a_memset_of_the_programs_own_is_refused(self):
        (pathlib.Path(self.folder.name) / "run_time_library.c").write_text(OWN_MEMSET)
        self.compile(f"x86_64-macos.{FLOOR}")
        self.compile(f"x86_64-macos.{FLOOR}", "run_time_library")
        self.link("run_time_library.o")
        self.assertEqual(self.faults(), ["brings a _memset of its own instead of libSystem's"])

    def test_an_object_file_is_refused(self):
        self.compile(f"x86_64-macos.{FLOOR}")
        self.assertIn("is X86_64 OBJECT, not X86_64 EXECUTE", self.faults("program.o"))

    def test_another_processor_is_refused(self):
        self.compile("aarch64-macos.11.0")
        self.link(arch="arm64", floor="11.0")
        self.assertIn("is ARM64 EXECUTE, not X86_64 EXECUTE", self.faults())

    def test_a_program_for_linux_is_refused(self):
        self.assertEqual(self.faults("/bin/true"), ["is no 64-bit Mach-O file"])

class AppleSilicon(LinkedProgram):
    """What is different there: its own list of imports, and the signature."""

    def setUp(self):
        super().setUp()
        self.compile("aarch64-macos.11.0")

    def link_and_judge(self, *more):
        self.link(*more, arch="arm64", floor="11.0")
        return self.faults_there()

    def faults_there(self):
        return self.faults(processor="arm64", floor="11.0", imports="imports-arm64.txt")

    def test_a_program_passes(self):
        self.assertEqual(self.link_and_judge(), [])

    def test_a_program_without_a_signature_is_refused(self):
        self.assertEqual(self.link_and_judge("-no_adhoc_codesign"), ["is not signed"])

    def test_a_program_that_was_changed_after_the_link_is_refused(self):
        self.assertEqual(self.link_and_judge(), [])
        program = pathlib.Path(self.folder.name) / "program"
        content = bytearray(program.read_bytes())
        content[0x2000] ^= 1  # between the load commands and the code
        program.write_bytes(content)
        self.assertEqual(self.faults_there(), ["differs from its signature in page 2"])

    def test_a_newer_floor_is_refused(self):
        self.link(arch="arm64", floor="12.0")
        self.assertEqual(self.faults_there(), ["names the floor 12.0, not 11.0"])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
