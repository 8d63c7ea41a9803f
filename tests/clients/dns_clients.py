"""The clients: how each is asked, and what it says, without what differs from run to run."""

import os
import re
import select
import subprocess

import dns.exception
import dns.message
import dns.query
import dns.rcode

import private_network


class Said:
    """What a client has said: its exit status, the lines that matter, and the response code."""

    def __init__(self, status, lines, rcode=None):
        self.status = status
        self.lines = lines
        self.rcode = rcode

    def __eq__(self, other):
        return (self.status, self.lines, self.rcode) == (other.status, other.lines, other.rcode)

    def __repr__(self):
        return "\n".join([f"exit {self.status}", *self.lines])


def _run(command, **options):
    done = subprocess.run(
        command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
        **options
    )
    return done.returncode, done.stdout.splitlines()


# Identifiers, times, sizes in the footer, cookies, and the address that was asked.
_DIFFERS = re.compile(
    r"^(; <<>> |; \(\d server found\)|;; global options|;; Got answer|;; Query time|;; SERVER|"
    r";; WHEN|;; MSG SIZE|;; Received|;; Time|;; From|; COOKIE|; EDNS|;; EDNS|\s*$)"
)


def _tool_output(lines):
    """The output of dig, kdig or drill: notes, header, and `SECTION: record` lines."""
    kept = []
    rcode = None
    section = ""
    for line in lines:
        header = re.match(r";; ->>HEADER<<- .*(?:status|rcode): (\w+)", line)
        heading = re.match(r";; (\w+)(?: PSEUDO)? ?SECTION:", line)
        if header:
            rcode = header.group(1)
        elif heading:
            section = heading.group(1)
        elif _DIFFERS.match(line):
            continue
        elif re.match(r";; [Ff]lags:", line):
            kept.append(re.sub(r"\s+", " ", line).strip())
        elif line.startswith(";") and section == "QUESTION":
            continue
        elif line.startswith((";", "Error")):
            kept.append(re.sub(re.escape(private_network.SERVICE) + r"|" +
                               re.escape(private_network.UPSTREAM), "SERVER", line.strip("; ")))
        else:
            kept.append(f"{section}: {_record(line)}")
    return kept, rcode


def _record(line):
    name, _ttl, _class, kind, *data = line.split()
    if kind == "OPT":  # a cookie is in its data
        return "OPT"
    return " ".join([name, kind, *data])


class Dig:
    name = "dig"
    version = ["dig", "-v"]
    once = "+tries=1"

    def ask(self, server, name, kind, edns):
        status, lines = _run([self.name, f"@{server}", name, kind, self.once, "+time=10", "+ignore",
                              "+edns=0" if edns else "+noedns"])
        return Said(status, *_tool_output(lines))


class Kdig(Dig):
    name = "kdig"
    version = ["kdig", "-V"]
    once = "+retry=0"


class Drill:
    name = "drill"
    version = ["drill", "-v"]

    def ask(self, server, name, kind, edns):
        status, lines = _run(
            ["drill", *(["-b", "1232"] if edns else []), name, f"@{server}", kind]
        )
        return Said(status, *_tool_output(lines))


class Host:
    """Sends no EDNS and has no option for it."""

    name = "host"
    version = ["host", "-V"]

    def ask(self, server, name, kind, edns):
        assert not edns
        status, lines = _run(["host", "-W", "10", "-R", "1", "-t", kind, name, server])
        hex_dump = re.compile(r"^\d+ bytes$|^([0-9a-f]{2} ){2,}")
        about_server = re.compile(r"^(Using domain server:|Name: |Address: |Aliases: |$)")
        return Said(status, [line.strip("; ") for line in lines
                             if not hex_dump.match(line) and not about_server.match(line)])


class Getent:
    """glibc's own resolver. `kind` A: getent ahostsv4; AAAA: getent ahosts, which asks for both."""

    name = "getent"
    version = ["getent", "--version"]

    def __init__(self, folder):
        self._folder = folder

    def ask(self, server, name, kind, edns):
        database = {"A": "ahostsv4", "AAAA": "ahosts"}[kind]
        options = "edns0" if edns else ""
        with private_network.resolver_configuration(self._folder, server, options):
            status, lines = _run(["getent", database, name])
        # A line for each socket type; the order of addresses depends on the machine's own.
        return Said(status, sorted({line.split()[0] for line in lines}))


class Dnspython:
    name = "dnspython"
    version = None  # the module says it

    def ask(self, server, name, kind, edns):
        query = dns.message.make_query(name, kind, use_edns=0 if edns else None)
        try:
            answer = dns.query.udp(query, server, timeout=10)
        except dns.exception.DNSException as error:
            return Said(1, [f"{type(error).__name__}: {' '.join(str(error).split())}"])
        lines = [f"flags {answer.flags:04x}"]
        for section, records in (
            ("ANSWER", answer.answer),
            ("AUTHORITY", answer.authority),
            ("ADDITIONAL", answer.additional),
        ):
            for record_set in records:
                for line in record_set.to_text().splitlines():
                    lines.append(f"{section}: {_record(line)}")
        return Said(0, lines, dns.rcode.to_text(answer.rcode()))


class Busybox:
    """Sends no EDNS and has no option for it, as the three behind it."""

    name = "busybox"
    version = ["busybox"]

    def ask(self, server, name, kind, edns):
        assert not edns
        status, lines = _run(["busybox", "nslookup", f"-type={kind}", name, server])
        about_server = re.compile(r"^(Server:|Address:\s+127|Non-authoritative answer:|\s*$)")
        return Said(status, [" ".join(line.split()) for line in lines
                             if not about_server.match(line)])


class Musl:
    """getaddrinfo of the other C library, in a program that is made of lookup.c."""

    name = "musl"
    version = None  # see the package
    needs = "musl-gcc"

    def __init__(self, folder):
        self._folder = folder
        self._program = folder / "lookup"
        source = private_network.FOLDER / "lookup.c"
        subprocess.run(["musl-gcc", "-static", "-o", self._program, source], check=True)

    def ask(self, server, name, kind, edns):
        assert not edns
        with private_network.resolver_configuration(self._folder, server, ""):
            return Said(*_run([self._program, name, kind]))


class Node:
    """dns.resolve4 and resolve6, which are c-ares."""

    name = "node"
    version = ["node", "--version"]
    needs = "node"
    _program = """
const {Resolver} = require('dns');
const [server, name, kind] = process.argv.slice(1);
const resolver = new Resolver({timeout: 10000, tries: 1});
resolver.setServers([server]);
resolver.resolve(name, kind, (error, addresses) => {
  console.log(error ? error.code : addresses.join('\\n'));
  process.exitCode = error ? 1 : 0;
});"""

    def ask(self, server, name, kind, edns):
        assert not edns
        return Said(*_run(["node", "-e", self._program, server, name, kind]))


class CAres:
    """The library through its Python module."""

    name = "c-ares"
    version = None  # the module says it
    _EDNS = 1 << 8  # ARES_FLAG_EDNS, for which this module has no name

    def ask(self, server, name, kind, edns):
        import pycares

        channel = pycares.Channel(servers=[server], tries=1, timeout=10,
                                  flags=self._EDNS if edns else 0)
        said = []

        def answered(result, error):
            if error is not None:
                said.append(Said(1, [pycares.errno.errorcode[error]]))
            else:
                said.append(Said(0, sorted(record.host for record in result)))

        channel.query(name, getattr(pycares, f"QUERY_TYPE_{kind}"), answered)
        while not said:
            readable, writable = channel.getsock()
            select.select(readable, writable, [], channel.timeout())
            for descriptor in readable:
                channel.process_fd(descriptor, pycares.ARES_SOCKET_BAD)
        return said[0]


class Go:
    """The go command, whose resolver is Go's own. It asks for A and AAAA at once and always sends
    EDNS; what it has found shows where it would go, which leads nowhere here."""

    name = "go"
    version = ["go", "version"]
    needs = "go"

    def __init__(self, folder):
        self._folder = folder

    def ask(self, server, name, kind, edns):
        assert edns and kind == "A"
        environment = os.environ | {
            "GODEBUG": "netdns=go", "GOPROXY": "direct", "GONOSUMDB": "*", "GOTOOLCHAIN": "local",
            "GOPATH": str(self._folder), "GOFLAGS": "-mod=mod", "GOCACHE": str(self._folder)}
        with private_network.resolver_configuration(self._folder, server, ""):
            status, lines = _run(["go", "list", "-m", f"{name}/module@latest"], env=environment)
        told = re.search(r"dial tcp:? (.*)$", "\n".join(lines))
        return Said(status, [told[1] if told else " ".join(lines)])
