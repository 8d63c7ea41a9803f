"""What the measurements say: ratios, their spread, and the goals beside them.

A ratio is of two programs' processor time a query. `quietest` takes each one's quietest round,
which the machine's other work has disturbed least; the median and the spread are of the ratios round by
round, the two rounds being neighbours in time.
"""

import statistics


def microseconds(loads):
    """Processor time a query, round by round."""
    return [1e6 * load["processor"] / load["queries"] for load in loads]


class Ratio:
    def __init__(self, over, under):
        over, under = microseconds(over), microseconds(under)
        rounds = sorted(a / b for a, b in zip(over, under))
        self.quietest = min(over) / min(under)
        self.median = statistics.median(rounds)
        self.low, self.high = rounds[len(rounds) // 10], rounds[-1 - len(rounds) // 10]


def ratios(results):
    """(what, Ratio, goal) in the order of the table."""
    loads = results["loads"]
    host = lambda name: loads[name]["host-map"]
    forward = lambda name: loads[name]["forward"]
    return [
        ("host-map answer / bare echo", Ratio(host("service"), host("echo")), 1.35),
        ("forwarded query / bare relay", Ratio(forward("service"), forward("relay")), 1.40),
        ("host-map answer of dns_proxy_host / bare echo", Ratio(host("host"), host("echo")), 1.25),
        ("forwarded query of dns_proxy_host / bare relay",
         Ratio(forward("host"), forward("relay")), 1.15),
        ("host-map answer / bare echo that prints the lines",
         Ratio(host("service"), host("echo-traced")), None),
        ("forwarded query / bare relay that prints the lines",
         Ratio(forward("service"), forward("relay-traced")), None),
        ("host-map answer, trace into a file / /dev/null",
         Ratio(host("service-file"), host("service")), 1.08),
        ("forwarded query, trace into a file / /dev/null",
         Ratio(forward("service-file"), forward("service")), 1.08),
    ]


def pending_costs(results):
    """{level: quietest microseconds a forwarded query}, levels as numbers."""
    return {int(level): min(microseconds(loads)) for level, loads in results["pending"].items()}


def pending_memory(results):
    """{level: resident bytes more than before the requests}."""
    return {int(level): statistics.median(
        load["memory"]["resident"] - load["memory_before"]["resident"] for load in loads)
            for level, loads in results["pending"].items()}


def bytes_a_request(results):
    memory = pending_memory(results)
    levels = sorted(memory)
    return (memory[levels[-1]] - memory[levels[0]]) / (levels[-1] - levels[0])


def faults_a_query(results, work):
    loads = results["loads"]["service"][work]
    return sum(load["faults"] for load in loads) / sum(load["queries"] for load in loads)


def busy(loads):
    """The part of the time for which the measured program had work, of the quietest round."""
    load = min(loads, key=lambda load: load["processor"] / load["queries"])
    return load["processor"] / load["passed"]


def rows(results, instructions):
    """The table: (work, figure, goal, whether it is reached or None)."""
    table = []
    for what, ratio, goal in ratios(results):
        table.append((
            what,
            f"{ratio.quietest:.2f} "
            f"(median {ratio.median:.2f}, {ratio.low:.2f} to {ratio.high:.2f})",
            f"<= {goal:.2f}" if goal else "",
            ratio.quietest <= goal if goal else None))

    for workload, what, goal in (
            ("host-map", "instructions, host-map answer", 11000),
            ("forward-miss", "instructions, forward after a miss", 18000)):
        count = instructions["workloads"][workload]["total"]
        table.append((what, f"{count:,}", f"<= {goal:,}", count <= goal))

    costs = pending_costs(results)
    for level, cost in costs.items():
        figure = f"{cost:.2f} us ({100 * (cost / costs[0] - 1):+.1f} %)"
        flat = None if level == 0 else abs(cost / costs[0] - 1) <= 0.10
        goal = "" if level == 0 else "+- 10 %"
        table.append((f"forwarded query with {level:,} requests pending", figure, goal, flat))

    idle = results["idle_memory"]["resident"] / 2**20
    table.append(("memory, idle", f"{idle:.1f} MiB", "<= 4.7 MiB", idle <= 4.7))
    request = bytes_a_request(results)
    table.append(("memory, a pending request", f"{request:,.0f} bytes", "<= 8,416 bytes",
                  round(request) <= 8416))
    for work in ("host-map", "forward"):
        faults = faults_a_query(results, work)
        table.append((f"page faults a query, {work}", f"{faults:.4f}", "< 0.01", faults < 0.01))
    return table


# Where the instructions of a query go, by what the program calls in the libraries.
KINDS = {
    "printf": ("printf", "puts", "putchar", "_IO_putc", "fwrite", "vprintf"),
    "memory of records": ("operator new", "operator delete", "malloc", "free", "calloc", "realloc"),
    "address texts": ("inet_ntop", "inet_addr", "inet_pton"),
    "way into the kernel": ("select", "recvfrom", "sendto"),
}


def instructions_by_kind(workload):
    """{kind: instructions}; the last two are other library functions and the program's own code."""
    library = workload["library"]
    kinds = {kind: sum(library.get(name, 0) for name in names) for kind, names in KINDS.items()}
    named = {name for names in KINDS.values() for name in names}
    kinds["bytes and texts"] = sum(cost for name, cost in library.items() if name not in named)
    kinds["the program's own code"] = workload["total"] - sum(kinds.values())
    return kinds
