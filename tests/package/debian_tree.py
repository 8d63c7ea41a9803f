"""This Debian's files, with every change in memory: a tree to install packages in."""

import os
import pathlib
import shutil
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))
import own_namespaces

TREE = pathlib.Path("/tmp/tree")


def lay(files, *tools):
    """Enters namespaces of the test's own and lays the tree. `files` (name: path) are in its /root.

    Ends the test as skipped where the machine does not allow that, or is no Debian.
    """
    if os.geteuid() != 0:
        own_namespaces.skip("not root")
    own_namespaces.enter("dpkg", *tools)
    # Opened before /tmp is covered: the build may be below it.
    contents = {name: path.read_bytes() for name, path in files.items()}
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/tmp"], check=True)
    for name in ("changes", "work", "tree"):
        pathlib.Path("/tmp", name).mkdir()
    options = "lowerdir=/,upperdir=/tmp/changes,workdir=/tmp/work"
    overlay = ["mount", "-t", "overlay", "overlay", "-o", options, str(TREE)]
    if subprocess.run(overlay, capture_output=True, check=False).returncode:
        own_namespaces.skip("this system allows no overlay mount")
    for name, content in contents.items():
        (TREE / "root" / name).write_bytes(content)


def packages(folder):
    """Name: path, of the two packages that `folder` has."""
    found = {path.name: path for path in pathlib.Path(folder).glob("*.deb")}
    if len(found) != 2:
        sys.exit(f"not two packages: {sorted(found)}")
    return found
