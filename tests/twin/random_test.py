#!/usr/bin/env python3
"""Random vectors through recorders of many sizes, compared with the model after every write."""

import argparse
import math
import random
import struct
import sys
import time

import twin
from vesk_format import Malformed

SIZES = ((2, 2), (4, 2), (4, 4), (6, 2), (6, 6), (8, 4), (12, 4), (16, 8), (24, 12), (60, 4), (100, 20))
WIDTHS = (1, 1, 2, 3, 5, 8, 13, 40, 95, 96, 97, 130, 507, 508, 700)
ARRAYS = 8


def from_bits(bits):
    return struct.unpack(">d", struct.pack(">Q", bits))[0]


def any_value(rng, infinities):
    """A double that is hard on arithmetic, on rounding, or simply usual."""
    kind = rng.randrange(16 if infinities else 14)
    sign = rng.choice((-1.0, 1.0))
    if kind < 5:
        return rng.gauss(0, 1) * 10.0 ** rng.randint(-3, 6)
    if kind == 5:
        return float(rng.randint(-3, 3))
    if kind == 6:
        return sign * 0.0
    if kind == 7:  # no reading, whatever the sign and the payload
        return from_bits(0x7FF8000000000000 | rng.getrandbits(51) | rng.getrandbits(1) << 63)
    if kind == 8:  # denormal as a float
        return sign * rng.randint(1, 0x7FFFFF) * 2.0 ** -149
    if kind == 9:  # denormal as a double, or lost between two denormal floats
        return sign * rng.choice((5e-324, 2.0 ** -150, 2.0 ** -150 * (1 + 2.0 ** -52), 1.5 * 2.0 ** -149))
    if kind == 10:  # the fourth power underflows or overflows
        return sign * 10.0 ** rng.uniform(-38, 38)
    if kind == 11:  # half way between two floats, or next to it
        return sign * (1 + 2.0 ** -24 + rng.choice((0.0, 2.0 ** -23, 2.0 ** -52))) * 2.0 ** rng.randint(-100, 100)
    if kind == 12:
        return sign * 16777216.0 + rng.randint(-2, 2)
    if kind == 13:
        return sign * 3.4028234663852886e38
    return sign * rng.choice((math.inf, 1e300, 3.4028235677973366e38))


def any_name(rng):
    """A name of few letters, so that sums of bytes collide, or a long one, or one that is not ASCII."""
    kind = rng.randrange(20)
    if kind == 0:
        return bytes(rng.randint(1, 255) for _ in range(rng.randint(1, 30)))
    if kind == 1:
        return b"n" * rng.choice((2000, 2048, 3000, 10000))
    return bytes(rng.choice(b"abc") for _ in range(rng.randint(1, 9)))


def other_sensors(rng, pool, names):
    """Changes a sensor array a little or altogether."""
    names = list(names)
    kind = rng.randrange(5)
    if kind == 0:
        names.insert(rng.randint(0, len(names)), rng.choice(pool))
    elif kind == 1 and len(names) > 1:
        names.pop(rng.randrange(len(names)))
    elif kind == 2:
        rng.shuffle(names)
    elif kind == 3:
        names[rng.randrange(len(names))] = rng.choice(pool)
    else:
        names = rng.sample(pool, rng.randint(1, len(pool)))
    return tuple(names)


class Case:
    """One recorder from its creation to its end."""

    def __init__(self, seed, number):
        self.rng = rng = random.Random("%s.%d" % (seed, number))
        if number == 0:  # the largest vector there is
            self.samples, self.intervals, width, self.rotations = 2, 2, 10000, 2
        elif number == 1:  # many samples, few sensors
            self.samples, self.intervals, width, self.rotations = 300, 10, 2, 2
        else:
            self.samples, self.intervals = rng.choice(SIZES)
            width = rng.choice(WIDTHS)
            # A wide recorder rotates less, so that no case takes much longer than another.
            self.rotations = rng.randint(1, max(2, min(12, 3000 // (width * self.samples))))
        self.width = width
        if width == 10000:
            self.pool = [b"sensor.%d" % i for i in range(width)]
        else:
            self.pool = list(dict.fromkeys(any_name(rng) for _ in range(width)))
        self.change = rng.choice((0.0, 0.02, 0.3))
        self.restart = rng.choice((0.0, 0.02, 0.2))
        self.events = rng.choice((0.0, 0.0, 0.1, 0.5))
        self.infinities = rng.random() < 0.5
        self.orderly = rng.random() < 0.5

    def run(self, recorder):
        rng = self.rng
        recorder.create(self.samples, self.intervals)
        names = tuple(self.pool if self.width == 10000 else other_sensors(rng, self.pool, self.pool[:1]))
        seconds = rng.randint(1, 2 ** 31 - 1 - 100000)
        vectors = (self.rotations + 2) * self.samples + rng.randint(1, self.samples)
        for _ in range(vectors):
            if rng.random() < self.restart:
                self.interrupt(recorder)
            if rng.random() < self.change:
                names = tuple(rng.sample(names, len(names))) if self.width == 10000 else other_sensors(
                    rng, self.pool, names)
            identifier = rng.randrange(ARRAYS)
            recorder.sensors(identifier, names)
            seconds = seconds + 1 if self.orderly else rng.randint(-2 ** 31, 2 ** 31 - 1) or 1
            recorder.vector(identifier, seconds, [any_value(rng, self.infinities) for _ in names])
            while rng.random() < self.events:
                recorder.tagged_event(rng.randint(1, 5), seconds, any_name(rng))
        return vectors

    def interrupt(self, recorder):
        """Closes, or kills the process, and goes on."""
        kind = self.rng.randrange(8)
        if kind < 3 and recorder.model.live_file().streams:
            recorder.crash()
        else:
            recorder.close()
            if kind > 5:
                recorder.rewrite(self.rng)
        if kind == 7 and self.rng.random() < 0.2:
            recorder.create(self.samples, self.intervals)  # over the files that are there
        else:
            recorder.open()

    def __str__(self):
        return "%d samples, %d intervals, %d sensors, %d rotations" % (
            self.samples, self.intervals, len(self.pool), self.rotations)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    twin.add_arguments(parser)
    parser.add_argument("--seed", default="1", help="another seed gives other cases")
    parser.add_argument("--vectors", type=int, default=40000, help="ends after the case that reaches so many vectors")
    parser.add_argument("--case", type=int, help="runs this case only")
    arguments = parser.parse_args()

    started = time.monotonic()
    vectors = 0
    number = arguments.case or 0
    while vectors < arguments.vectors:
        case = Case(arguments.seed, number)
        recorder = twin.Twin(twin.command(arguments))
        try:
            vectors += case.run(recorder)
            recorder.end()
        except (twin.Mismatch, Malformed) as error:
            recorder.abandon()
            print("case %d (%s): %s" % (number, case, error))
            print("files: %s" % recorder.directory)
            print("repeat: python3 %s --driver %s --launcher '%s' --seed %s --case %d" % (
                sys.argv[0], arguments.driver, arguments.launcher, arguments.seed, number))
            return 1
        if arguments.case is not None:
            break
        number += 1
    print("%d vectors in %d cases, seed %s, %.0f s" % (
        vectors, number, arguments.seed, time.monotonic() - started))
    return 0


if __name__ == "__main__":
    sys.exit(main())
