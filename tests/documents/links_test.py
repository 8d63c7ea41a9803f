#!/usr/bin/env python3
"""Every link of a page to a file of this repository leads to one.

usage: links_test.py REPOSITORY
"""

import pathlib
import re
import subprocess
import sys

LINK = re.compile(r"\[[^\]]*\]\(([^)#\s]+)(?:#[^)]*)?\)")


def main():
    repository = pathlib.Path(sys.argv[1])
    pages = subprocess.run(
        ["git", "ls-files", "*.md"], cwd=repository, capture_output=True, text=True, check=True
    ).stdout.split()
    links = wrong = 0
    for page in pages:
        path = repository / page
        for target in LINK.findall(path.read_text()):
            if "://" in target:
                continue
            links += 1
            if not (path.parent / target).exists():
                print(f"{page}: {target} is not there")
                wrong += 1
    print(f"{len(pages)} pages, {links} links")
    return 0 if links and not wrong else 1


if __name__ == "__main__":
    sys.exit(main())
