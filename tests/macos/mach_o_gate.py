#!/usr/bin/env python3
"""Would this program start on the oldest macOS that it names?

usage: mach_o_gate.py --processor PROCESSOR --floor VERSION --imports FILE [--weak SYMBOL]...
       [--without SYMBOL]... PROGRAM

Reads the program with LLVM's tools and checks that it is a Mach-O executable for PROCESSOR (x86_64,
arm64) and nothing else, that its load command names the floor, that it asks for libSystem and no
other library, that each symbol it cannot do without is one of FILE's `strong` lines, that each one
it can do without is one of FILE's `weak` lines or a --weak, that it asks for no --without, that it
brings no memcpy of its own, and for arm64 that it carries a signature that fits. Prints a line for
each fault and exits with 1 if there is any.
"""

import argparse
import pathlib
import re
import shutil
import subprocess
import sys

from code_signature import signature_faults

LIBRARY = "/usr/lib/libSystem.B.dylib"

# Compilers call these by themselves. A run-time library that brings its own and stands before
# libSystem in the link takes their place, and is slower.
LIBSYSTEM_HAS = {"_bzero", "_memcmp", "_memcpy", "_memmove", "_memset"}


def run(tool, *arguments):
    path = shutil.which(tool) or shutil.which(f"{tool}-14")
    if path is None:
        sys.exit(f"{tool} is missing (Debian: llvm)")
    result = subprocess.run([path, *arguments], capture_output=True, text=True, check=False)
    return result.stdout if result.returncode == 0 else ""


def known_imports(path):
    """The lists of FILE: strong and weak, each a set of symbols. Text behind # is a reason."""
    known = {"strong": set(), "weak": set()}
    with open(path, encoding="utf-8") as lines:
        for line in lines:
            words = line.split("#")[0].split()
            if words:
                known[words[0]].update(words[1:])
    return known


def load_commands(headers):
    """Each load command as its text, from `cmd LC_...` on."""
    return [part for part in re.split(r"^Load command \d+\n", headers, flags=re.MULTILINE)[1:]]


def header_faults(headers, processor, floor):
    magic = re.search(r"^MH_MAGIC_64\s+(\S+)\s+\S+\s+\S+\s+(\S+)", headers, flags=re.MULTILINE)
    if magic is None:
        yield "is no 64-bit Mach-O file"
        return
    if magic[1] != processor.upper() or magic[2] != "EXECUTE":
        yield f"is {magic[1]} {magic[2]}, not {processor.upper()} EXECUTE"

    floors, libraries = [], []
    for command in load_commands(headers):
        name = re.search(r"cmd (\S+)", command)[1]
        if name == "LC_VERSION_MIN_MACOSX":
            floors.append(re.search(r"^\s*version (\S+)", command, flags=re.MULTILINE)[1])
        elif name == "LC_BUILD_VERSION":
            floors.append(re.search(r"^\s*minos (\S+)", command, flags=re.MULTILINE)[1])
        elif "DYLIB" in name and name != "LC_ID_DYLIB":
            libraries.append(re.search(r"^\s*name (\S+)", command, flags=re.MULTILINE)[1])
        elif name == "LC_RPATH":
            yield "carries a run path"
    if floors != [floor]:
        yield f"names the floor {', '.join(floors) or 'not at all'}, not {floor}"
    if libraries != [LIBRARY]:
        yield f"loads {', '.join(libraries) or 'nothing'}, not {LIBRARY} alone"


def import_faults(program, known):
    symbols = run("llvm-nm", "-m", "-u", program)
    imports = re.findall(r"\(undefined\) (weak )?external (\S+)", symbols)
    if not imports:
        yield "imports nothing: its symbols could not be read"

    # The symbol table and the table that the system's loader reads have to say the same.
    bindings = re.findall(
        r"^__\S+\s+\S+\s+0x\S+\s+pointer\s+\d+\s+\S+\s+(\S+)( \(weak_import\))?$",
        run("llvm-objdump", "--macho", "--bind", program),
        flags=re.MULTILINE,
    )
    if not bindings:
        yield "binds nothing: its tables could not be read"
    strongly_bound = {name for name, weak in bindings if not weak}

    for weak, name in imports:
        if weak and name in strongly_bound:
            yield f"refers weakly to {name} and binds it strongly"
        if weak and name not in known["weak"]:
            yield f"can do without {name}, but nothing says who tests for it before the call"
        if not weak and name not in known["strong"]:
            yield f"cannot start without {name}, which is not known to be in the floor release"


def own_copy_faults(program):
    defined = run("llvm-nm", "--defined-only", "--format=just-symbols", program).split()
    if not defined:
        yield "defines nothing: its symbols could not be read"
    for name in sorted(LIBSYSTEM_HAS.intersection(defined)):
        yield f"brings a {name} of its own instead of libSystem's"


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--processor", required=True)
    parser.add_argument("--floor", required=True)
    parser.add_argument("--imports", required=True)
    parser.add_argument("--weak", action="append", default=[])
    parser.add_argument("--without", action="append", default=[])
    parser.add_argument("program")
    options = parser.parse_args()

    known = known_imports(options.imports)
    known["weak"].update(options.weak)
    known["strong"].difference_update(options.without)
    headers = run("llvm-objdump", "--macho", "--private-headers", options.program)
    faults = list(header_faults(headers, options.processor, options.floor))
    if headers:
        faults += import_faults(options.program, known)
        faults += own_copy_faults(options.program)
        if options.processor == "arm64":
            faults += signature_faults(pathlib.Path(options.program).read_bytes())
    for fault in faults:
        print(f"{options.program}: {fault}")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
