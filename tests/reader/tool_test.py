"""The reader as a program: what it takes, what it writes, and what it costs."""

import contextlib
import os
import pathlib
import pty
import random
import re
import resource
import subprocess
import tempfile
import unittest

import traces
from traces import READER, START, answered, asked, nobody, read, tables

SOURCE = pathlib.Path(os.environ["DNS_PROXY_SOURCE"])


def some_queries(count, first=0):
    text = []
    for i in range(first, first + count):
        name = b"host%d.example" % (i % 97)
        text.append(asked(i, name) + (nobody(i, name) if i % 10 == 0 else answered(i, name)))
    return b"".join(text)


class Lines(unittest.TestCase):
    def test_every_documented_line_is_understood(self):
        page = (SOURCE / "docs/trace.md").read_text()
        lines = re.findall(r"^\| `([^`]*)\\n` \|", page, re.MULTILINE)
        self.assertGreater(len(lines), 50)
        functions = ("thread_query", "thread_answer", "RecvAndProcessPacketsFromLocalApps",
                     "RecvAndProcessPacketsFromDNSServer", "TryNextDNSQueryMethod", "ExtractDomain", "StartDnsSrv")
        # The page does not say whose line it is: one of these it has to be.
        ways = []
        for line in lines:
            text = line.replace("%d.%d.%d.%d", "1.2.3.4").replace("(line:%d)", "(line:7)")
            text = text.replace("TryNextDNSQueryMethod: %s: id", "TryNextDNSQueryMethod: 5: id")
            text = re.sub("%[du]", "5", re.sub("(?<!func: )%s", "192.0.2.1", text))
            ways.append([text.replace("%s", function) for function in functions])
        strange = read("--strange", trace="\n".join(sum(ways, [])).encode()).splitlines()
        self.assertEqual([way[0] for way in ways if set(way) <= set(strange)], [])
        self.assertGreater(len(strange), 200)

    def test_other_lines_are_counted_and_shown_without_what_draws_on_a_terminal(self):
        trace = START + b"\x1b]0;title\x07 hello\n" + b"x" * 100000 + b"\n\n"
        told = tables(read(trace=trace))
        self.assertEqual(told["The trace"]["lines not understood (--strange)"], [3])
        shown = read("--strange", trace=trace).split("\n")
        self.assertEqual(shown[0], r"\027]0;title\007 hello")
        self.assertEqual(len(shown[1]), 500)

    def test_ends_of_workers_are_told_by_why(self):
        trace = (START + traces.QUERY + b"FromAPP: query too short from 127.0.0.1\n"
                 + traces.QUERY + b"FromAPP: query too short from 127.0.0.1\n"
                 + traces.ANSWER + b" FromDNSServer: do_answer: answer too short: 5, from: 192.0.2.1\n"
                 b"func: thread_answer(line:130) RecvAndProcessPacketsFromDNSServer failed, exit.\n")
        self.assertEqual(tables(read(trace=trace))["Ends of workers, and starts that failed"],
                         {"query thread: a query too short": [2], "answer thread: an answer too short": [1]})

    def test_what_could_not_be_sent_is_told(self):
        host_map = traces.DISPATCH + b" find a.internal from hostmap, ip:10.1.2.3, req id:%d\n"
        mapped = asked(7, b"a.internal").split(traces.DISPATCH + b"TryNextDNSQueryMethod")
        trace = (START + asked(1, b"a.example") + b"TryNextDNSQueryMethod: id: 1,sendto failed: 101\n"
                 + asked(2, b"b.example") + traces.received("192.0.2.1") + traces.ANSWER + b" id: 2: sendto failed: 9\n"
                 + answered(2, b"b.example").split(b"\n", 2)[2]
                 + asked(3, b"c.example") + nobody(3, b"c.example")
                 + traces.DISPATCH + b"TryNextDNSQueryMethod: id: 3, sendto failed\n"
                 + (traces.DISPATCH + b"TryNextDNSQueryMethod").join(mapped[:2]) + host_map % 7
                 + traces.DISPATCH + b"DNS service: sendto for host map failed\n")
        told = [line.split(maxsplit=2)[1:] for line in read("--stories", trace=trace).splitlines()]
        told = {name: [part.strip() for part in rest.split("  ") if part] for name, rest in told}
        both = "map → 192.0.2.1 no such name → 192.0.2.2 no such name"
        self.assertEqual(told, {"a.example": ["map → 192.0.2.1 not sent", "not sent to the server"],
                                "b.example": ["map → 192.0.2.1 answered", "answer not delivered"],
                                "c.example": [both, "answer not delivered"],
                                "a.internal": ["map answered 10.1.2.3", "answer not delivered"]})

    def test_query_under_an_identifier_that_still_waits_is_dropped_and_the_older_goes_on(self):
        again = asked(65536, b"new.example").split(traces.DISPATCH)[0] + traces.dispatch(0, 1)
        trace = START + asked(0, b"old.example") + again + answered(0, b"old.example")
        dropped, goes_on = read("--stories", trace=trace).splitlines()
        self.assertRegex(dropped, r"^0      new\.example .*  dropped: identifier taken")
        self.assertRegex(goes_on, r"^0      old\.example .*  map → 192\.0\.2\.1 answered .*  answered by a server")

    def test_thread_that_stops_between_two_lines_finds_its_query_again(self):
        # The answer thread, in the middle of a dispatch, while the query thread goes through two.
        (first, rest) = traces.dispatch(1, 2).split(b"\n", 1)
        trace = (START + asked(1, b"a.example") + nobody(1, b"a.example").split(traces.DISPATCH)[0] + first + b"\n"
                 + asked(2, b"b.example") + rest + answered(1, b"a.example", traces.SERVERS[1]) + answered(2, b"b.example"))
        told = read("--stories", trace=trace)
        self.assertIn("map → 192.0.2.1 no such name → 192.0.2.2 answered", told)
        self.assertIn("map → 192.0.2.1 answered", told)
        self.assertNotIn("not shown", read(trace=trace))
        # The query thread, between the two lines that tell where a name ends.
        before, after = asked(3, b"line\nfeed").split(traces.QUERY + b"FromAPP: the request")
        others = (traces.received("192.0.2.1") + traces.ANSWER + b" rsp from: 192.0.2.1, id: 9, request not found\n") * 500
        trace = START + before + others + traces.QUERY + b"FromAPP: the request" + after
        self.assertIn("line\\010feed", read("--stories", trace=trace))

    def test_cut_anywhere_every_query_still_has_one_outcome(self):
        whole = START + some_queries(8) + b"dns_proxy_host: 7 trace lines lost here\n" + some_queries(3, 8)
        for cut in range(0, len(whole), len(whole) // 12):
            for text in (whole[:cut], whole[cut:], whole[:cut] + whole[cut + 300 :]):
                told = tables(read(trace=text))
                outcomes = {label: numbers[0] for label, numbers in told["Outcomes"].items()}
                self.assertEqual(outcomes.pop("all queries"), sum(outcomes.values()))
                self.assertEqual(told.get("The trace", {}).get("lines", [0]), [text.count(b"\n") + (text[-1:] not in (b"\n", b""))])
                self.assertLessEqual(sum(outcomes.values()), 11)

    def test_any_bytes_at_all_are_read_to_their_end_and_written_as_ascii(self):
        dice = random.Random(0)
        pieces = START.split() + asked(5, b"x").split() + [b" ", b"\n", b"\x1b", b"\xff", b"func: ", b"\r", b"%s"]
        for _ in range(6):
            trace = b"".join(dice.choice([dice.choice(pieces), dice.randbytes(3), b" "]) for _ in range(3000))
            for mode in ("--summary", "--stories", "--strange"):
                self.assertRegex(read(mode, trace=trace), r"\A[\n -~→]*\Z")


class Files(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def test_rotated_files_are_read_from_the_oldest_on_in_whichever_order_they_are_named(self):
        whole = START + some_queries(30)
        parts = [whole[i * len(whole) // 12 : (i + 1) * len(whole) // 12] for i in range(12)]
        names = [f"trace.{i}" for i in range(11, 0, -1)] + ["trace"]
        for name, part in zip(names, parts, strict=True):
            (self.folder / name).write_bytes(part)
        expected = read("--stories", trace=whole)
        self.assertEqual(expected.count("\n"), 30)
        self.assertEqual(read("--stories", *sorted(self.folder.iterdir())), expected)
        self.assertEqual(read("--stories", *sorted(self.folder.iterdir(), reverse=True)), expected)

    def test_a_file_that_is_not_there_and_a_bad_option_are_told(self):
        def refused(*arguments):
            done = subprocess.run([READER, *arguments], capture_output=True, text=True, stdin=subprocess.DEVNULL)
            return done.returncode, done.stdout, done.stderr

        status, out, err = refused("/nowhere")
        self.assertEqual((status, out), (1, ""))
        self.assertIn("/nowhere: No such file", err)
        self.assertEqual(refused("--what")[0], 2)
        self.assertEqual(refused("/proc", "--html", "/proc/x")[0], 1)  # a folder
        self.assertEqual(refused("/dev/null", "--html", "/nowhere/x")[0], 1)

    def test_name_chooses_stories_and_what_is_counted(self):
        trace = START + some_queries(97)
        self.assertEqual(read("--stories", "--name", "host9?.*", trace=trace).count("\n"), 7)
        self.assertEqual(tables(read("--name", "host96.example", trace=trace))["Outcomes"]["all queries"], [1])
        self.assertEqual(read("--stories", "--name", "nothing", trace=trace), "")

    def test_manual_page_is_clean_and_has_every_option_and_no_other(self):
        page = SOURCE / "packaging/dns_proxy_trace.1"
        done = subprocess.run(["mandoc", "-Tlint", "-Wwarning", page], capture_output=True, text=True)
        self.assertEqual((done.stdout, done.returncode), ("", 0))
        documented = {"--" + name for name in re.findall(r"^\.It Fl Fl ([a-z-]+)", page.read_text(), re.M)}
        self.assertEqual(documented, set(re.findall(r"--[a-z-]+", read("--help").split("Options:")[1])))


class Cost(unittest.TestCase):
    def test_memory_is_bounded_when_every_name_is_new_and_long_and_nobody_answers(self):
        with subprocess.Popen([READER, "--html", "/dev/null"], stdin=subprocess.PIPE) as reader:
            for i in range(30000 if not traces.SANITIZED else 3000):
                reader.stdin.write(asked(i, b"%d." % i + b"x" * 1000))
            reader.stdin.close()
            _, status, usage = os.wait4(reader.pid, 0)
            reader.returncode = os.waitstatus_to_exitcode(status)
        self.assertEqual(reader.returncode, 0)
        print(f"{usage.ru_maxrss / 1024:.0f} MB at the most")
        if not traces.SANITIZED:
            self.assertLess(usage.ru_maxrss, 250 * 1024)

    def test_fifty_megabytes_take_less_than_half_a_second_of_processor_time(self):
        if traces.SANITIZED:
            self.skipTest("a sanitizer's build is slower by an order of magnitude")
        with tempfile.NamedTemporaryFile() as file:
            part = some_queries(20000)
            for _ in range(50_000_000 // len(part) + 1):
                file.write(START + part)
            file.flush()
            before = resource.getrusage(resource.RUSAGE_CHILDREN)
            read(file.name)
            after = resource.getrusage(resource.RUSAGE_CHILDREN)
            seconds = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
            megabytes = os.path.getsize(file.name) / 1e6
        print(f"{megabytes / seconds:.0f} MB a second")
        self.assertGreater(megabytes / seconds, 100)

    def test_bar_on_a_terminal_shows_how_far_it_is_and_goes_at_the_end(self):
        ours, theirs = pty.openpty()
        with subprocess.Popen([READER], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=theirs) as reader:
            os.close(theirs)
            reader.stdin.write(some_queries(10000))
            reader.stdin.close()
            self.assertIn(b"10,000  all queries", reader.stdout.read())
        drawn = ""
        with contextlib.suppress(OSError):  # how a terminal ends
            while True:
                drawn += os.read(ours, 10000).decode()
        os.close(ours)
        self.assertRegex(drawn, r"\r\[\] 8 MB")
        self.assertTrue(drawn.endswith("\r\x1b[K"), drawn)


if __name__ == "__main__":
    unittest.main()
