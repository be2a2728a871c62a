#!/usr/bin/env python3
"""The golden files beside a model of the recorder that was made from docs/file-format.md.

The lives are those of recorded_life.hpp and swapped_floats.hpp, told once more.
"""

import math
import os
import struct
import sys
import unittest
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, os.pardir, "twin"))

import model  # noqa: E402

BEGIN = 1704067200
MISSING = struct.unpack(">f", b"\x7f\xff\xff\xff")[0]
FLT_MAX = struct.unpack(">f", b"\x7f\x7f\xff\xff")[0]

CHAPTERS = (("1-created", 0), ("2-c00", 3), ("3-cc0", 6), ("4-ccc", 12), ("5-hcc", 13), ("6-rotated", 18),
            ("7-full", 24), ("8-rotated", 27), ("9-later", 46))


def vector(i):
    readings = [[b"cpu", 50 + 40 * ((i * 7) % 11) / 11.0], [b"ab", i + 0.5], [b"ba", -i / 3.0]]
    if i % 5 == 2:
        readings[1][1] = MISSING
    if 5 <= i < 9:
        readings.append([b"fan", 1000.0 - i])
    if i == 7:
        readings[0], readings[2] = readings[2], readings[0]
    if i >= 14:
        readings.append([b"disk /dev/sda", MISSING if i == 15 else 1e6 * i])
    if i == 16:
        readings += [[b"extremes", FLT_MAX], [b"tiny", 1e-42], [b"zero", -0.0], [b"infinity", math.inf]]
    if 20 <= i < 24:
        del readings[1]
    return tuple(name for name, _ in readings), [value for _, value in readings]


FLOATS_CHAPTERS = (("1-full", 24), ("2-rotated", 25), ("3-later", 60))
FLOATS_NAMES = (b"small", b"large", b"negative", b"denormal", b"tiny")


def swapped_floats(i):
    values = []
    for k, head in enumerate((0x3B, 0x4C, 0xC2, 0x00, 0x12)):
        third = 0x80 | (0x25 + 7 * i + 3 * k) & 0x3F
        last = 0xFF if (i + k) % 3 == 2 else 0x7F
        stored = bytes((head, (0x87 + 41 * i + 11 * k) & 0xFF, third, last))
        # In the other order it is a signalling NaN, or this life would show nothing.
        assert stored[3] & 0x7F == 0x7F and stored[2] & 0xC0 == 0x80
        values.append(struct.unpack(">f", stored)[0])
    return FLOATS_NAMES, values


def contents_of(path):
    with open(path, "rb") as file:
        data = file.read()
    contents = []
    while data:
        stream = zlib.decompressobj()
        contents.append(stream.decompress(data))
        assert stream.eof, path
        data = stream.unused_data
    return contents


class GoldenFiles(unittest.TestCase):
    def expect_same_files(self, chapter, disk):
        folder = os.path.join(HERE, chapter)
        self.assertEqual(set(os.listdir(folder)), set(disk))
        for name, expected in disk.items():
            path = os.path.join(folder, name)
            if isinstance(expected, bytes):
                with open(path, "rb") as file:
                    self.assertEqual(file.read(), expected, path)
            else:
                self.assertEqual(contents_of(path), expected.streams, path)

    def test_are_what_the_model_makes(self):
        disk = {}
        recorder = model.Recorder(disk, "r")
        recorder.create(4, 2)
        i = 0
        for chapter, end in CHAPTERS:
            while i < end:
                self.assertEqual(recorder.write_vector(BEGIN + 60 * i, *vector(i)), 0)
                if i % 3 == 2:
                    text = b"event %d" % i
                    self.assertEqual(recorder.write_tagged_event(1 + i % 5, BEGIN + 60 * i + 1, text), 0)
                i += 1
            with self.subTest(chapter):
                self.expect_same_files(chapter, disk)

    def test_are_what_the_model_makes_of_floats_that_swapped_are_signalling_nans(self):
        disk = {}
        recorder = model.Recorder(disk, "r")
        recorder.create(8, 2)
        i = 0
        for chapter, end in FLOATS_CHAPTERS:
            while i < end:
                self.assertEqual(recorder.write_vector(BEGIN + 60 * i, *swapped_floats(i)), 0)
                i += 1
            with self.subTest(chapter):
                self.expect_same_files(os.path.join("swapped_floats", chapter), disk)


if __name__ == "__main__":
    unittest.main()
