#!/usr/bin/env python3
"""Measures how fast boxes become DataFrames, beside `vesk dump | pandas.read_csv`.

  PYTHONPATH=build/release/python python/bench/reading.py [--vesk COMMAND] [BOX...]

Without boxes it makes some: of the recorded telemetry in the folder that VESK_TEST_DATA names, and
random walks of 10, 100 and 1000 sensors, whose digits hardly compress. Both the time that passes is
measured, in which several processors decode a box, and the time that processors work on it; the
best of five runs counts, because others may be at work on the machine.
"""

import argparse
import glob
import io
import os
import resource
import subprocess
import tempfile
import time

import numpy as np
import pandas as pd

import vesk

ROWS = 3 * 3600
RUNS = 5


def make_box(base, sensors):
    chance = np.random.default_rng(sensors)
    moves = chance.random((ROWS, sensors)) < 0.2
    steps = np.where(moves, chance.integers(-9, 10, (ROWS, sensors)), 0)
    with vesk.Recorder(base) as recorder:
        recorder.sensors = [f"sensor.{number}" for number in range(sensors)]
        recorder.write_many(1700000000 + np.arange(ROWS), 50 + np.cumsum(steps, axis=0) / 8)


def make_boxes(folder, command):
    for text in sorted(glob.glob(os.path.join(os.environ.get("VESK_TEST_DATA", ""), "smd-*.kelt.gz"))):
        base = os.path.join(folder, os.path.basename(text).split(".")[0])
        subprocess.run([command, "import", base, text, "--samples", "36000"], check=True)
        yield base
    for sensors in (10, 100, 1000):
        base = os.path.join(folder, f"walks-{sensors}")
        make_box(base, sensors)
        yield base


def used():
    mine = resource.getrusage(resource.RUSAGE_SELF)
    children = resource.getrusage(resource.RUSAGE_CHILDREN)
    return mine.ru_utime + mine.ru_stime + children.ru_utime + children.ru_stime


def best(work):
    """The least seconds that passed, the least that processors worked, and the result."""
    passed = []
    worked = []
    for _ in range(RUNS):
        begin = time.perf_counter(), used()
        result = work()
        passed.append(time.perf_counter() - begin[0])
        worked.append(used() - begin[1])
    return min(passed), min(worked), result


def by_text(command, box):
    text = subprocess.run([command, "dump", box], check=True, stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL).stdout
    return pd.read_csv(io.BytesIO(text), index_col=0, dtype={0: str})


def measure(command, box):
    *direct, frame = best(lambda: vesk.Box(box).samples())
    *through_text, other = best(lambda: by_text(command, box))
    if not np.array_equal(frame.to_numpy(), other.to_numpy(dtype=np.float32), equal_nan=True):
        raise SystemExit(f"{box}: both ways do not give the same values")
    print(f"{os.path.basename(box):>20}, {frame.shape[1]:5} sensors, {frame.size:9} values:")
    for what, own, text in zip(("passing", "processor"), direct, through_text):
        print(f"{frame.size / own / 1e6:10.1f} million values in a {what} second, beside "
              f"{frame.size / text / 1e6:5.1f} by `dump | read_csv`: {text / own:5.1f} times as fast")


def main():
    words = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    words.add_argument("--vesk", default="build/release/cli/vesk", help="the command")
    words.add_argument("boxes", nargs="*", help="boxes of one set of sensors each")
    given = words.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        for box in given.boxes or make_boxes(folder, given.vesk):
            measure(given.vesk, box)


if __name__ == "__main__":
    main()
