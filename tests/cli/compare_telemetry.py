#!/usr/bin/env python3
"""Compares two text telemetry files value by value: same sensors, same times, and for every value
the same single-precision number (or nan in both). Knows nothing of the command.

  compare_telemetry.py ORIGINAL DUMP                   all of it
  compare_telemetry.py --tail ORIGINAL DUMP            DUMP is the end of ORIGINAL
  compare_telemetry.py --history CSV ORIGINAL DUMP     the same, and CSV summarises what is before
"""

import argparse
import csv
import gzip
import math
import struct
import sys


def single(text):
    value = float(text)
    return math.nan if math.isnan(value) else struct.unpack("f", struct.pack("f", value))[0]


def rows_of(path):
    """(time, {sensor: value}) for each line of values."""
    opener = gzip.open if path.endswith(".gz") else open
    names = None
    with opener(path, "rt", encoding="utf-8") as lines:
        for line in lines:
            time, *fields = line.rstrip("\n").split(",")
            try:
                values = [single(field) for field in fields]
            except ValueError:
                names = fields
                continue
            if len(values) != len(names):
                sys.exit(f"{path}: {len(values)} values for {len(names)} sensors at {time}")
            yield time, dict(zip(names, values))


def same(one, other):
    return one == other or (math.isnan(one) and math.isnan(other))


def compare(original, dumped):
    if len(original) != len(dumped):
        sys.exit(f"{len(dumped)} rows instead of {len(original)}")
    count = 0
    for (time, wanted), (found_time, found) in zip(original, dumped):
        if time != found_time:
            sys.exit(f"time {found_time} instead of {time}")
        if list(wanted) != list(found):
            sys.exit(f"{time}: other sensors")
        for name, value in wanted.items():
            if not same(value, found[name]):
                sys.exit(f"{time} {name}: {found[name]} instead of {value}")
            count += 1
    return count


def near(one, other, scale):
    # The sums behind mean and deviation are kept in single precision.
    return abs(one - other) <= 1e-3 * max(abs(scale), 1e-6)


def check_interval(start, end, rows, stored):
    if set(stored) != set().union(*(values for _, values in rows)):
        sys.exit(f"{start} to {end}: other sensors than its rows have")
    for name, row in stored.items():
        values = [values[name] for _, values in rows
                  if name in values and not math.isnan(values[name])]
        if int(row["count"]) != len(values):
            sys.exit(f"{start} {name}: count {row['count']} instead of {len(values)}")
        if not values:
            continue
        mean = sum(values) / len(values)
        deviation = math.sqrt(sum((value - mean) ** 2 for value in values) / len(values))
        scale = max(abs(value) for value in values)
        exact = {"min": min(values), "max": max(values), "first": values[0], "last": values[-1]}
        for column, wanted in exact.items():
            if single(row[column]) != wanted:
                sys.exit(f"{start} to {end} {name}: {column} {row[column]} instead of {wanted}")
        if not near(float(row["mean"]), mean, scale):
            sys.exit(f"{start} {name}: mean {row['mean']} instead of {mean}")
        # The variance is a small difference of large sums: its error goes with the square. Where
        # that leaves nothing of it, it is missing.
        is_missing = row["stddev"] == "nan"
        off = abs(float(row["stddev"]) ** 2 - deviation ** 2)
        if not is_missing and off > 1e-3 * max(scale ** 2, 1e-12):
            sys.exit(f"{start} {name}: stddev {row['stddev']} instead of {deviation}")


def check_history(path, rows):
    """Every interval must summarise just the rows from its start to its end."""
    intervals = {}
    with open(path, newline="", encoding="utf-8") as lines:
        for row in csv.DictReader(lines):
            intervals.setdefault((row["start"], row["end"]), {})[row["sensor"]] = row
    at = 0
    for (start, end), stored in intervals.items():
        begin = at
        while at < len(rows) and rows[at][0] <= end:
            at += 1
        if begin == at or rows[begin][0] != start:
            sys.exit(f"the interval from {start} does not follow the one before")
        check_interval(start, end, rows[begin:at], stored)
    if at != len(rows):
        sys.exit(f"history ends at row {at}, raw samples begin at {len(rows)}")
    return len(intervals)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--tail", action="store_true")
    parser.add_argument("--history", metavar="CSV")
    parser.add_argument("original")
    parser.add_argument("dump")
    arguments = parser.parse_args()
    original = list(rows_of(arguments.original))
    dumped = list(rows_of(arguments.dump))
    before = 0
    if arguments.tail or arguments.history:
        before = len(original) - len(dumped)
    values = compare(original[before:], dumped)
    if arguments.history:
        intervals = check_history(arguments.history, original[:before])
        print(f"{intervals} intervals summarise {before} rows;", end=" ")
    print(f"{len(dumped)} rows, {values} values are the same")


if __name__ == "__main__":
    main()
