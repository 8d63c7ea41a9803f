"""The guard at work: what the service does not see, what senders hear, and what is told about it."""

import socket
import struct
import time

import hosting
from hosting import A, AAAA, BAD, PTR, Host, ask, question, resolve, wait_for

NAMES = ("--server", "127.0.0.2", "--map", "a.example=192.0.2.1", "--map", "a.longer.name.example=192.0.2.2")

FORMERR, REFUSED = 1, 5


class Client(socket.socket):
    """Connected, as dig and the C library are."""

    def __init__(self):
        super().__init__(socket.AF_INET, socket.SOCK_DGRAM)
        self.settimeout(hosting.PATIENCE)
        self.connect(("127.0.0.1", 53))

    def hears(self, datagram):
        self.send(datagram)
        return self.recv(8192)


def with_opt(query, options=b""):
    """`query` with an OPT record behind its question."""
    record = b"\x00" + struct.pack("!HHIH", 41, 1232, 0, len(options)) + options
    return query[:10] + b"\x00\x01" + query[12:] + record


class Guard(hosting.TestCase):
    def test_each_bad_datagram_is_kept_away_counted_and_answered_if_it_may_be(self):
        with Host(*NAMES) as host, Client() as client:
            host.serving()
            child = host.child()
            for kind, (name, datagram) in enumerate(BAD.items()):
                with self.subTest(kind=name):
                    datagram = kind.to_bytes(2, "big") + datagram[2:] if len(datagram) > 2 else datagram
                    client.send(datagram)
                    if len(datagram) >= 12:
                        reply = client.recv(512)
                        self.assertEqual(reply[:2], datagram[:2])
                        self.assertEqual(reply[2] & 0x80, 0x80)
                        self.assertEqual(reply[3], REFUSED if name == "root" else FORMERR)
                        self.assertEqual(reply[4:], datagram[4:] if name == "root" else bytes(8))
                        # Whoever answers that hears nothing more: the next to come is the right answer.
                        client.send(reply)
                    self.assertEqual(client.hears(question("a.example"))[-4:], b"\xc0\x00\x02\x01")
            status = host.status()
            self.assertEqual((status["service_process"], status["restarts"]), (child, 0))
            self.assertEqual(status["queries"], len(BAD))
            for reason in ("short_query", "question_count", "root", "unreadable_name"):
                self.assertGreater(status["kept_away"][reason], 0)
            wait_for(lambda: "kept away from the service" in host.log(), "a line about it")
            client.hears(BAD["root"])
            time.sleep(0.6)  # two looks at the numbers
            self.assertEqual(host.log().count("kept away from the service"), 1, "once a minute")

    def test_opt_record_is_taken_off_what_the_service_answers_by_itself(self):
        with Host(*NAMES) as host, Client() as client:
            host.serving()
            for query in (question("a.example"), question("A.LONGER.name.Example"), question("a.example", 16),
                          question("4.3.2.1.in-addr.arpa", PTR)):
                for options in (b"", struct.pack("!HH", 10, 8) + b"a cookie"):
                    bare = client.hears(query)
                    self.assertEqual(client.hears(with_opt(query, options)), bare)
                    self.assertEqual(bare[10:12], b"\0\0")
            self.assertEqual(host.status()["opt_records_taken"], 8)
            # An AAAA question for a static name stays as it is.
            query = with_opt(question("a.example", AAAA))
            self.assertEqual(client.hears(query)[12 : len(query)], query[12:])
            self.assertEqual(host.status()["opt_records_taken"], 8)

    def test_forwarded_query_goes_byte_for_byte(self):
        upstream = self.upstream("127.0.0.2")
        with Host(*NAMES) as host, Client() as client:
            host.serving()
            for query in (question("b.example"), with_opt(question("B.example"), struct.pack("!HH", 10, 0)),
                          with_opt(question("b.example")) + b"surplus"):
                client.hears(query)
                self.assertEqual(upstream.last[2:], query[2:])

    def test_answer_to_another_question_is_kept_away_and_the_right_one_still_comes(self):
        upstream = self.upstream("127.0.0.2")

        def first(query):
            other = hosting.answer(query[:2] + question("c.example")[2:], "192.0.2.66")
            return [other, hosting.answer(query[:-4] + b"\0\x10\0\1", "192.0.2.66")]

        upstream.first = first
        with Host(*NAMES) as host:
            host.serving()
            for number in range(5):
                name = f"b{number}.example"
                self.assertEqual(resolve(name, tries=1, wait=hosting.PATIENCE), hosting.address_of(name))
            self.assertEqual(host.status()["kept_away"]["other_question"], 10)
            # One without records passes, whatever it is about: nothing waits longer for it.
            upstream.first = lambda query: [hosting.answer(query[:2] + question("c.example")[2:], None)]
            self.assertIsNone(hosting.address_in(ask("b.example", tries=1, wait=hosting.PATIENCE)))

    def test_runt_from_a_server_does_not_interrupt(self):
        self.upstream("127.0.0.2")
        with Host(*NAMES) as host:
            host.serving()
            ask("runt.example", tries=1, wait=0.01)
            wait_for(lambda: host.status()["kept_away"]["short_answer"], "a runt")
            self.assertEqual(resolve("b.example"), hosting.address_of("b.example"))
            self.assertEqual(host.restarts(), 0)

    def test_first_identifier_is_any(self):
        upstream = self.upstream("127.0.0.2")
        firsts = set()
        for _ in range(3):
            with Host(*NAMES) as host:
                host.serving()
                resolve("b.example")
                firsts.add(upstream.last[:2])
        self.assertGreater(len(firsts), 1)

    def test_without_the_guard_the_service_is_bare(self):
        upstream = self.upstream("127.0.0.2")
        with Host(*NAMES, "--unguarded") as host, Client() as client:
            host.serving()
            query = with_opt(question("a.example"))
            self.assertEqual(client.hears(query)[12 : len(query)], query[12:])
            resolve("b.example")
            self.assertEqual(upstream.last[:2], b"\x01\x00")  # the second query of this process
            client.send(BAD["root"])
            wait_for(lambda: host.restarts() == 1, "a restart")
            self.assertEqual(sum(host.status()["kept_away"].values()), 0)


if __name__ == "__main__":
    hosting.main()
