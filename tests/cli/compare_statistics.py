#!/usr/bin/env python3
"""Compares what `vesk stats` and `vesk fetch` tell with what the samples themselves tell.

  compare_statistics.py raw BOX              the raw samples of BOX, as `vesk dump` prints them
  compare_statistics.py all BOX TELEMETRY    all of BOX, against the text telemetry it was made from
"""

import csv
import gzip
import io
import json
import math
import struct
import subprocess
import sys
from datetime import datetime, timezone


def vesk(*words):
    return subprocess.run(["vesk", *words], check=True, stdout=subprocess.PIPE).stdout.decode()


def single(value):
    return struct.unpack("f", struct.pack("f", value))[0]


def telemetry(lines):
    """Time, as ISO 8601, and values by sensor, of each sample."""
    names = []
    for line in lines:
        time, *fields = line.rstrip("\n").split(",")
        try:
            values = [float(field) for field in fields]
        except ValueError:
            names = fields
            continue
        moment = datetime.strptime(time, "%Y%m%d:%H:%M:%S").replace(tzinfo=timezone.utc)
        yield moment.strftime("%Y-%m-%dT%H:%M:%SZ"), {
            name: single(value) for name, value in zip(names, values) if not math.isnan(value)}


def statistics(samples):
    """The sums are exact: math.fsum rounds once."""
    columns = {}
    for time, values in samples:
        for name, value in values.items():
            columns.setdefault(name, []).append((time, value))
    result = {}
    for name, column in columns.items():
        values = [value for _, value in column]
        n = len(values)
        mean = math.fsum(values) / n
        second, third, fourth = (math.fsum((v - mean) ** k for v in values) / n for k in (2, 3, 4))
        least, most = min(values), max(values)
        varies = least != most
        result[name] = {
            "count": n, "min": least, "mean": mean, "max": most,
            "stddev": math.sqrt(second) if varies else 0.0,
            "skewness": third / second ** 1.5 if varies else None,
            "kurtosis": fourth / second ** 2 if varies else None,
            "first": values[0], "last": values[-1],
            "min_time": next(t for t, v in column if v == least),
            "max_time": next(t for t, v in column if v == most),
        }
    return result


def near(one, other, tolerance):
    if one is None or other is None:
        return one is other
    return abs(one - other) <= tolerance * max(1e-30, abs(other))


def check_raw(box):
    samples = list(telemetry(vesk("dump", box).splitlines()))
    first = samples[0][0]
    right = statistics(samples)
    report = json.loads(vesk("stats", "--json", "--from", first, box))
    found = {s["sensor"]: s for s in report["sensors"] if s["count"] > 0}
    assert report["samples"] == len(samples), (report["samples"], len(samples))
    assert set(found) == set(right)
    for name, expected in right.items():
        sensor = found[name]
        for key in ("count", "min", "max", "first", "last"):
            assert sensor[key] == expected[key] or single(sensor[key]) == expected[key], (name, key)
        for key in ("min_time", "max_time"):
            assert sensor[key]["from"] == expected[key], (name, key, sensor[key], expected[key])
        for key in ("mean", "stddev"):
            assert near(sensor[key], expected[key], 1e-6), (name, key, sensor[key], expected[key])
        for key in ("skewness", "kurtosis"):
            assert near(sensor[key], expected[key], 1e-4), (name, key, sensor[key], expected[key])
    print(f"{len(right)} sensors, {len(samples)} samples: the statistics agree")
    check_fetch(box, first, samples)


def check_fetch(box, first, samples):
    rows = list(csv.DictReader(io.StringIO(vesk("fetch", "--format", "csv", "--from", first, box),
                                           newline="")))
    lines = [json.loads(line) for line in
             vesk("fetch", "--format", "jsonl", "--from", first, box).splitlines()]
    raw = [row for row in rows if row["kind"] == "raw"]
    assert len(raw) == len(samples) and len(rows) == len(lines)
    for row, (time, values) in zip(raw, samples):
        assert row["time"] == time
        read = {name: single(float(text)) for name, text in row.items()
                if name not in ("time", "kind", "seconds") and text}
        assert read == values, (read, values)
    for row, line in zip(rows, lines):
        assert (line["time"], line["kind"]) == (row["time"], row["kind"])
        for name, value in line["values"].items():
            assert row[name] == "" if value is None else float(row[name]) == value
    print(f"{len(rows)} rows: CSV, JSON and the samples agree")


def check_all(box, path):
    opened = gzip.open if path.endswith(".gz") else open
    with opened(path, "rt") as file:
        samples = list(telemetry(file))
    right = statistics(samples)
    report = json.loads(vesk("stats", "--json", box))
    found = {s["sensor"]: s for s in report["sensors"] if s["count"] > 0}
    assert set(found) == set(right)
    assert report["intervals"] > 0
    rough = 0
    for name, expected in right.items():
        sensor = found[name]
        for key in ("count", "first", "last", "min", "max"):
            assert sensor[key] == expected[key] or single(sensor[key]) == expected[key], (name, key)
        width = expected["max"] - expected["min"]
        assert abs(sensor["mean"] - expected["mean"]) <= 1e-5 * max(width, abs(expected["mean"]))
        assert sensor["min"] <= sensor["mean"] <= sensor["max"]
        if sensor["stddev_is_rough"]:
            rough += 1
        else:
            assert near(sensor["stddev"], expected["stddev"], 0.05), (name, sensor, expected)
        if sensor["skewness"] is not None:
            assert near(sensor["skewness"], expected["skewness"], 0.1), (name, sensor, expected)
        if sensor["kurtosis"] is not None:
            assert near(sensor["kurtosis"], expected["kurtosis"], 0.2), (name, sensor, expected)
    known = sum(s["kurtosis"] is not None for s in found.values())
    print(f"{len(right)} sensors over {report['intervals']} intervals and {report['samples']} "
          f"samples agree; {rough} rough, {known} with kurtosis")


if sys.argv[1] == "raw":
    check_raw(sys.argv[2])
else:
    check_all(sys.argv[2], sys.argv[3])
