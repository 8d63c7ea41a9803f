#!/usr/bin/env python3
"""The host that the README shows is examples/smallest_host.cpp.

usage: readme_snippet_test.py SOURCE
"""

import pathlib
import re
import sys


def main():
    source = pathlib.Path(sys.argv[1])
    readme = (source / "README.md").read_text(encoding="utf-8")
    shown = re.findall(r"^```cpp\n(.*?)^```$", readme, re.MULTILINE | re.DOTALL)
    example = (source / "examples/smallest_host.cpp").read_text(encoding="utf-8")
    if example not in shown:
        sys.exit("README.md does not show examples/smallest_host.cpp as it is")


if __name__ == "__main__":
    main()
