#!/usr/bin/env python3
"""Does what a section of docs/hosting.md says, and asks the host that comes out.

usage: embedding_test.py SOURCE WORK SECTION [C++ COMPILER, C COMPILER]

SOURCE is the copy of the repository to embed and WORK/prefix where the section "Install" puts it.
A section without compilers makes no host of its own. Exits with 77 where no namespace is allowed.
"""

import os
import pathlib
import shutil
import subprocess
import sys

import asking
import page

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))
import own_namespaces


def fail(text):
    sys.exit(f"{sys.argv[3]}: {text}")


def follow(source, work, heading, compilers):
    """Carries the section out in a folder of its own, which is returned."""
    recipes = page.sections((source / "docs/hosting.md").read_text(encoding="utf-8"))
    files, commands = recipes[heading]
    folder = work / "-".join([heading.replace(" ", "_"), *compilers])
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    for name, text in files.items():
        (folder / name).write_text(text, encoding="utf-8")
    for suffix in ("c", "cpp"):
        shutil.copy(source / f"examples/smallest_host.{suffix}", folder / f"my_host.{suffix}")
    environment = {**os.environ, "SOURCE": str(source), "PREFIX": str(work / "prefix")}
    if compilers:
        environment["CXX"], environment["CC"] = compilers
    subprocess.run(["sh", "-eux", "-c", commands], cwd=folder, env=environment, check=True)
    return folder


def ask_host(program):
    with asking.running(program) as process:
        query = asking.question(asking.MAPPED_NAME)
        answer = asking.ask(query)
        if answer is None:
            fail(f"no answer (the host's status: {process.poll()})")
        if answer[:2] != query[:2] or answer[-4:] != asking.MAPPED_ADDRESS:
            fail(f"a wrong answer: {answer.hex(' ')}")


def main():
    source, work, heading, *compilers = sys.argv[1:]
    own_namespaces.enter()
    folder = follow(pathlib.Path(source), pathlib.Path(work), heading, compilers)
    if not compilers:
        return

    ask_host(folder / "build/my_host")

    # A tree that is embedded as sources gives its libraries and nothing else.
    programs = {"dns_proxy_mac", "dns_proxy_host", "smallest_host", "unit_tests"}
    for path in (folder / "build").rglob("*"):
        fetched = "dns_proxy_mac-src" in path.parts  # a copy, with what had been built in it
        if path.name in programs and path.is_file() and not fetched:
            fail(f"{path.name} was built too")


if __name__ == "__main__":
    main()
