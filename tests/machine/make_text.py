#!/usr/bin/env python3
"""Writes text telemetry that is hard on arithmetic, the same in every run: usual readings, floats that
are signalling NaNs in the other byte order, denormals, readings whose powers overflow, readings
between two floats, and missing ones.

usage: make_text.py LINES >TEXT
"""
import random
import struct
import sys
import time

SENSORS = 12
BEGIN = 1704067200


def float_from(bits):
    return struct.unpack(">f", struct.pack(">I", bits))[0]


def signalling_when_swapped(rng):
    head = rng.choice((0x3B, 0x3F, 0x42, 0x4C, 0xC2, 0x00))
    return float_from(head << 24 | rng.getrandbits(8) << 16 | (0x80 | rng.getrandbits(6)) << 8 | 0x7F)


def reading(rng, sensor):
    kind = rng.randrange(20)
    if kind == 0:
        return "nan"
    if kind == 1:
        return repr(rng.choice((-1, 1)) * rng.randint(1, 0x7FFFFF) * 2.0**-149)
    if kind == 2:
        return repr(rng.choice((-1, 1)) * 10.0 ** rng.uniform(-38, 38))
    if kind == 3:
        return repr((1 + 2.0**-24 + rng.choice((0.0, 2.0**-52))) * 2.0 ** rng.randint(-60, 60))
    if kind < 10:
        return repr(signalling_when_swapped(rng))
    return "%.9g" % rng.gauss(10.0**sensor / 1e3, 10.0**sensor / 1e4)


def main():
    rng = random.Random(20240101)
    print("20240101:00:00:00," + ",".join(f"::CPU{sensor}" for sensor in range(SENSORS)))
    for line in range(int(sys.argv[1])):
        moment = time.strftime("%Y%m%d:%H:%M:%S", time.gmtime(BEGIN + 5 * line))
        print(",".join([moment] + [reading(rng, sensor) for sensor in range(SENSORS)]))


if __name__ == "__main__":
    main()
