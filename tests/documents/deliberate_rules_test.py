#!/usr/bin/env python3
"""Every row of docs/deliberate-rules.md names tests that exist.

usage: deliberate_rules_test.py REPOSITORY
"""

import pathlib
import re
import sys

# A row's last column: `Suite.Name` of GoogleTest, one or more.
ROW = re.compile(r"^\| (?!rule |---)(.*) \|$", re.MULTILINE)
NAME = re.compile(r"`(\w+)\.(\w+)`")
TEST = re.compile(r"\bTEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)")


def main():
    repository = pathlib.Path(sys.argv[1])
    tests = set()
    for path in (repository / "tests").rglob("*.cpp"):
        tests.update(TEST.findall(path.read_text()))

    rows = ROW.findall((repository / "docs/deliberate-rules.md").read_text())
    wrong = 0
    for row in rows:
        rule, *_, pinned_by = row.split(" | ")
        names = NAME.findall(pinned_by)
        if not names:
            print(f"no test: {rule}")
            wrong += 1
        for name in names:
            if name not in tests:
                print(f"no such test: {'.'.join(name)}: {rule}")
                wrong += 1
    print(f"{len(rows)} rules")
    return 0 if rows and not wrong else 1


if __name__ == "__main__":
    sys.exit(main())
