"""A name that the host map does not hold: through the service, every client says what it says when
it asks the upstream server itself. What the server has no record for is "no such name", whatever
the server says to it.

  unmapped_names_test.py TEST_HOST
"""

import sys
import unittest

import private_network
from private_network import own_namespaces

try:
    import dns_clients
except ImportError:
    own_namespaces.skip("no dnspython for this interpreter")

ZONE = "served.example"

# (name, type): every one has records, within the 512 bytes of a datagram without EDNS.
QUESTIONS = [
    ("www", "A"),
    ("www", "AAAA"),
    ("WwW", "A"),
    ("v4only", "A"),
    ("v6only", "AAAA"),
    ("", "SOA"),
    ("", "NS"),
    ("", "MX"),
    ("", "TXT"),
    ("", "CAA"),
    ("_sip._udp", "SRV"),
    ("any.name.wild", "A"),
    ("alias", "A"),
    ("alias", "AAAA"),
    ("alias", "CNAME"),
    ("dangling", "A"),
    ("many", "A"),
    ("long", "TXT"),
]

# Fits a datagram with EDNS.
LONG_QUESTION = ("longer", "TXT")

# (name, type, what the server says). The last is cut without EDNS: to a header that says so and no
# record, which to the service is an answer without records like any other.
WITHOUT_RECORDS = [("nowhere", "A", "NXDOMAIN"), ("v4only", "AAAA", "NOERROR")]
CUT = ("longer", "TXT", "NOERROR")


def full(label):
    return f"{label}.{ZONE}" if label else ZONE


class UnmappedNames(unittest.TestCase):
    folder = None

    def expect_equal(self, client, questions, edns):
        for label, kind in questions:
            with self.subTest(client=client.name, name=full(label), type=kind, edns=edns):
                direct = client.ask(private_network.UPSTREAM, full(label), kind, edns)
                through = client.ask(private_network.SERVICE, full(label), kind, edns)
                self.assertEqual(direct.status, 0, direct)
                self.assertTrue(direct.lines)
                self.assertEqual(repr(through), repr(direct))
                self.assertEqual(through, direct)

    def expect_no_such_name(self, client, questions, edns):
        for label, kind, direct_rcode in questions:
            with self.subTest(client=client.name, name=full(label), type=kind, edns=edns):
                direct = client.ask(private_network.UPSTREAM, full(label), kind, edns)
                through = client.ask(private_network.SERVICE, full(label), kind, edns)
                self.assertEqual(direct.rcode, direct_rcode)
                self.assertEqual(through.rcode, "NXDOMAIN")
                self.assertFalse([line for line in through.lines if "SOA" in line])

    def expect_as_direct(self, client):
        self.expect_equal(client, QUESTIONS, edns=False)
        self.expect_equal(client, [*QUESTIONS, LONG_QUESTION], edns=True)
        self.expect_no_such_name(client, [*WITHOUT_RECORDS, CUT], edns=False)

    def test_dig(self):
        self.expect_as_direct(dns_clients.Dig())
        self.expect_no_such_name(dns_clients.Dig(), WITHOUT_RECORDS, edns=True)

    def test_kdig(self):
        self.expect_as_direct(dns_clients.Kdig())
        self.expect_no_such_name(dns_clients.Kdig(), WITHOUT_RECORDS, edns=True)

    def test_drill(self):
        self.expect_as_direct(dns_clients.Drill())
        self.expect_no_such_name(dns_clients.Drill(), WITHOUT_RECORDS, edns=True)

    def test_dnspython(self):
        # "No such name" with EDNS is malformed to it: see docs/clients.md.
        self.expect_as_direct(dns_clients.Dnspython())

    def test_host(self):
        # Where a chain of names leads nowhere, it asks for its last name next.
        self.expect_equal(
            dns_clients.Host(), [asked for asked in QUESTIONS if asked[0] != "dangling"], False
        )
        said = dns_clients.Host().ask(private_network.SERVICE, full("nowhere"), "A", False)
        self.assertEqual(said.status, 1)
        self.assertEqual(said.lines, [f"Host {full('nowhere')} not found: 3(NXDOMAIN)"])

    def test_getent(self):
        client = dns_clients.Getent(self.folder)
        names = ["www", "v4only", "any.name.wild", "alias", "many"]
        for edns in (False, True):
            self.expect_equal(client, [(name, "A") for name in names], edns)
            # Asks for A and AAAA at once, over one socket.
            self.expect_equal(client, [(name, "AAAA") for name in ("www", "alias")], edns)
            said = client.ask(private_network.SERVICE, full("nowhere"), "A", edns)
            self.assertEqual((said.status, said.lines), (2, []))


if __name__ == "__main__":
    private_network.enter()
    with private_network.servers(sys.argv[1:]) as run_folder:
        UnmappedNames.folder = run_folder
        result = unittest.main(argv=sys.argv[:1], exit=False, verbosity=2).result
    sys.exit(0 if result.wasSuccessful() else 1)
