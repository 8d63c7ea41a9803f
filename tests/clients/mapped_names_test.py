"""What each client says to the answers that the service makes up, for a name of the host map and
for one that nobody has, compared with a table in docs/clients.md: the one of the bare service,
whose answers are malformed in part, by design; or that of dns_proxy_host, through which every client
reads the address of an A question.

  mapped_names_test.py service|host PROGRAM DOCUMENT TABLE     compares, and writes the table to TABLE
  mapped_names_test.py service|host PROGRAM DOCUMENT TABLE --update     rewrites it in DOCUMENT
"""

import difflib
import pathlib
import re
import shutil
import subprocess
import sys

import private_network
from private_network import own_namespaces

try:
    import dns.version
    import pycares

    import dns_clients
except ImportError as error:
    own_namespaces.skip(f"{error} for this interpreter")

# What stands between such a pair of lines is this test's. The versions are for the reader and not
# compared: a new version of a client is no failure, a client that says something else is one.
TABLES = {
    "service": ("<!-- what the clients say: begin -->", "<!-- what the clients say: end -->"),
    "host": ("<!-- through the host: begin -->", "<!-- through the host: end -->"),
}
VERSIONS = ("<!-- versions: begin -->", "<!-- versions: end -->")

# What each program is asked through, beside server and name.
OPTIONS = {"service": [], "host": ["--user", "root"]}


# Left out: the flags, and dig's note that recursion is not available.
LEFT_OUT = re.compile(r";; [Ff]lags:|flags |WARNING: recursion requested but not available")


def row(client, edns, question, said):
    lines = [line.replace("|", "\\|") for line in said.lines if not LEFT_OUT.match(line)]
    says = "<br>".join([*([said.rcode] if said.rcode else []), *(f"`{line}`" for line in lines)])
    name, kind = question
    return (f"| {client.name} | {'yes' if edns else 'no'} | {name} {kind} |"
            f" {says or 'nothing'} | {said.status} |")


# (a client, with EDNS or without, what it is asked)
def conversations(folder):
    mapped_a = (private_network.MAPPED_NAME, "A")
    mapped_aaaa = (private_network.MAPPED_NAME, "AAAA")
    nowhere = ("nowhere.served.example", "A")
    both = [dns_clients.Dig, dns_clients.Kdig, dns_clients.Drill, dns_clients.Getent,
            dns_clients.Dnspython, dns_clients.CAres]
    without = [dns_clients.Host, dns_clients.Busybox, dns_clients.Musl, dns_clients.Node]
    for make in both + without:
        if missing(make):
            continue
        client = make(folder) if "__init__" in vars(make) else make()
        for edns in (False, True) if make in both else (False,):
            for question in (mapped_a, mapped_aaaa, nowhere):
                yield client, edns, question
    if not missing(dns_clients.Go):
        client = dns_clients.Go(folder)
        for question in (mapped_a, nowhere):
            yield client, True, question


def missing(client):
    return shutil.which(getattr(client, "needs", sys.executable)) is None


def table(folder):
    lines = ["| Client | EDNS | Question | Says | Exit status |", "|---|---|---|---|---|"]
    for client, edns, question in conversations(folder):
        said = client.ask(private_network.SERVICE, *question, edns)
        lines.append(row(client, edns, question, said))
    return lines


def not_read(lines):
    """The rows of A questions for the mapped name whose client did not just read the address."""
    asked = [line for line in lines if f"| {private_network.MAPPED_NAME} A |" in line]
    return [line for line in asked
            if private_network.MAPPED_ADDRESS not in line or "ADDITIONAL" in line
            or re.search(r"\b(warning|error|malformed)", line, re.I)]


# Where a machine lacks a client, its rows are left out of what is compared.
def here(lines):
    optional = {client.name for client in (dns_clients.Musl, dns_clients.Node, dns_clients.Go)
                if missing(client)}
    if optional:
        print(f"left out, not on this machine: {', '.join(sorted(optional))}")
    return [line for line in lines if line.split("|")[1].strip() not in optional]


def versions():
    lines = []
    for client in (dns_clients.Dig, dns_clients.Kdig, dns_clients.Drill, dns_clients.Getent,
                   dns_clients.Busybox, dns_clients.Node, dns_clients.Go):
        if not missing(client):
            said = subprocess.run(
                client.version, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True
            ).stdout
            lines.append(f"- {client.name}: {said.splitlines()[0].strip()}")
    lines.append("- host: of the same package as dig")
    lines.append(f"- dnspython: {dns.version.version}")
    lines.append(f"- c-ares: {pycares.ARES_VERSION}, by pycares {pycares.__version__}")
    return "\n".join(lines)


def between(text, marks):
    begin = text.index(marks[0]) + len(marks[0])
    return begin, text.index(marks[1])


def replaced(text, marks, new):
    begin, end = between(text, marks)
    return f"{text[:begin]}\n{new}\n{text[end:]}"


def main():
    which, program, document, written = sys.argv[1:5]
    document, marks = pathlib.Path(document), TABLES[which]
    with private_network.servers([program, *OPTIONS[which]]) as folder:
        actual = table(folder)
    pathlib.Path(written).write_text("\n".join(actual) + "\n")

    text = document.read_text()
    if "--update" in sys.argv[5:]:
        new = replaced(text, marks, "\n".join(actual))
        document.write_text(replaced(new, VERSIONS, versions()))
        return 0
    begin, end = between(text, marks)
    expected = here(text[begin:end].strip().splitlines())
    wrong = not_read(actual) if which == "host" else []
    for line in wrong:
        print(f"does not just read the address: {line}")
    if actual != expected:
        print("\n".join(difflib.unified_diff(expected, actual, str(document), written, lineterm="")))
        print(f"The clients say something else than {document.name} shows; look at the difference,"
              " and if it is right run this test with --update.")
    return 1 if wrong or actual != expected else 0


if __name__ == "__main__":
    private_network.enter("busybox")
    sys.exit(main())
