"""A minute under fire: a datagram that ends a worker every 2 s, load beside it, and clients that
retry as resolvers do. They are answered, and never wrongly."""

import collections
import os
import random
import shutil
import subprocess
import tempfile
import threading
import time

import hosting
from hosting import KILLERS, Host, address_in, ask, send

SECONDS = int(os.environ.get("SECONDS_UNDER_FIRE", "60"))
CLIENTS = 8


class UnderFire(hosting.TestCase):
    def test_retrying_clients_are_answered_and_never_wrongly(self):
        self.assertIsNotNone(shutil.which("dnsperf"), "dnsperf is not installed")
        upstreams = [self.upstream("127.0.0.2"), self.upstream("127.0.0.3")]
        counts = collections.Counter()
        wrong = []
        end = time.monotonic() + SECONDS

        def client(number):
            choice = random.Random(number)
            while time.monotonic() < end:
                if choice.random() < 0.5:
                    name, right = "static.example", "192.0.2.1"
                else:
                    name = f"n{choice.randrange(100000)}.client{number}.example"
                    right = hosting.address_of(name)
                response = ask(name)
                counts["asked"] += 1
                if response is None:
                    counts["lost"] += 1
                elif hosting.question_name(response) != name or address_in(response) != right:
                    wrong.append((name, response.hex()))
                time.sleep(0.02)

        def fire():
            killers = list(KILLERS.values()) + [hosting.question("runt.example")]
            while time.monotonic() < end - 1:
                send(killers[counts["fired"] % len(killers)])
                counts["fired"] += 1
                time.sleep(2)

        with tempfile.NamedTemporaryFile("w") as load, Host(
            "--server", "127.0.0.2", "--server", "127.0.0.3", "--map", "static.example=192.0.2.1",
        ) as host:
            load.write("static.example A\nload1.example A\nstatic.example A\nload2.example A\n")
            load.flush()
            host.serving()
            dnsperf = subprocess.Popen(
                ["dnsperf", "-s", "127.0.0.1", "-d", load.name, "-l", str(SECONDS), "-Q", "1000", "-t", "1"],
                stdout=subprocess.PIPE, text=True,
            )
            threads = [threading.Thread(target=client, args=(number,)) for number in range(CLIENTS)]
            threads.append(threading.Thread(target=fire))
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
            report = dnsperf.communicate(timeout=hosting.PATIENCE)[0]
            restarts = host.restarts()

        answered = 1 - counts["lost"] / counts["asked"]
        print(f"  {SECONDS} s, {counts['fired']} datagrams that end a worker, {restarts} restarts")
        print(f"  {CLIENTS} retrying clients: {counts['asked']} questions, "
              f"{100 * answered:.2f} % answered, {len(wrong)} wrongly")
        for line in report.splitlines():
            if "Queries sent" in line or "Queries completed" in line:
                print("  dnsperf:", " ".join(line.split()))
        self.assertEqual(wrong, [])
        self.assertGreaterEqual(restarts, counts["fired"])
        self.assertGreater(counts["asked"], 20 * SECONDS)
        self.assertGreaterEqual(answered, 0.995)
        self.assertGreater(sum(upstream.asked for upstream in upstreams), 0)


if __name__ == "__main__":
    hosting.main()
