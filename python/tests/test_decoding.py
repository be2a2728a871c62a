"""Files are decoded in pieces, by another library than the command's: whatever they hold, the same
values are found, and the same damage is told at the same places."""

import random
import unittest
import zlib

import numpy

import vesk
from boxes import BEGIN, BoxTest, command, equal

ROWS = 3000
WIDTH = 200
ALWAYS = (-(1 << 62), False, 1 << 62, False)


def by_module(path):
    """Sensors, times, values and what was told."""
    return vesk._vesk.samples(path.encode(), [], *ALWAYS)


def by_command(path):
    """The same from the text that the command prints."""
    done = command("dump", path, "--utc", check=False)
    lines = done.stdout.splitlines()
    sensors = lines[0].split(",")[1:] if lines else []
    rows = [line.split(",") for line in lines[1:] if line]
    days = [f"{row[0][:4]}-{row[0][4:6]}-{row[0][6:8]}T{row[0][9:]}" for row in rows]
    times = numpy.array(days, dtype="datetime64[s]")
    values = numpy.array([row[1:] for row in rows], dtype=numpy.float32)
    told = [line.replace("vesk: ", "", 1) for line in done.stderr.splitlines()]
    return sensors, times.astype(numpy.int64), values.reshape(len(rows), len(sensors)), told


class Decoding(BoxTest):
    """Of a file that is long enough to be decoded by several processors."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.values = numpy.random.default_rng(1).random((ROWS, WIDTH), dtype=numpy.float32)

    def setUp(self):
        super().setUp()
        with vesk.Recorder(self.base, samples=ROWS, intervals=2) as recorder:
            recorder.sensors = [f"::sensor.{number}" for number in range(WIDTH)]
            recorder.write_many(BEGIN + numpy.arange(ROWS), self.values)
        self.name = next(name for name in self.files() if name.endswith("cbuf.z"))
        self.content = self.read_bytes(self.name)
        self.assertGreater(len(self.content), 1 << 21)

    def assert_agreement(self, what, path=None):
        path = path or f"{self.folder}/{self.name}"
        with self.subTest(what):
            sensors, times, values, told = by_module(path)
            wanted = by_command(path)
            self.assertEqual(told, wanted[3])
            self.assertEqual(sensors if len(times) else [], wanted[0] if len(times) else [])
            self.assertTrue(equal(times, wanted[1]))
            self.assertTrue(equal(values, wanted[2]) or not len(times))
        return told

    def streams(self):
        """Where the streams of the file begin, and its end."""
        at = [0]
        while at[-1] < len(self.content):
            decoder = zlib.decompressobj()
            decoder.decompress(self.content[at[-1]:])
            at.append(len(self.content) - len(decoder.unused_data))
        return at

    def try_content(self, what, content):
        self.write_bytes(self.name, content)
        return self.assert_agreement(what)

    def test_of_a_whole_file_gives_what_was_written(self):
        sensors, times, values, told = by_module(self.base)
        self.assertEqual(told, [])
        self.assertTrue(equal(times, BEGIN + numpy.arange(ROWS)))
        self.assertTrue(equal(values, self.values))

    def test_of_a_flipped_byte_tells_where_it_is(self):
        chance = random.Random(2)
        size = len(self.content)
        for at in [0, 1, size - 1, size // 4, size // 2] + [chance.randrange(size) for _ in range(5)]:
            content = bytearray(self.content)
            content[at] ^= 1 << chance.randrange(8)
            self.assertTrue(self.try_content(("flipped", at), content))

    def test_of_a_file_that_ends_early_or_late_tells_so(self):
        for what, content in (
            ("cut", self.content[:-1]),
            ("cut in the middle", self.content[:len(self.content) // 2]),
            ("a byte more", self.content + b"x"),
            ("the begin of a stream more", self.content + self.content[:1]),
            ("zeros", self.content + bytes(5000)),
            ("one byte", self.content[:1]),
        ):
            self.assertTrue(self.try_content(what, content))
        self.assertEqual(self.try_content("nothing", b""), [])

    def test_of_streams_that_a_recorder_did_not_write_is_that_of_the_command(self):
        places = self.streams()
        middle = places[len(places) // 2]
        other = zlib.compressobj(zdict=b"known before")
        for what, stream in (
            ("no record", zlib.compress(b"this is no record")),
            ("nothing", zlib.compress(b"")),
            ("stored in blocks", zlib.compress(bytes(100000), 0)),
            ("a dictionary", other.compress(b"known before") + other.flush()),
            ("a bomb", zlib.compress(bytes(30 << 20), 9)),
            ("wrong checksum", zlib.compress(b"\0\0\0\1")[:-1] + b"x"),
            ("raw deflate", zlib.compress(b"\0\0\0\1")[2:]),
            ("begins of streams", b"\x78\x9c" * 200000),
            ("many streams of nothing", zlib.compress(b"") * 2000),
        ):
            self.try_content(what, self.content[:middle] + stream + self.content[middle:])
            self.try_content((what, "alone"), stream)
            self.try_content((what, "last"), self.content + stream)

    def test_places_a_refused_record_in_the_file(self):
        places = self.streams()
        at = places[len(places) // 2]
        sample = zlib.decompress(self.content[at:places[len(places) // 2 + 1]])
        narrower = sample[:-4 * WIDTH - 4] + (1).to_bytes(4, "big") + sample[-4:]
        told = self.try_content("another width", self.content[:at] + zlib.compress(narrower)
                                + self.content[at:])
        self.assertEqual(len(told), 2, told)
        self.assertIn(f"{self.name}: the record at {at}:", told[0])

    def test_of_streams_in_another_order_is_that_of_the_command(self):
        places = self.streams()
        third = places[len(places) // 3]
        self.try_content("turned", self.content[third:] + self.content[:third])
        self.try_content("twice", self.content + self.content)
        self.try_content("without names", self.content[places[2]:])


class Content(BoxTest):
    """Of other forms than the usual one."""

    def assert_agreement(self):
        _, times, values, told = by_module(self.base)
        _, wanted_times, wanted, wanted_told = by_command(self.base)
        self.assertEqual(told, wanted_told)
        self.assertTrue(equal(times, wanted_times))
        self.assertTrue(equal(values, wanted))

    def test_that_shrinks_to_a_tenth_is_read(self):
        with vesk.Recorder(self.base, samples=1000, intervals=2) as recorder:
            recorder.sensors = [f"::sensor.{number}" for number in range(500)]
            recorder.write_many(BEGIN + numpy.arange(1000), numpy.zeros((1000, 500)))
        self.assert_agreement()

    def test_of_names_and_intervals_that_take_many_blocks_is_read(self):
        names = [f"::a.long.name.of.a.sensor.{number:0200}" for number in range(8000)]
        values = numpy.random.default_rng(3).random((21, len(names)), dtype=numpy.float32)
        with vesk.Recorder(self.base, samples=4, intervals=2) as recorder:
            recorder.sensors = names
            recorder.write_many(BEGIN + numpy.arange(len(values)), values)
        _, times, found, told = by_module(self.base)
        self.assertEqual(told, [])
        self.assertTrue(equal(found, values[-len(times):]))
        history = vesk.Box(self.base).history_arrays()
        self.assertGreater(len(history.starts), 0)
        for row, (start, end) in enumerate(zip(history.starts, history.ends)):
            begin, last = (int(time.astype(numpy.int64)) - BEGIN for time in (start, end))
            wanted = values[begin:last + 1].max(axis=0)
            self.assertTrue(equal(history.values["max"][row], wanted))


if __name__ == "__main__":
    unittest.main()
