"""What each client says to the answers that the service makes up, for a name of the host map and
for one that nobody has, compared with the table in docs/clients.md. Some of these answers are
malformed by design, and clients differ.

  mapped_names_test.py TEST_HOST DOCUMENT TABLE            compares, and writes the table to TABLE
  mapped_names_test.py TEST_HOST DOCUMENT TABLE --update   rewrites the table in DOCUMENT
"""

import difflib
import pathlib
import re
import subprocess
import sys

import private_network
from private_network import own_namespaces

try:
    import dns.version

    import dns_clients
except ImportError:
    own_namespaces.skip("no dnspython for this interpreter")

# What stands between such a pair of lines is this test's. The versions are for the reader and not
# compared: a new version of a client is no failure, a client that says something else is one.
TABLE = ("<!-- what the clients say: begin -->", "<!-- what the clients say: end -->")
VERSIONS = ("<!-- versions: begin -->", "<!-- versions: end -->")


# Left out: the flags, and dig's note that recursion is not available.
LEFT_OUT = re.compile(r";; [Ff]lags:|flags |WARNING: recursion requested but not available")


def row(client, edns, question, said):
    lines = [line.replace("|", "\\|") for line in said.lines if not LEFT_OUT.match(line)]
    says = "<br>".join([*([said.rcode] if said.rcode else []), *(f"`{line}`" for line in lines)])
    name, kind = question
    return (f"| {client.name} | {'yes' if edns else 'no'} | {name} {kind} |"
            f" {says or 'nothing'} | {said.status} |")


def table(folder):
    questions = [
        (private_network.MAPPED_NAME, "A"),
        (private_network.MAPPED_NAME, "AAAA"),
        ("nowhere.served.example", "A"),
    ]
    clients = [
        dns_clients.Dig(),
        dns_clients.Kdig(),
        dns_clients.Drill(),
        dns_clients.Host(),
        dns_clients.Getent(folder),
        dns_clients.Dnspython(),
    ]
    lines = ["| Client | EDNS | Question | Says | Exit status |", "|---|---|---|---|---|"]
    for client in clients:
        for edns in (False, True):
            if edns and client.name == "host":  # has no EDNS
                continue
            for question in questions:
                said = client.ask(private_network.SERVICE, *question, edns)
                lines.append(row(client, edns, question, said))
    return "\n".join(lines)


def versions():
    lines = []
    for client in (dns_clients.Dig, dns_clients.Kdig, dns_clients.Drill, dns_clients.Getent):
        said = subprocess.run(
            client.version, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True
        ).stdout
        lines.append(f"- {client.name}: {said.splitlines()[0].strip()}")
    lines.append("- host: of the same package as dig")
    lines.append(f"- dnspython: {dns.version.version}")
    return "\n".join(lines)


def between(text, marks):
    begin = text.index(marks[0]) + len(marks[0])
    return begin, text.index(marks[1])


def replaced(text, marks, new):
    begin, end = between(text, marks)
    return f"{text[:begin]}\n{new}\n{text[end:]}"


def main():
    test_host, document, written = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
    with private_network.servers(test_host) as folder:
        actual = table(folder)
    written.write_text(actual + "\n")

    text = document.read_text()
    if "--update" in sys.argv[4:]:
        document.write_text(replaced(replaced(text, TABLE, actual), VERSIONS, versions()))
        return 0
    begin, end = between(text, TABLE)
    expected = text[begin:end].strip()
    if actual == expected:
        return 0
    print("\n".join(difflib.unified_diff(
        expected.splitlines(), actual.splitlines(), str(document), str(written), lineterm=""
    )))
    print(f"The clients say something else than {document.name} shows; look at the difference, and"
          " if it is right run this test with --update.")
    return 1


if __name__ == "__main__":
    private_network.enter()
    sys.exit(main())
