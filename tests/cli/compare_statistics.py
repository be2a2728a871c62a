#!/usr/bin/env python3
"""Compares what `vesk stats` and `vesk fetch` tell with what the samples themselves tell.

  compare_statistics.py raw BOX              the raw samples of BOX, as `vesk dump` prints them
  compare_statistics.py all BOX TELEMETRY    all of BOX, against the text telemetry it was made from
  compare_statistics.py intervals BOX TELEMETRY
                                             each interval of history in each output that has one
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


def number(text):
    """A number of CSV or JSON; None where it is missing."""
    return None if text in ("", "nan", None) else float(text)


def from_dump(box):
    for row in csv.DictReader(io.StringIO(vesk("dump", "--history", box), newline="")):
        span = tuple(datetime.strptime(row[key], "%Y%m%d:%H:%M:%S").strftime("%Y-%m-%dT%H:%M:%SZ")
                     for key in ("start", "end"))
        yield span[0], row["sensor"], {key: number(row[key]) for key in
                                       ("count", "min", "max", "mean", "first", "last", "stddev")}


STATISTICS = ("count", "min", "mean", "max", "stddev", "first", "last", "skewness", "kurtosis")


def from_fetch_csv(box):
    text = vesk("fetch", "--format", "csv", "--stat", ",".join(STATISTICS), box)
    for row in csv.DictReader(io.StringIO(text, newline="")):
        cells = {}
        for key, field in row.items():
            if row["kind"] == "interval" and key not in ("time", "kind", "seconds"):
                name, what = key.rsplit(" ", 1)
                cells.setdefault(name, {})[what] = number(field)
        for name, values in cells.items():
            yield row["time"], name, values


def from_fetch_json(box):
    for line in vesk("fetch", "--format", "jsonl", "--stat", ",".join(STATISTICS),
                     box).splitlines():
        row = json.loads(line)
        for name, values in row["values"].items():
            if row["kind"] == "interval":
                yield row["time"], name, values


def from_export(box):
    text = vesk("export", "--format", "csv", "--table", "intervals", box)
    for row in csv.DictReader(io.StringIO(text, newline="")):
        yield row["start"], row["sensor"], {key: number(row[key]) for key in
                                            ("count", "min", "max", "first", "last", "stddev")}


def from_export_json(box):
    for line in vesk("export", "--format", "jsonl", box).splitlines():
        row = json.loads(line)
        for name, values in row.get("values", {}).items():
            if row["kind"] == "interval":
                yield row["start"], name, values


def check_cell(place, found, right):
    """A deviation may be missing, but what is told is right, and possible beside the others."""
    for key in ("count", "min", "max", "first", "last"):
        assert single(found[key]) == right[key], (place, key, found, right)
    # That of the numbers of single precision with which all is told.
    grain = 2.0 ** -23 * max(abs(right["min"]), abs(right["max"]))
    mean = single(found["mean"]) if "mean" in found else right["mean"]
    assert right["min"] <= mean <= right["max"], (place, found, right)
    # Each value went through some additions of sums in single precision.
    assert abs(mean - right["mean"]) <= 64 * grain, (place, found, right)
    deviation = found.get("stddev")
    if right["min"] == right["max"]:
        assert deviation == 0, (place, found, right)
    elif deviation is not None:
        assert abs(deviation - right["stddev"]) <= 0.05 * right["stddev"], (place, found, right)
        limit = math.sqrt((right["max"] - mean) * (mean - right["min"]))
        assert deviation <= limit * (1 + 1e-6) + grain, (place, found, right)
    for key, tolerance in (("skewness", 0.1), ("kurtosis", 0.2)):
        if found.get(key) is not None:
            assert abs(found[key] - right[key]) <= tolerance * max(1, abs(right[key])), (
                place, key, found, right)
    return deviation is not None


def check_intervals(box, path):
    opened = gzip.open if path.endswith(".gz") else open
    with opened(path, "rt") as file:
        samples = list(telemetry(file))
    starts = sorted({start for start, _, _ in from_dump(box)})
    raw = next(telemetry(vesk("dump", box).splitlines()))[0]
    right = {}
    for start, end in zip(starts, starts[1:] + [raw]):
        right[start] = statistics(s for s in samples if start <= s[0] < end)
    for source in (from_dump, from_fetch_csv, from_fetch_json, from_export, from_export_json):
        cells = told = 0
        for start, name, found in source(box):
            if found.get("count"):
                cells += 1
                told += check_cell((source.__name__, start, name), found, right[start][name])
        assert cells == sum(len(each) for each in right.values()), (source.__name__, cells)
        print(f"{source.__name__}: {cells} intervals of sensors are right, "
              f"{cells - told} deviations missing")


if sys.argv[1] == "raw":
    check_raw(sys.argv[2])
elif sys.argv[1] == "intervals":
    check_intervals(sys.argv[2], sys.argv[3])
else:
    check_all(sys.argv[2], sys.argv[3])
