#!/usr/bin/env python3
"""The line in a trace is the first line of its call, whichever compiler made the program.

usage: trace_line_numbers_test.py REPOSITORY COMPILER...
"""

import pathlib
import re
import subprocess
import sys

CALL = re.compile(r'^(?!#).*?\bTraceFrom\("(\w+)"\)', re.MULTILINE)
PREPROCESSED = re.compile(r'"func: "\s*"(\w+)"\s*"\(line:"\s*"(\d+)"')


def calls(source):
    """Function and line of each call, as a reader counts lines."""
    return [(call[1], source.count("\n", 0, call.start()) + 1) for call in CALL.finditer(source)]


def compiled_calls(compiler, repository, path):
    """The same as the compiler has it, in the texts that it puts into the program."""
    command = [compiler, "-I", repository, "-std=c++20", "-E", "-P", path]
    text = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    return [(function, int(line)) for function, line in PREPROCESSED.findall(text)]


def main():
    repository = pathlib.Path(sys.argv[1])
    found, wrong = 0, 0
    for path in sorted((repository / "dns_proxy_mac").rglob("*.cpp")):
        written = calls(path.read_text())
        if not written:
            continue
        found += len(written)
        for compiler in sys.argv[2:]:
            compiled = compiled_calls(compiler, repository, path)
            if compiled != written:
                wrong += 1
                print(f"{path.name}, {compiler}: {sorted(set(compiled) ^ set(written))}")
    print(f"{found} calls, {len(sys.argv) - 2} compilers, {wrong} files differ")
    return 0 if found and not wrong else 1


if __name__ == "__main__":
    sys.exit(main())
