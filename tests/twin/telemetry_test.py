#!/usr/bin/env python3
"""Real telemetry through a recorder, compared with the model after every write.

The folder is named by the environment variable VESK_TEST_DATA; its text telemetry files (*.kelt, *.kelt.gz) are read.
"""

import argparse
import calendar
import glob
import gzip
import os
import random
import re
import sys
import time

import twin
from vesk_format import Malformed

SKIPPED = 77
HEADER_WORDS = re.compile(
    "SSC|ssc|SB|sb|Temp|temp|PS|ps|VDC|vdc|N0|n0|CORE|core|CPU|cpu|DISK|disk|READ|read|WRITE|write|IDLE|idle|"
    "V_|v_|T_|t_|POWER|power|PACKET|packet")
# Samples, intervals: the steps are a minute or five, so these are hours to a day.
SIZES = ((288, 12), (60, 4), (1440, 24))


def is_header(line):
    rest = line.lstrip("".join(map(chr, range(44, 59))))
    if rest.strip("\r\n") == "":
        return False
    before = len(line) - len(rest)
    return bool(HEADER_WORDS.search(rest)) or line[before - 2:before] == "::"


def vectors(path):
    """Seconds, names and values of each data line. The zone does not matter here, so it is UTC."""
    names = ()
    with (gzip.open if path.endswith(".gz") else open)(path, "rt", encoding="latin-1", newline="\n") as file:
        for line in file:
            fields = [field for field in re.split("[,\r\n]", line) if field]
            if is_header(line):
                names = tuple(field.encode("latin-1") for field in fields[1:])
            else:
                seconds = calendar.timegm(time.strptime(fields[0], "%Y%m%d:%H:%M:%S"))
                yield seconds, names, list(map(float, fields[1:]))


def record(recorder, path, samples, intervals, limit, rng):
    recorder.create(samples, intervals)
    count = 0
    for seconds, names, values in vectors(path):
        if count == limit:
            break
        recorder.sensors(0, names)
        recorder.vector(0, seconds, values)
        count += 1
        if rng.random() < 0.001:  # a reboot now and then
            recorder.crash()
            recorder.open()
    return count


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    twin.add_arguments(parser)
    parser.add_argument("--values", type=int, default=600000, help="ends each file after so many values")
    parser.add_argument("--seed", default="1")
    arguments = parser.parse_args()
    folder = os.environ.get("VESK_TEST_DATA")
    if not folder:
        print("skipped: VESK_TEST_DATA names no folder")
        return SKIPPED
    paths = sorted(glob.glob(os.path.join(folder, "*.kelt")) + glob.glob(os.path.join(folder, "*.kelt.gz")))
    if not paths:
        print("skipped: no text telemetry in %s" % folder)
        return SKIPPED
    for number, path in enumerate(paths):
        width = len(next(vectors(path))[1])
        samples, intervals = SIZES[number % len(SIZES)]
        started = time.monotonic()
        recorder = twin.Twin(twin.command(arguments))
        try:
            count = record(recorder, path, samples, intervals, arguments.values // width,
                           random.Random(arguments.seed))
            recorder.end()
        except (twin.Mismatch, Malformed) as error:
            recorder.abandon()
            print("%s: %s" % (path, error))
            print("files: %s" % recorder.directory)
            print("repeat: VESK_TEST_DATA='%s' python3 %s --driver %s --launcher '%s' --values %d --seed %s" % (
                folder, sys.argv[0], arguments.driver, arguments.launcher, arguments.values, arguments.seed))
            return 1
        print("%s: %d vectors, %d samples, %d intervals, %.0f s" % (
            os.path.basename(path), count, samples, intervals, time.monotonic() - started))
    return 0


if __name__ == "__main__":
    sys.exit(main())
