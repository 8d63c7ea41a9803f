#!/usr/bin/env python3
"""Installs the Debian packages, runs and asks the host, compiles a host, and purges them again.

usage: debian_package_test.py PACKAGE_FOLDER SOURCE

All in a tree laid over this system's, kept in memory and gone afterwards; as root only. Exits with
77 where the machine does not allow that, or is no Debian.
"""

import os
import pathlib
import shutil
import subprocess
import sys

import asking

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))
import own_namespaces

PACKAGES = ["dns-proxy-host", "dns-proxy-mac-dev"]
TREE = pathlib.Path("/tmp/tree")


def lay_tree():
    """This system's files at TREE, every change in memory. We are in a mount namespace of our own."""
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/tmp"], check=True)
    for name in ("changes", "work", "tree"):
        pathlib.Path("/tmp", name).mkdir()
    options = "lowerdir=/,upperdir=/tmp/changes,workdir=/tmp/work"
    overlay = ["mount", "-t", "overlay", "overlay", "-o", options, str(TREE)]
    if subprocess.run(overlay, capture_output=True, check=False).returncode:
        own_namespaces.skip("this system allows no overlay mount")
    for name in ("dev", "proc"):
        subprocess.run(["mount", "--rbind", f"/{name}", str(TREE / name)], check=True)


def inside(*command):
    """Runs the command in the tree; its output."""
    result = subprocess.run(["chroot", str(TREE), *command], stdout=subprocess.PIPE, text=True, check=True)
    return result.stdout


def check_host_answers():
    host = ["chroot", str(TREE), "/usr/sbin/dns_proxy_host"]
    with asking.running(
        *host, "--server", "192.0.2.53", "--map", "printer.internal=192.0.2.80"
    ) as process:
        answer = asking.ask(asking.question(asking.MAPPED_NAME))
        process.terminate()
        process.wait(10)
    if answer is None or answer[-4:] != asking.MAPPED_ADDRESS:
        sys.exit(f"the installed host answered {answer!r}")


def main():
    folder, source = map(pathlib.Path, sys.argv[1:])
    if os.geteuid() != 0:
        own_namespaces.skip("not root")
    if shutil.which("dpkg") is None:
        own_namespaces.skip("no dpkg")
    files = sorted(folder.glob("*.deb"))
    own_namespaces.enter()
    # Opened before /tmp is covered: the build may be below it.
    contents = {path.name: path.read_bytes() for path in files}
    example = (source / "examples/smallest_host.cpp").read_bytes()
    lay_tree()
    for name, content in {**contents, "my_host.cpp": example}.items():
        (TREE / "root" / name).write_bytes(content)

    inside("dpkg", "--install", *(f"/root/{name}" for name in contents))
    installed = [line for line in inside("dpkg", "-L", *PACKAGES).splitlines() if line]
    for path in (
        "/usr/bin/dns_proxy_trace",
        "/usr/lib/systemd/system/dns-proxy-host.service",
        "/usr/sbin/dns_proxy_host",
        "/usr/share/man/man1/dns_proxy_trace.1",
        "/usr/share/man/man3/StartDnsSrv.3",
        "/usr/share/man/man8/dns_proxy_host.8",
    ):
        if path not in installed:
            sys.exit(f"{path} is not in the packages")
    print(inside("/usr/sbin/dns_proxy_host", "--version"), end="")

    flags = inside("pkg-config", "--cflags", "--libs", "dns_proxy_mac").split()
    inside("c++", "-std=c++17", "/root/my_host.cpp", *flags, "-o", "/root/my_host")
    check_host_answers()

    inside("dpkg", "--purge", *PACKAGES)
    left = [path for path in installed if (TREE / path[1:]).is_file()]
    if left:
        sys.exit(f"left behind: {left}")


if __name__ == "__main__":
    main()
