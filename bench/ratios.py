#!/usr/bin/env python3
"""Reads the JSON of a benchmark run on standard input and prints, as a table, how many times its
floor each benchmark took: the median of X over the median of X_floor, in processor time, which
other work on the machine disturbs least, and how far single repetitions lie from that: the standard
deviation of both times together, in percent. A second floor of X is X_reset_floor. Without X_floor, X is
compared with what is left of its name behind view_, telemetry_, mixed_ or mixed_view_.
"""
import json
import math
import re
import sys


def medians(report):
    found = {}
    for run in report["benchmarks"]:
        if run.get("aggregate_name") == "median":
            name, _, size = run["run_name"].partition("/")
            found[name, int(re.match(r"\d+", size).group())] = (
                run["cpu_time"],
                run["time_unit"],
                run.get("items_per_second"),
            )
    return found


def spreads(report):
    """The coefficients of variation, by the same keys."""
    found = {}
    for run in report["benchmarks"]:
        if run.get("aggregate_name") == "cv":
            name, _, size = run["run_name"].partition("/")
            found[name, int(re.match(r"\d+", size).group())] = run["cpu_time"]
    return found


def floors_of(name):
    """What `name` is compared with: pairs of a label and a name, the first one always."""
    plain = re.sub(r"^(view_|telemetry_|mixed_view_|mixed_)", "", name)
    if plain != name:
        return [(name, plain)]
    return [(name, name + "_floor"), (f"{name}, stream reset", name + "_reset_floor")]


def main():
    report = json.load(sys.stdin)
    times, spread = medians(report), spreads(report)
    print("| what | size | library | floor | ratio | spread | 10^9 items/s |")
    print("|---|---:|---:|---:|---:|---:|---:|")
    for (name, size), (time, unit, rate) in sorted(times.items()):
        if name.endswith("_floor"):
            continue
        items = f"{rate / 1e9:.1f}" if rate else ""
        for number, (what, floor_name) in enumerate(floors_of(name)):
            floor = times.get((floor_name, size))
            if floor is None and number > 0:
                continue
            floor_time = f"{floor[0]:.1f} {unit}" if floor else ""
            ratio = f"{time / floor[0]:.2f}" if floor else ""
            both = math.hypot(spread.get((name, size), 0), spread.get((floor_name, size), 0))
            print(f"| {what} | {size} | {time:.1f} {unit} | {floor_time} | {ratio} | {both:.0%} | {items} |")


if __name__ == "__main__":
    main()
