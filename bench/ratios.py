#!/usr/bin/env python3
"""Reads the JSON of a benchmark run on standard input and prints, as a table, how many times its
floor each benchmark took: the median of X over the median of X_floor, in processor time, which
other work on the machine disturbs least. Without X_floor, X is compared with what is left of its
name behind view_, telemetry_, mixed_ or mixed_view_.
"""
import json
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


def floor_of(name):
    plain = re.sub(r"^(view_|telemetry_|mixed_view_|mixed_)", "", name)
    return plain if plain != name else name + "_floor"


def main():
    times = medians(json.load(sys.stdin))
    print("| what | size | library | floor | ratio | 10^9 items/s |")
    print("|---|---:|---:|---:|---:|---:|")
    for (name, size), (time, unit, rate) in sorted(times.items()):
        floor = times.get((floor_of(name), size))
        if name.endswith("_floor"):
            continue
        floor_time = f"{floor[0]:.1f} {unit}" if floor else ""
        ratio = f"{time / floor[0]:.2f}" if floor else ""
        items = f"{rate / 1e9:.1f}" if rate else ""
        print(f"| {name} | {size} | {time:.1f} {unit} | {floor_time} | {ratio} | {items} |")


if __name__ == "__main__":
    main()
