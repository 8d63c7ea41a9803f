"""A network, mounts and processes that only this test sees, with NSD and the service in them."""

import contextlib
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))
import own_namespaces

FOLDER = pathlib.Path(__file__).resolve().parent
UPSTREAM = "127.0.0.2"
SERVICE = "127.0.0.1"
MAPPED_NAME = "mapped.example"
MAPPED_ADDRESS = "10.1.2.3"

_PATIENCE = 30  # seconds in which a server has to answer its first question


def enter(*further_tools):
    """Returns inside namespaces of this program's own, with an address beside 127.0.0.1."""
    own_namespaces.enter("mount", "nsd", "dig", "kdig", "drill", "host", "getent",
                         *further_tools)
    # getaddrinfo with AI_ADDRCONFIG asks for no address on a machine that has 127.0.0.1 alone.
    subprocess.run(["ip", "address", "add", "198.51.100.1/32", "dev", "lo"], check=True)


@contextlib.contextmanager
def servers(host):
    """NSD, and in front of it the service in `host` (a command), both answering; gives the folder
    of this run."""
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        shutil.copy(FOLDER / "served.example.zone", folder)
        configuration = (FOLDER / "nsd.conf").read_text().replace("%FOLDER%", name)
        (folder / "nsd.conf").write_text(configuration)
        with (
            _running(["nsd", "-d", "-c", str(folder / "nsd.conf")], folder / "nsd.log"),
            _running(
                [*host, "--server", UPSTREAM, "--map", f"{MAPPED_NAME}={MAPPED_ADDRESS}"],
                folder / "service.log",
            ),
        ):
            wait_until_answered(UPSTREAM, "served.example")
            wait_until_answered(SERVICE, "1.0.0.127.in-addr.arpa")
            yield folder
            # No client has sent anything that ended the service.
            wait_until_answered(SERVICE, "1.0.0.127.in-addr.arpa")


@contextlib.contextmanager
def _running(command, log):
    with open(log, "wb") as output:
        process = subprocess.Popen(command, stdout=output, stderr=subprocess.STDOUT)
        try:
            yield
        except BaseException:
            print(f"--- {log.name}\n{log.read_text(errors='replace')[-4000:]}")
            raise
        finally:
            process.terminate()
            process.wait()


def wait_until_answered(server, name):
    import dns.exception
    import dns.message
    import dns.query

    deadline = time.monotonic() + _PATIENCE
    while True:
        try:
            query = dns.message.make_query(name, "A")
            dns.query.udp(query, server, timeout=1)
            return
        except (dns.exception.Timeout, OSError):
            if time.monotonic() > deadline:
                raise
            time.sleep(0.05)


@contextlib.contextmanager
def resolver_configuration(folder, server, options):
    """Makes `server` the one that the C library asks, in this process's mounts alone."""
    (folder / "resolv.conf").write_text(
        f"nameserver {server}\noptions timeout:5 attempts:1 {options}\n"
    )
    (folder / "nsswitch.conf").write_text("hosts: dns\n")
    covered = []
    try:
        for name in ("resolv.conf", "nsswitch.conf"):
            target = f"/etc/{name}"
            subprocess.run(["mount", "--bind", str(folder / name), target], check=True)
            covered.append(target)
        yield
    finally:
        for target in covered:
            subprocess.run(["umount", target], check=True)
