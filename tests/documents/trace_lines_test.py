#!/usr/bin/env python3
"""docs/trace.md lists every trace line that the sources write, and no other.

usage: trace_lines_test.py REPOSITORY
"""

import pathlib
import re
import sys

LITERALS = r'((?:"(?:[^"\\]|\\.)*"\s*)+)'
SERVICE_LINE = re.compile(r"\bTraceFrom\(\"\w+\"\)\(\s*" + LITERALS)
PLAIN_LINE = re.compile(r"std::printf\(\s*" + LITERALS)
DOCUMENTED_LINE = re.compile(r"^\| `([^`]*\\n)` \|", re.MULTILINE)


def text_of(literals):
    """The one text of string literals that stand behind one another."""
    return "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', literals))


def shape(text):
    """The text with its conversions alike: a value may be written by another conversion than the
    one that the line is known by, and the four numbers of an address by one."""
    return re.sub(r"%[sdu]", "%", text).replace("%.%.%.%", "%")


def written_lines(repository):
    for path in sorted((repository / "dns_proxy_mac").rglob("*.cpp")):
        source = path.read_text()
        for literals in SERVICE_LINE.findall(source):
            yield shape("func: %s(line:%d)" + text_of(literals)), path.name
        for literals in PLAIN_LINE.findall(source):
            yield shape(text_of(literals)), path.name


def main():
    repository = pathlib.Path(sys.argv[1])
    written = dict(written_lines(repository))
    documented = {shape(text) for text in DOCUMENTED_LINE.findall((repository / "docs/trace.md").read_text())}

    for text in sorted(written.keys() - documented):
        print(f"written by {written[text]}, not in docs/trace.md: {text}")
    for text in sorted(documented - written.keys()):
        print(f"in docs/trace.md, written by nobody: {text}")
    print(f"{len(written)} lines written, {len(documented)} documented")
    return 0 if written and written.keys() == documented else 1


if __name__ == "__main__":
    sys.exit(main())
