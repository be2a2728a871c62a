#!/usr/bin/env python3
"""Reads the JSON of a benchmark run on standard input and prints, as a table, how many times its
floor each benchmark took: the median of X over the median of X_floor, in processor time, which
other work on the machine disturbs least.
"""
import json
import re
import sys


def medians(report):
    found = {}
    for run in report["benchmarks"]:
        if run.get("aggregate_name") == "median":
            name, _, size = run["run_name"].partition("/")
            found[name, int(re.match(r"\d+", size).group())] = run["cpu_time"], run["time_unit"]
    return found


def main():
    times = medians(json.load(sys.stdin))
    print("| what | size | library | floor | ratio |")
    print("|---|---:|---:|---:|---:|")
    for (name, size), (time, unit) in sorted(times.items()):
        for kind in ("_floor", "_reset_floor"):
            floor = times.get((name + kind, size))
            if floor:
                what = name if kind == "_floor" else f"{name}, stream reset"
                print(
                    f"| {what} | {size} | {time:.1f} {unit} | {floor[0]:.1f} {unit}"
                    f" | {time / floor[0]:.2f} |"
                )


if __name__ == "__main__":
    main()
