#!/usr/bin/env python3
"""Prints the measurements with the goals beside them.

usage: table.py RESULTS INSTRUCTIONS      the JSON files of measure.py and count.py
"""

import json
import pathlib
import sys

import figures

WORDS = {True: "reached", False: "NOT REACHED", None: ""}


def generators(results):
    """Which load keeps the bare loop busier."""
    for name, load in results["generators"].items():
        rate = load["queries"] / load["passed"]
        busy = load["processor"] / load["passed"]
        yield (f"{name + ' against the bare echo':<32} {rate:>9,.0f} queries/s, "
               f"the echo busy for {busy:.0%} of the time")


def subjects(results):
    """Every measured program's cost a query."""
    for name, works in results["loads"].items():
        for work, loads in works.items():
            costs = sorted(figures.microseconds(loads))
            median = costs[len(costs) // 2]
            yield (f"{name:<18} {work:<10} {costs[0]:>7.2f} {median:>7.2f} {costs[-1]:>7.2f} "
                   f"{figures.busy(loads):>6.0%}")


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    results, instructions = (json.loads(pathlib.Path(name).read_text()) for name in sys.argv[1:])
    here = results["machine"]
    print(f"{here['processor']}, {here['processors']} processors, {here['system']}; "
          f"{results['rounds']} rounds of {results['queries']:,} queries; "
          f"load average {here['load_average']:.1f}")
    if figures.busy(results["loads"]["echo"]["host-map"]) < 0.8:
        print("THE MACHINE IS NOT IDLE: the load did not keep the bare echo busy. Measure again.")
    print("\nload generators (ours is `load`)")
    for line in generators(results):
        print(line)
    print(f"\nprocessor time, us a query {'least':>10} {'median':>7} {'most':>7} {'busy':>6}")
    for line in subjects(results):
        print(line)
    print()
    table = figures.rows(results, instructions)
    widths = [max(len(row[i]) for row in table) for i in range(3)]
    for what, figure, goal, reached in table:
        print(f"{what:<{widths[0]}}  {figure:<{widths[1]}}  {goal:>{widths[2]}}  {WORDS[reached]}")


if __name__ == "__main__":
    main()
