#!/usr/bin/env python3
"""Each installed header compiles alone: what it needs, it includes.

usage: headers_test.py PREFIX COMPILER LANGUAGE_STANDARD...

LANGUAGE_STANDARD: c++17, c99 and so on. A compiler for C gets the headers for C.
"""

import pathlib
import subprocess
import sys

C_HEADERS = {"dns_proxy_mac/dns_proxy_c.h"}


def main():
    prefix, compiler, *standards = sys.argv[1:]
    include = pathlib.Path(prefix, "include")
    headers = sorted(str(path.relative_to(include)) for path in include.rglob("*.h"))
    if not headers or not C_HEADERS <= set(headers):
        sys.exit(f"headers are missing: {headers}")
    failed = 0
    for standard in standards:
        is_cxx = standard.startswith("c++")
        for header in headers if is_cxx else C_HEADERS:
            # Twice, for the include guard; a program to be, not a header compiled as one.
            result = subprocess.run(
                [
                    compiler, f"-std={standard}", "-x", "c++" if is_cxx else "c", "-fsyntax-only",
                    "-Wall", "-Wextra", "-Wpedantic", "-Werror", f"-I{include}", "-",
                ],
                input=f'#include "{header}"\n' * 2, text=True, check=False,
            )  # fmt: skip
            if result.returncode:
                print(f"{compiler} -std={standard}: {header}")
                failed += 1
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
