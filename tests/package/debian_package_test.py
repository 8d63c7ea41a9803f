#!/usr/bin/env python3
"""Installs the Debian packages, runs and asks the host, compiles a host, and purges them again.

usage: debian_package_test.py PACKAGE_FOLDER SOURCE

In debian_tree's tree. Exits with 77 where the machine does not allow that.
"""

import pathlib
import subprocess
import sys

import asking
import debian_tree

NAMES = ["dns-proxy-host", "dns-proxy-mac-dev"]


def inside(*command):
    """Runs the command in the tree; its output."""
    command = ["chroot", str(debian_tree.TREE), *command]
    return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout


def check_host_answers():
    host = ["chroot", str(debian_tree.TREE), "/usr/sbin/dns_proxy_host"]
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
    packages = debian_tree.packages(folder)
    debian_tree.lay({**packages, "my_host.cpp": source / "examples/smallest_host.cpp"})
    for name in ("dev", "proc"):
        subprocess.run(["mount", "--rbind", f"/{name}", str(debian_tree.TREE / name)], check=True)

    dpkg = ("dpkg", "--no-triggers", "--force-unsafe-io")  # no index of manual pages
    inside(*dpkg, "--install", *(f"/root/{name}" for name in packages))
    installed = [line for line in inside("dpkg", "-L", *NAMES).splitlines() if line]
    for path in (
        "/usr/bin/dns_proxy_trace",
        "/usr/lib/systemd/system/dns-proxy-host.service",
        "/usr/sbin/dns_proxy_host",
        "/usr/share/man/man1/dns_proxy_trace.1.gz",
        "/usr/share/man/man3/StartDnsSrv.3.gz",
        "/usr/share/man/man8/dns_proxy_host.8.gz",
    ):
        if path not in installed:
            sys.exit(f"{path} is not in the packages")
    print(inside("/usr/sbin/dns_proxy_host", "--version"), end="")
    # Nobody was given a licence.
    for name in NAMES:
        if "no licence" not in inside("cat", f"/usr/share/doc/{name}/copyright"):
            sys.exit(f"the copyright file of {name} is another")
        if "dns-proxy-mac (" not in inside("zcat", f"/usr/share/doc/{name}/changelog.gz"):
            sys.exit(f"the changelog of {name} names no version")

    # What the package depends on has to be enough for this: a compiler, and no pkg-config.
    depends = inside("dpkg-query", "--show", "--showformat=${Depends}", "dns-proxy-mac-dev")
    if not depends.startswith("g++ ") or "libc6-dev" not in depends:
        sys.exit(f"dns-proxy-mac-dev depends on {depends}")
    inside("c++", "-std=c++17", "/root/my_host.cpp", "-ldns_proxy", "-pthread", "-o", "/root/my_host")
    inside("pkg-config", "--exists", "dns_proxy_mac", "dns_proxy_mac_c")
    check_host_answers()

    inside(*dpkg, "--purge", *NAMES)
    left = [path for path in installed if (debian_tree.TREE / path[1:]).is_file()]
    if left:
        sys.exit(f"left behind: {left}")


if __name__ == "__main__":
    main()
