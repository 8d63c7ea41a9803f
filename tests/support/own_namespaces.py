"""A network, mounts and processes that only this test sees: port 53 of 127.0.0.1 is free there, and
everything that is left behind dies with them."""

import os
import shutil
import subprocess
import sys

SKIPPED = 77  # what CTest takes for "not here"

_INSIDE = "DNS_PROXY_TEST_INSIDE"


def skip(reason):
    print(f"skipped: {reason}")
    sys.exit(SKIPPED)


def enter(*tools):
    """Starts this program anew inside, and does not return there. Returns inside.

    Ends it as skipped where the machine allows no namespaces or lacks one of `tools`.
    """
    if os.environ.get(_INSIDE):
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
        return
    # nsd and ip lie where not every user looks.
    os.environ["PATH"] += ":/usr/sbin:/sbin"
    for tool in ("unshare", "ip", *tools):
        if shutil.which(tool) is None:
            skip(f"no {tool} on this machine")
    own = ["--net", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
    # Root with all users if possible, to become one of them; else root of a user namespace.
    for way in (["unshare", *own], ["unshare", "--user", "--map-root-user", *own]):
        if subprocess.run([*way, "true"], stderr=subprocess.DEVNULL).returncode == 0:
            os.environ[_INSIDE] = "yes"
            os.execvp(way[0], [*way, sys.executable, *sys.argv])
    skip("this machine allows no namespaces")
