#!/usr/bin/env python3
"""The lab works: every program answers, the bare loops' trace is the service's, table, page and
plots come out. No time is looked at. Exit status 77 when the machine does not allow namespaces.

usage: lab_test.py PROGRAMS
"""

import json
import pathlib
import shutil
import subprocess
import sys
import tempfile

import measure

HERE = pathlib.Path(__file__).resolve().parent
DOCS = HERE.parent.parent / "docs"
REPORT = HERE.parent / "report"


def traced(programs, folder, program, questions):
    """The different trace lines of `program` after some queries of each question."""
    cell = measure.Cell(programs, program, "file", folder)
    lines = set()
    try:
        for question in questions:
            for _ in range(2):  # the second time the buffer holds nothing of what came before
                cell.ask("load", question, 200, 8)
            lines |= set(cell.ask("trace")["lines"])
    finally:
        cell.close()
    return {line for line in lines if not line.startswith("func: StartDnsSrv(")}


def same(what, bare, service):
    if bare != service:
        sys.exit(f"{what}: only the bare loop prints {sorted(bare - service)}, "
                 f"only the service {sorted(service - bare)}")


def main():
    programs = pathlib.Path(sys.argv[1]).resolve()
    if not measure.namespaces_allowed():
        print("skipped: needs network namespaces")
        return measure.SKIPPED
    host_map, forward = measure.HOST_MAP[1], measure.FORWARD[1]
    with tempfile.TemporaryDirectory() as folder:
        echo = traced(programs, folder, "bare_echo", [host_map])
        relay = traced(programs, folder, "bare_relay", [forward])
        same("host-map answer", echo, traced(programs, folder, "service", [host_map]))
        same("both", echo | relay, traced(programs, folder, "service", [host_map, forward]))
        print(f"the same {len(echo)} and {len(relay)} trace lines as the service")

        results = pathlib.Path(folder) / "results.json"
        subprocess.run([sys.executable, HERE / "measure.py", programs, results, "--smoke"],
                       check=True)
        recorded = HERE.parent / "instructions" / "recorded.json"
        docs = pathlib.Path(folder) / "docs"
        docs.mkdir()
        for page in ("benchmarks.md", "standard-output.md"):
            shutil.copy(DOCS / page, docs)
        subprocess.run([sys.executable, REPORT / "table.py", results, recorded], check=True)
        subprocess.run([sys.executable, REPORT / "page.py", results, recorded, docs], check=True)

        measured = (docs / "benchmarks.md").read_text()
        rounds = json.loads(results.read_text())["queries"]
        if f"1 rounds of {rounds} queries" not in measured:
            sys.exit("benchmarks.md does not hold this measurement")
        for plot in set(part.split(")")[0] for part in measured.split("](")[1:]):
            if plot.endswith(".svg") and "</svg>" not in (docs / plot).read_text():
                sys.exit(f"{plot} is not whole")
    return 0


if __name__ == "__main__":
    sys.exit(main())
