#!/usr/bin/env python3
"""Writes the measured part of docs/benchmarks.md and docs/standard-output.md, and the plots.

usage: page.py RESULTS INSTRUCTIONS DOCS     two JSON files (measure.py, count.py) and a folder

In each page the text between <!-- measured --> and <!-- end of measured --> is replaced; the plots
go to DOCS/benchmarks/.
"""

import json
import pathlib
import statistics
import sys

import figures
import plots

BEGIN, END = "<!-- measured -->", "<!-- end of measured -->"

# Where standard output goes, in the order of the page: (measured as, in words).
OUTPUTS = [
    ("service-off", "off: opened for reading"),
    ("service", "`/dev/null`"),
    ("service-pipe", "pipe, read by `cat`"),
    ("service-large-file", "file, 64 KiB buffer"),
    ("service-file", "file"),
    ("service-terminal", "terminal"),
]


def markdown(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    lines += ["| " + " | ".join(row) + " |" for row in rows]
    return "\n".join(lines)


def machine(results, instructions):
    here = results["machine"]
    return (f"{here['processor']}, {here['processors']} processors, {here['system']}, "
            f"{instructions['environment']['compiler']}, {here['c_library']}; "
            f"{results['rounds']} rounds of {results['queries']:,} queries, "
            f"{results['window']} on their way at a time; load average {here['load_average']:.1f} "
            f"at the start; {here['date']}.")


def least(results, name, work):
    return min(figures.microseconds(results["loads"][name][work]))


def kernel_and_program(results, name, work):
    """Least processor time a query, split as the system's own clocks split it over all rounds."""
    loads = results["loads"][name][work]
    user, system = (sum(load[part] for load in loads) for part in ("user", "system"))
    cost = min(figures.microseconds(loads))
    part = user / (user + system) if user + system else 0
    return {"outside the kernel": cost * part, "in the kernel": cost * (1 - part)}


def benchmarks_page(results, instructions):
    words = {True: "reached", False: "**not reached**", None: ""}
    table = [(what, figure, goal, words[reached])
             for what, figure, goal, reached in figures.rows(results, instructions)]
    loads = [
        (name, work, f"{costs[0]:.2f}", f"{statistics.median(costs):.2f}", f"{costs[-1]:.2f}",
         f"{figures.busy(rounds):.0%}")
        for name, works in results["loads"].items() for work, rounds in works.items()
        for costs in [sorted(figures.microseconds(rounds))]]
    generators = [
        (name, f"{load['queries'] / load['passed']:,.0f}",
         f"{load['processor'] / load['passed']:.0%}")
        for name, load in results["generators"].items()]
    return "\n\n".join([
        f"Measured by `scripts/bench --report` on {machine(results, instructions)}",
        markdown(("work", "figure", "goal", ""), table),
        "Processor time a query in microseconds, and the part of the time for which the measured "
        "program had work:",
        markdown(("program", "work", "least", "median", "most", "busy"), loads),
        "Load generators against the bare echo loop (`load` is ours):",
        markdown(("generator", "queries a second", "echo busy"), generators)])


def output_page(results, instructions):
    rows = []
    for name, words in OUTPUTS:
        row = [words]
        for work in ("host-map", "forward"):
            cost, base = least(results, name, work), least(results, "service", work)
            row.append(f"{cost:.2f} ({100 * (cost / base - 1):+.0f} %)")
        rows.append(row)
    size = [load["trace_bytes"] / load["queries"]
            for work in ("host-map", "forward") for load in results["loads"]["service-file"][work]]
    half = len(size) // 2
    return "\n\n".join([
        f"Measured by `scripts/bench --report` on {machine(results, instructions)}",
        "Processor time a query in microseconds, of each one's quietest round, and the difference "
        "to `/dev/null`:",
        markdown(("standard output", "host-map answer", "forwarded query and its answer"), rows),
        f"A host-map answer writes {statistics.mean(size[:half]):,.0f} bytes of trace, a forwarded "
        f"query with its answer {statistics.mean(size[half:]):,.0f}."])


def draw(results, instructions, folder):
    folder.mkdir(exist_ok=True)
    counts = instructions["workloads"]
    names = {"host-map": "host-map answer", "forward-miss": "forward after a miss",
             "no-such-name": "no such name"}
    plot = {}
    plot["instructions"] = plots.stacked_bars(
        "Where the instructions of a query go", "instructions outside the kernel",
        [(words, figures.instructions_by_kind(counts[name])) for name, words in names.items()])
    plot["time"] = plots.stacked_bars(
        "Where the processor time of a query goes", "microseconds",
        [(words, kernel_and_program(results, name, work)) for words, name, work in (
            ("bare echo", "echo", "host-map"), ("echo that prints", "echo-traced", "host-map"),
            ("host-map answer", "service", "host-map"), ("bare relay", "relay", "forward"),
            ("relay that prints", "relay-traced", "forward"),
            ("forwarded query", "service", "forward"))])
    labels = ("host map / echo", "forward / relay", "host map / printing echo",
              "forward / printing relay", "host map: file / null", "forward: file / null")
    plot["ratios"] = plots.range_bars(
        "Ratio to the bare loop", "bar: quietest rounds; whisker: eight of ten rounds; red: goal",
        [(label, ratio.quietest, ratio.low, ratio.high, goal)
         for label, (_, ratio, goal) in zip(labels, figures.ratios(results))])
    plot["pending-cost"] = plots.stacked_bars(
        "Cost of a forwarded query, by requests pending", "microseconds",
        [(f"{level:,} pending", {"processor time of the quietest round": cost})
         for level, cost in figures.pending_costs(results).items()])
    plot["pending-memory"] = plots.stacked_bars(
        "Memory of the process, by requests pending", "MiB",
        [(f"{int(level):,} pending", {"resident": statistics.median(
            load["memory"]["resident"] for load in loads) / 2**20})
         for level, loads in results["pending"].items()])
    for name, text in plot.items():
        (folder / f"{name}.svg").write_text(text)


def replace(page, text):
    before, _, rest = page.read_text().partition(BEGIN)
    _, end, after = rest.partition(END)
    if not end:
        sys.exit(f"{page}: no place for what was measured")
    page.write_text(f"{before}{BEGIN}\n{text}\n{END}{after}")


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    results, instructions = (json.loads(pathlib.Path(name).read_text()) for name in sys.argv[1:3])
    docs = pathlib.Path(sys.argv[3])
    replace(docs / "benchmarks.md", benchmarks_page(results, instructions))
    replace(docs / "standard-output.md", output_page(results, instructions))
    draw(results, instructions, docs / "benchmarks")


if __name__ == "__main__":
    main()
