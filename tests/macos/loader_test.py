#!/usr/bin/env python3
"""Programs that are linked in other ways run too, and what is missing is said by its name.

usage: loader_test.py LOADER UNWINDER COMPILER LINKER LIBRARY_FOLDER FLOOR
"""

import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

LOADER, UNWINDER, COMPILER, LINKER, LIBRARIES, FLOOR = sys.argv[1:7]

# A newer linker than the one of the build: it writes chained fixups and offsets of initialisers.
NEWER_LINKER = next(filter(None, map(shutil.which, ["ld64.lld-19", "ld64.lld-18", "ld64.lld-17"])), None)

# A pointer in the data, a constructor, a thread-local variable, an exception, and imports: of a
# function through a pointer, of one that is called, and of one that nobody has written.
SOURCE = """
#include <stdexcept>
#include <stdio.h>
#include <string>
#include <unistd.h>

struct Made { Made() : number(getpid() > 0 ? 42 : 0) {} int number; } made;
thread_local int counted = 7;
const char* words[] = {"data", "more"};
int (*const function)(const char*) = puts;

int main(int argc, char** argv) {
  ++counted;
  try {
    throw std::runtime_error(words[0]);
  } catch (const std::exception& thrown) {
    printf("%s %d %d %s\\n", thrown.what(), made.number, counted, argv[argc - 1]);
  }
  function(words[1]);
  fflush(stdout);
  return argc == 2 ? 0 : getdomainname(nullptr, 0);
}
"""


class Loader(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        (self.folder / "program.cpp").write_text(SOURCE)

    def tool(self, *command):
        subprocess.run(command, cwd=self.folder, check=True)

    def link(self, *options, linker=LINKER, floor=FLOOR, processor="x86_64", output="program"):
        arch = "arm64" if processor == "aarch64" else processor
        self.tool(
            COMPILER, "-target", f"{processor}-macos.{floor}", "-fno-sanitize=undefined", "-O2",
            "-c", "program.cpp", "-o", "program.o",
        )  # fmt: skip
        self.tool(
            linker, "-arch", arch, "-platform_version", "macos", floor, "14.0", *options,
            "-o", output, "program.o",
            *(f"{LIBRARIES}/{name}" for name in ("libc++.a", "libc++abi.a", "libSystem.tbd")),
        )  # fmt: skip

    def run_program(self, *arguments, program="program", options=()):
        command = [LOADER, "--library", UNWINDER, *options, program, *arguments]
        return subprocess.run(command, cwd=self.folder, capture_output=True, text=True, check=False)

    def assert_runs(self, **how):
        done = self.run_program("last", **how)
        self.assertEqual(done.stderr, "")
        self.assertEqual(done.stdout, "data 42 8 last\nmore\n")
        self.assertEqual(done.returncode, 0)

    def load_commands(self):
        tool = shutil.which("llvm-objdump") or shutil.which("llvm-objdump-14")
        return subprocess.run(
            [tool, "--macho", "--private-headers", "program"],
            cwd=self.folder, capture_output=True, text=True, check=True,
        ).stdout  # fmt: skip

    def test_as_the_build_links(self):
        self.link()
        self.assertIn("LC_DYLD_INFO_ONLY", self.load_commands().split())
        self.assert_runs()

    @unittest.skipIf(NEWER_LINKER is None, "no linker here that chains fixups")
    def test_chained_fixups_and_offsets_of_initialisers(self):
        self.link("-fixup_chains", "-init_offsets", linker=NEWER_LINKER, floor="13.0")
        commands = self.load_commands().split()
        self.assertIn("LC_DYLD_CHAINED_FIXUPS", commands)
        self.assertNotIn("LC_DYLD_INFO_ONLY", commands)
        self.assertIn("__init_offsets", commands)
        self.assert_runs()

    def test_the_part_of_a_universal_program(self):
        universal = pathlib.Path(self.folder, "universal")
        self.link()
        program = (self.folder / "program").read_bytes()
        # Both parts start at a multiple of 16 KB; the first is for another processor.
        start = 0x4000
        parts = ((0x0100000C, 0, start, 0x4000, 14), (0x01000007, 3, 2 * start, len(program), 14))
        head = b"".join(number.to_bytes(4, "big") for number in (0xCAFEBABE, 2, *sum(parts, ())))
        universal.write_bytes(head.ljust(2 * start, b"\0") + program)
        self.assert_runs(program="universal")

    def test_an_import_that_nobody_has_written_ends_the_run_when_it_is_called(self):
        self.link()
        done = self.run_program()
        self.assertEqual(done.stdout, "data 42 8 program\nmore\n", "up to there it has run")
        self.assertEqual(
            done.stderr, "run_macos_program: _getdomainname is asked for, and nobody has written it\n"
        )
        self.assertEqual(done.returncode, 125)

    def test_an_import_can_be_taken_away(self):
        self.link()
        done = self.run_program("last", options=("--without", "_puts"))
        self.assertIn("_puts is asked for, and nobody has written it", done.stderr)
        self.assertEqual(done.returncode, 125)

    def test_what_is_no_program_is_refused(self):
        done = self.run_program(program="program.cpp")
        self.assertEqual(done.stderr, "run_macos_program: program.cpp: no Mach-O file for x86-64\n")
        self.assertEqual(done.returncode, 125)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
