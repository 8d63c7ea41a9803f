"""Under fire: bad datagrams of every kind from an application and from the right server, and clients
that ask each question once, from connected sockets. Nothing is interrupted, everybody is answered."""

import os
import random
import selectors
import socket
import statistics
import time

import hosting
from hosting import BAD, Host, question

SECONDS = 8
CLIENTS = 16
PATIENCE = 2.0  # seconds that a client waits for its answer; then the question counts as lost
RUNTS = 100  # a second, from the server


def fire(rate, upstream):
    """Sends `rate` bad datagrams a second to the port, and runts to where the server is asked from,
    from a process of its own. Returns that."""
    process = os.fork()
    if process != 0:
        return process
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.connect(("127.0.0.1", 53))
        kinds = list(BAD.values())
        began, sent, runts = time.monotonic(), 0, 0
        while True:
            due = (time.monotonic() - began) * rate
            while sent < due:
                # Random ones have a question count of zero: with one they could be queries.
                noise = random.randbytes(4) + b"\0\0" + random.randbytes(random.randrange(60))
                sock.send(noise if sent % 4 == 0 else kinds[sent % len(kinds)])
                sent += 1
            while runts < (time.monotonic() - began) * RUNTS:
                upstream.sock.sendto(b"runt", upstream.asker)
                runts += 1
            time.sleep(0.001)


def ask_for(seconds):
    """The waits of all questions (None: no answer) of clients that ask one after the other, each
    question once; half of them for a static name."""
    with selectors.DefaultSelector() as selector:
        waits, number = [], 0
        end = time.monotonic() + seconds

        def ask(client, key):
            nonlocal number
            number += 1
            name = "static.example" if number % 2 else f"n{number}.example"
            right = "192.0.2.1" if number % 2 else hosting.address_of(name)
            query = question(name, identifier=number % 65536)
            key.update(query=query, right=right, at=time.monotonic(), due=time.monotonic() + 0.01)
            client.send(query)

        for _ in range(CLIENTS):
            client = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            client.connect(("127.0.0.1", 53))
            client.setblocking(False)
            key = {}
            selector.register(client, selectors.EVENT_READ, key)
            ask(client, key)
        while time.monotonic() < end:
            for event, _ in selector.select(0.005):
                key, response = event.data, event.fileobj.recv(8192)
                if response[:2] == key["query"][:2] and "at" in key:
                    if hosting.address_in(response) != key["right"]:
                        raise AssertionError(f"wrong: {response.hex()}")
                    waits.append(time.monotonic() - key.pop("at"))
            for event in list(selector.get_map().values()):
                key, now = event.data, time.monotonic()
                if "at" in key and now - key["at"] > PATIENCE:
                    waits.append(None)
                    del key["at"]
                if "at" not in key and now >= key["due"]:
                    ask(event.fileobj, key)
        for event in list(selector.get_map().values()):
            event.fileobj.close()
    return waits


class UnderFire(hosting.TestCase):
    def test_nothing_is_interrupted_and_each_question_is_answered_at_its_first_try(self):
        upstream = self.upstream("127.0.0.2")
        with Host("--server", "127.0.0.2", "--map", "static.example=192.0.2.1") as host:
            host.serving()
            child = host.child()
            for rate, wanted in ((0, 1.0), (1000, 1.0), (20000, 0.995)):
                with self.subTest(rate=rate):
                    hosting.resolve("first.example")  # the server knows where it is asked from
                    before = sum(host.status()["kept_away"].values())
                    process = fire(rate, upstream) if rate else None
                    try:
                        waits = ask_for(SECONDS if rate else 2)
                    finally:
                        if process:
                            os.kill(process, 9)
                            os.waitpid(process, 0)
                    answered = sorted(wait for wait in waits if wait is not None)
                    kept_away = sum(host.status()["kept_away"].values()) - before
                    print(f"  {rate} bad datagrams a second: {kept_away} kept away, {len(answered)} of {len(waits)} "
                          f"questions answered at the first try; waits: median "
                          f"{statistics.median(answered) * 1000:.2f} ms, 99 % below "
                          f"{answered[len(answered) * 99 // 100] * 1000:.1f} ms, longest {answered[-1] * 1000:.0f} ms")
                    self.assertGreater(len(waits), 100 if hosting.SANITIZED else 1000)
                    self.assertGreaterEqual(len(answered), wanted * len(waits))
                    self.assertGreaterEqual(kept_away, rate * SECONDS * (0.1 if hosting.SANITIZED else 0.5))
            self.assertEqual((host.child(), host.restarts()), (child, 0), "the same child")
            self.assertGreater(host.status()["kept_away"]["short_answer"], RUNTS)
            self.assertIn("kept away from the service", host.log())


if __name__ == "__main__":
    hosting.main()
