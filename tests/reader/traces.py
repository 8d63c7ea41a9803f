"""Made-up traces, and the reader that is tested."""

import os
import re
import subprocess

READER = os.environ["DNS_PROXY_TRACE"]
SANITIZED = bool(os.environ.get("SANITIZER"))
SERVERS = ("192.0.2.1", "192.0.2.2")

START = (b"func: StartDnsSrv(line:71) bind 127.0.0.1:53 success\n"
         b"func: StartDnsSrv(line:37) Add host map: a.internal -> 10.1.2.3\n"
         + b"".join(b"func: StartDnsSrv(line:80) Add SP DNS to list: %s\n" % server.encode() for server in SERVERS))
QUERY = b"func: RecvAndProcessPacketsFromLocalApps(line:46)"
ANSWER = b"func: RecvAndProcessPacketsFromDNSServer(line:57)"
DISPATCH = b"func: TryNextDNSQueryMethod(line:64)"


def dispatch(number, position, kind=0):
    return (DISPATCH + b"TryNextDNSQueryMethod: id: %d, bReasonIsTimeout:0\n" % number
            + DISPATCH + b" CurrentDNSMethodIndex: %d, DnsListSize:3\n" % position
            + (b"**********hostmap****TryNextDNSQueryMethod: iCurrentDNSMethodType:%d(0: dns, 1:hostmap)\n" % kind
               if position < 3 else DISPATCH + b" no more DNS methods, send no such name response\n"))


def asked(number, name):
    """A query for `name` that the host map does not know: it waits for the first server."""
    number %= 65536
    return (b"func: thread_query(line:146) ****QureyThread***: received dns request\n"
            + QUERY + b"FromAPP: received %d data from 127.0.0.1\n" % (len(name) + 18)
            + QUERY + b" pDNSHeader QuestionCount :1\n"
            + QUERY + b" received dns request............%s\n" % name
            + QUERY + b"FromAPP: the request domain is %s, id:%d\n" % (name, number)
            + dispatch(number, 0, 1) + dispatch(number, 1))


def received(server):
    return (b"func: thread_answer(line:125) AnswerThread: received dns response.\n"
            + ANSWER + b" FromDNSServer: recv 60 data from %s\n" % server.encode())


def answered(number, name, server=SERVERS[0]):
    return received(server) + ANSWER + (
        b" domain %s received answer -58.51.100.1 from %s, we have to delete id:%d\n"
        % (name, server.encode(), number % 65536))


def nobody(number, name):
    """Neither server knows it."""
    number %= 65536
    return b"".join(received(server) + ANSWER + b" rsp from: %s, id: %d, for : %s, no such name\n"
                    % (server.encode(), number, name) + dispatch(number, position)
                    for position, server in enumerate(SERVERS, 2))


def read(*arguments, trace=b"", **more):
    """What the reader writes to standard output; its standard input is `trace`."""
    done = subprocess.run([READER, *map(str, arguments)], input=trace, capture_output=True, check=False, **more)
    if done.returncode != 0 or done.stderr:
        raise AssertionError(f"status {done.returncode}: {done.stderr.decode()}")
    return done.stdout.decode()


def tables(summary):
    """The summary as {title: {label: numbers}}."""
    found = {}
    for block in summary.strip("\n").split("\n\n"):
        title, *rows = block.split("\n")
        found[title] = {label: [int(n.replace(",", "")) for n in numbers.split()] for numbers, label in
                        (re.fullmatch(r"((?: +[\d,]+)+)  (\S.*)", row).groups() for row in rows if row.strip()[:1].isdigit())}
    return found
