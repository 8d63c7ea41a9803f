#!/usr/bin/env python3
"""Starts a system with the package dns-proxy-host: under_systemd.py is its only program.

usage: systemd_test.py PACKAGE_FOLDER

This machine's own files are the system's, every change in memory; its network is a loopback
interface. As root only. Exits with 77 where the machine does not allow that.
"""

import pathlib
import subprocess
import sys

import debian_tree
import own_namespaces

HERE = pathlib.Path(__file__).resolve().parent

# The system leaves with the status of this unit.
UNIT = """
[Unit]
SuccessAction=exit-force
FailureAction=exit-force
[Service]
Type=oneshot
WorkingDirectory=/root
StandardOutput=file:/root/told
StandardError=inherit
ExecStart=/usr/bin/python3 -B under_systemd.py -v
"""


def main():
    packages = debian_tree.packages(sys.argv[1])
    host = next(path for name, path in packages.items() if name.startswith("dns-proxy-host_"))
    tools = ("systemd-nspawn", "systemctl", "journalctl")
    programs = [HERE / "under_systemd.py", HERE / "asking.py", HERE.parent / "support/waiting.py"]
    debian_tree.lay({path.name: path for path in [host, *programs]}, *tools)
    tree = debian_tree.TREE
    (tree / "etc/systemd/system/under-test.service").write_text(UNIT)
    # It would keep maintainers' scripts from what they are tested for.
    (tree / "usr/sbin/policy-rc.d").unlink(missing_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/run"], check=True)

    container = ["systemd-nspawn", "--quiet", "--register=no", "--keep-unit", "--private-network"]
    container += ["--console=read-only", f"--directory={tree}", "--boot", "--"]
    container += ["systemd.unit=under-test.service", "systemd.show_status=no"]
    done = subprocess.run(container, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    told = tree / "root/told"
    if not told.exists():
        print(done.stdout, done.stderr)
        own_namespaces.skip("this machine starts no system in a container")
    print(told.read_text(errors="replace"))
    sys.exit(done.returncode)


if __name__ == "__main__":
    main()
