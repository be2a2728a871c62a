#!/usr/bin/env python3
"""The decoder and the arithmetic of the model on their own."""

import math
import random
import struct
import unittest
import zlib
from fractions import Fraction

import model
import vesk_format


def nearest_float(x):
    """An exact number rounded to single precision, ties to even, by integers alone."""
    if x == 0:
        return 0.0
    magnitude = abs(x)
    exponent = max(-149, magnitude.numerator.bit_length() - magnitude.denominator.bit_length() - 25)
    while magnitude >= Fraction(2) ** (exponent + 24):
        exponent += 1
    scaled = magnitude / Fraction(2) ** exponent
    mantissa = scaled.numerator // scaled.denominator
    rest = scaled - mantissa
    if rest > Fraction(1, 2) or (rest == Fraction(1, 2) and mantissa & 1):
        mantissa += 1
    value = math.ldexp(mantissa, exponent)
    return math.copysign(value if value < 2.0 ** 128 else math.inf, x)


def any_float(rng):
    bits = rng.getrandbits(32)
    if rng.random() < 0.5:  # exponents near 1, so that operands interact
        bits = bits & 0x807FFFFF | rng.randint(110, 145) << 23
    value = struct.unpack(">f", struct.pack(">I", bits))[0]
    return value if math.isfinite(value) else 1.5


class Arithmetic(unittest.TestCase):
    def test_sums_and_products_of_floats_are_rounded_once(self):
        rng = random.Random(1)
        for _ in range(20000):
            a, b = any_float(rng), any_float(rng)
            total = model.single(a + b)
            self.assertEqual(total, nearest_float(Fraction(a) + Fraction(b)), (a.hex(), b.hex()))
            product = model.single(a * b)
            self.assertEqual(product, nearest_float(Fraction(a) * Fraction(b)), (a.hex(), b.hex()))

    def test_doubles_are_rounded_to_the_nearest_float(self):
        rng = random.Random(2)
        for _ in range(20000):
            x = any_float(rng) * (1 + rng.choice((0, 1, 2, 3)) * 2.0 ** -25 + rng.choice((0, 2.0 ** -52)))
            self.assertEqual(model.singles([x])[0], nearest_float(Fraction(x)), x.hex())

    def test_minimum_of_equal_values_is_that_of_the_later_interval(self):
        early, late = model.Hist(), model.Hist()
        early.update(0.0)
        late.update(-0.0)
        early.merge(late)
        self.assertEqual(math.copysign(1, early.minimum), -1)
        self.assertEqual(math.copysign(1, early.first), 1)

    def test_list_order_is_by_bucket_with_the_newest_first(self):
        table = model.SensorTable()
        for name in (b"ab", b"x", b"ba"):
            table.get(name)
        self.assertEqual(table.order(), (b"x", b"ba", b"ab"))
        table.clear()
        table.get(b"ab")
        self.assertEqual(table.order(), (b"ab",))
        table.get(b"ba")
        self.assertEqual(table.order(), (b"ba", b"ab"))


class Decoder(unittest.TestCase):
    HEADER = model.header(1, 2)
    NAMES = model.names_record(7, (b"a", b"b"))
    VALUES = model.values_record(7, [1.0, -0.0])

    def parse(self, *parts):
        return vesk_format.parse_buffer(b"".join(parts))

    def refuse(self, *parts):
        with self.assertRaises(vesk_format.Malformed):
            self.parse(*parts)

    def test_reads_the_records_of_a_current_buffer(self):
        event = model.u32(3) + model.bare_event(4, -5, b"text")
        buffer = self.parse(self.HEADER, self.NAMES, self.VALUES, event)
        self.assertEqual((buffer.kind, buffer.capacity), (1, 2))
        self.assertEqual(buffer.records, [
            vesk_format.Names(7, [b"a", b"b"]), vesk_format.Values(7, (1.0, -0.0)),
            vesk_format.Event(4, -5, b"text")])

    def test_stops_at_a_bare_event(self):
        buffer = self.parse(self.HEADER, self.NAMES, model.bare_event(4, 5, b"text"), self.VALUES)
        self.assertEqual((len(buffer.records), buffer.bare_event_at), (1, 9 + len(self.NAMES)))

    def test_reads_an_interval_without_counters(self):
        stored = model.interval_record(1, 2, [model.Hist()], model.NO_EVENTS)
        old = stored[:4] + b"\1" + stored[5:-21]
        buffer = self.parse(model.header(2, 2), model.names_record(1, (b"a",)), old, stored)
        self.assertEqual(buffer.records[1], buffer.records[2])

    def test_reads_the_counters_in_their_order(self):
        stored = model.interval_record(1, 2, [model.Hist()], {1: 10, 4: 40, 2: 20, 3: 30, 5: 50})
        self.assertEqual(stored[-20:], b"".join(map(model.u32, (10, 40, 20, 30, 50))))
        buffer = self.parse(model.header(2, 2), model.names_record(1, (b"a",)), stored)
        self.assertEqual(buffer.records[1].events, {1: 10, 2: 20, 3: 30, 4: 40, 5: 50})

    def test_refuses_what_is_malformed(self):
        self.refuse(b"\0\0\0\3", self.HEADER[4:])
        self.refuse(model.header(1, 0))
        self.refuse(model.header(1, 3))
        self.refuse(self.HEADER[:4], b"\2", self.HEADER[5:])
        self.refuse(self.HEADER, self.VALUES)
        self.refuse(self.HEADER, self.NAMES, self.VALUES * 3)
        self.refuse(self.HEADER, self.NAMES, model.values_record(7, [1.0]))
        self.refuse(self.HEADER, self.NAMES, model.u32(4))
        self.refuse(self.HEADER, model.names_record(7, ()))
        self.refuse(self.HEADER, model.names_record(7, (b"",)))
        self.refuse(self.HEADER, model.names_record(7, (b"a\0b",)))
        self.refuse(self.HEADER, model.names_record(7, (b"n" * 10001,)))

    def test_refuses_every_shortened_buffer(self):
        content = self.HEADER + self.NAMES + self.VALUES
        whole = {9, len(self.HEADER + self.NAMES), len(content)}
        for size in range(len(content)):
            if size not in whole:
                self.refuse(content[:size])

    def test_splits_streams_and_leaves_the_torn_one(self):
        first, second = zlib.compress(b"one"), zlib.compress(b"two")
        for cut in range(len(second)):
            streams, savepoint = vesk_format.split_streams(first + second[:cut])
            self.assertEqual([(s.start, s.end, s.content) for s in streams], [(0, len(first), b"one")])
            self.assertEqual(savepoint, len(first))
        with self.assertRaises(vesk_format.Malformed):
            vesk_format.split_streams(first + bytes(8))

    def test_refuses_a_state_file_with_other_sizes(self):
        recorder = model.Recorder({}, "r")
        recorder.create(4, 2)
        stored = recorder.disk["r.state"]
        self.assertEqual(vesk_format.parse_state(stored).paths, [b"r.1.cbuf.z"])
        for offset, number in ((17, 0), (17, 5), (21, 0), (21, 5), (25, 0), (25, 3), (29, 1)):
            changed = stored[:offset] + model.u32(number) + stored[offset + 4:]
            with self.assertRaises(vesk_format.Malformed):
                vesk_format.parse_state(changed)
        for size in range(len(stored)):
            with self.assertRaises(vesk_format.Malformed):
                vesk_format.parse_state(stored[:size])


if __name__ == "__main__":
    unittest.main()
