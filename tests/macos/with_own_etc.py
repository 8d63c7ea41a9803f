#!/usr/bin/env python3
"""Runs each test of a test executable with an empty /etc of its own.

usage: with_own_etc.py PROGRAM      exit status 77 where the machine does not allow it
"""

import os
import pathlib
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))
import own_namespaces

own_namespaces.enter()
program = sys.argv[1]
os.environ["DNS_PROXY_TEST_COVERED"] = "/etc"
listed = subprocess.run([program, "--gtest_list_tests"], capture_output=True, text=True, check=True)
failed, suite = 0, ""
for line in listed.stdout.splitlines():
    if not line.startswith(" "):
        suite = line
        continue
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/etc"], check=True)
    failed += subprocess.run([program, f"--gtest_filter={suite}{line.strip()}"]).returncode != 0
sys.exit(1 if failed or not suite else 0)
