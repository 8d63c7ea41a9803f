"""What the host costs: beside the service without a host, and while nobody asks."""

import os
import pathlib
import socket
import subprocess
import time

import hosting
from hosting import Host, resolve, wait_for

QUERIES = 4000 if hosting.SANITIZED else 10000


def processor_seconds(process):
    """User and system time of all threads."""
    fields = pathlib.Path(f"/proc/{process}/schedstat").read_text().split()
    total = 0
    for path in pathlib.Path(f"/proc/{process}/task").glob("*/schedstat"):
        total += int(path.read_text().split()[0])
    return max(total, int(fields[0])) / 1e9


def switches(process):
    """How often the threads of `process` have gone to sleep."""
    total = 0
    for path in pathlib.Path(f"/proc/{process}/task").glob("*/status"):
        for line in path.read_text().splitlines():
            if line.startswith("voluntary_ctxt_switches"):
                total += int(line.split()[1])
    return total


def microseconds_a_query(process):
    query = hosting.question("dns-proxy.internal", identifier=1)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.settimeout(hosting.PATIENCE)
        sock.connect(("127.0.0.1", 53))
        for _ in range(QUERIES // 10):
            sock.send(query)
            sock.recv(512)
        before = processor_seconds(process)
        for _ in range(QUERIES):
            sock.send(query)
            sock.recv(512)
        return (processor_seconds(process) - before) / QUERIES * 1e6


class Cost(hosting.TestCase):
    def test_trace_that_is_off_costs_no_more_than_throwing_it_away(self):
        # On one processor, which all that is started here inherits: waking a thread of another one costs
        # several times what answering does, and whether it is needed depends on what else is running.
        processors = os.sched_getaffinity(0)
        os.sched_setaffinity(0, {min(processors)})
        self.addCleanup(os.sched_setaffinity, 0, processors)
        bare_costs, off_costs = [], []
        for _ in range(2):
            with open("/dev/null", "w") as null:
                bare = subprocess.Popen([os.environ["BARE_SERVICE"], "127.0.0.2"], stdout=null)
            try:
                wait_for(lambda: resolve("dns-proxy.internal", tries=1, wait=0.1), "an answer")
                bare_costs.append(microseconds_a_query(bare.pid))
            finally:
                bare.kill()
                bare.wait()
            with Host("--server", "127.0.0.2", "--map", "dns-proxy.internal=127.0.0.53") as host:
                host.serving()
                off_costs.append(microseconds_a_query(host.child()))
        bare, off = min(bare_costs), min(off_costs)
        print(f"  processor time a query: {bare:.1f} us into /dev/null without a host, {off:.1f} us with")
        if not hosting.SANITIZED:
            self.assertLess(off, 1.1 * bare)

    def test_nobody_asks_hardly_anybody_wakes_and_a_hang_and_the_next_query_are_noticed(self):
        first, second = self.upstream("127.0.0.2"), self.upstream("127.0.0.3")
        with Host("--server", "127.0.0.2", "--server", "127.0.0.3") as host:
            host.serving()
            began = time.monotonic()

            def over(seconds):
                child = host.child()
                time.sleep(0.2)  # until what has told that sleeps again
                before = switches(host.process.pid), switches(child)
                time.sleep(seconds)
                after = switches(host.process.pid), switches(child)
                return [(b - a) / seconds for a, b in zip(before, after)]

            busy = over(2)
            # After ten seconds it is asked every nine: here in the middle between two probes.
            time.sleep(began + 14 - time.monotonic())
            questions = first.questions, second.questions
            idle = over(9)
            print(f"  wake-ups a second: {busy[0]:.1f} host and {busy[1]:.1f} service at first, "
                  f"{idle[0]:.2f} and {idle[1]:.2f} after ten seconds without a query")
            self.assertLess(idle[0], busy[0])
            if not hosting.SANITIZED:  # a sanitizer may have a thread of its own in the process
                self.assertLessEqual(sum(idle), 0.4)
            self.assertEqual((first.questions, second.questions), questions, "nobody asks: neither does the host")

            began = time.monotonic()
            if hosting.hold_query_thread(host.child()):
                wait_for(lambda: host.restarts() == 1 and host.answers(), "a restart")
                print(f"  back after a hang: {time.monotonic() - began:.1f} s")
                self.assertLess(time.monotonic() - began, 30 if hosting.SANITIZED else 10)
                self.assertEqual(host.status()["last_restarts"][0]["why"], "service does not answer")

            # A server that falls silent while nobody asks.
            first.loss = 1.0
            seconds = hosting.seconds_to_an_answer()
            print(f"  names resolve {seconds:.1f} s after the first query")
            self.assertLess(seconds, 30 if hosting.SANITIZED else 5)


if __name__ == "__main__":
    hosting.main()
