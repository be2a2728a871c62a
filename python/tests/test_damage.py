"""Damaged, hostile and half-written boxes: what is readable is returned with a warning, and nothing
ends the interpreter."""

import os
import random
import resource
import subprocess
import sys
import unittest
import warnings

import vesk
from boxes import BEGIN, BoxTest, fill

# How often a file is damaged; more of it with VESK_PYTHON_DAMAGE=20.
EFFORT = int(os.environ.get("VESK_PYTHON_DAMAGE", "1"))


def use(base):
    """Reads everything of a box; damage may be told, and nothing else may happen."""
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        warnings.simplefilter("ignore", vesk.DamageWarning)
        box = vesk.Box(base)
        found = box.samples_arrays()
        box.history_arrays(start="-1m")
        box.event_list()
        box.info()
        box.check()
        box.suspects()
    return found


def record(base):
    """Recovers a box and writes into it, past the next rotation."""
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        warnings.simplefilter("ignore", vesk.RecorderWarning)
        with vesk.Recorder(base, samples=8, intervals=2) as recorder:
            for row in range(9):
                recorder.write({"zeta": row}, time=BEGIN + 1000 + row)
            recorder.event(1, "after", time=BEGIN + 1010)


class Damage(BoxTest):
    def setUp(self):
        super().setUp()
        fill(self.base)
        self.whole = {name: self.read_bytes(name) for name in self.files()}

    def restore(self):
        for name in os.listdir(self.folder):
            os.unlink(os.path.join(self.folder, name))
        for name, content in self.whole.items():
            self.write_bytes(name, content)

    def bear(self, what):
        """Uses the damaged box, by reading and by writing, and mends it."""
        with self.subTest(what):
            try:
                use(self.base)
            except vesk.Error as reason:
                self.assertIn("box", str(reason))
            try:
                record(self.base)
                self.assertEqual(use(self.base).values[-1, 0], 8)
            except (vesk.Error, ValueError) as reason:  # it cannot be recovered, or has other sizes
                self.assertIn("box", str(reason))
        self.restore()

    def test_of_any_byte_is_borne(self):
        chance = random.Random(1)
        for name, content in self.whole.items():
            for _ in range(40 * EFFORT):
                at = chance.randrange(len(content))
                flipped = content[at] ^ 1 << chance.randrange(8)
                self.write_bytes(name, content[:at] + bytes([flipped]) + content[at + 1:])
                self.bear((name, at, flipped))

    def test_of_the_end_is_borne(self):
        chance = random.Random(2)
        for name, content in self.whole.items():
            for at in {0, 1, *(chance.randrange(len(content)) for _ in range(6 * EFFORT))}:
                self.write_bytes(name, content[:at])
                self.bear((name, at))

    def test_by_other_bytes_is_borne(self):
        chance = random.Random(3)
        for name, content in self.whole.items():
            for filler in (bytes(3000), chance.randbytes(3000), content[::-1], content + content):
                self.write_bytes(name, filler)
                self.bear((name, filler[:9]))
                self.write_bytes(name, content[:100] + filler + content[100:])
                self.bear((name, 100, filler[:9]))

    def test_by_missing_files_and_by_others_in_their_place_is_borne(self):
        for name in self.whole:
            path = os.path.join(self.folder, name)
            for put in (lambda: None, lambda: os.symlink("/dev/zero", path),
                        lambda: os.symlink("nowhere", path), lambda: os.mkfifo(path)):
                os.unlink(path)
                put()
                self.bear((name, put))

    def test_hides_nothing_but_what_it_struck(self):
        name = "box.7.cbuf.z"
        content = self.whole[name]
        middle = len(content) // 2
        self.write_bytes(name, content[:middle] + b"XXXX" + content[middle + 4:])
        with self.assertWarnsRegex(vesk.DamageWarning, "box.7.cbuf.z: .* bytes at "):
            found = vesk.Box(self.base).samples_arrays()
        self.assertGreaterEqual(len(found.times), 14)
        self.assertTrue(vesk.Box(self.base).info()["damaged"])

    def test_of_the_state_file_leaves_the_buffers_readable(self):
        self.write_bytes("box.state", b"")
        with self.assertWarnsRegex(vesk.DamageWarning, "reading the buffers that are there"):
            self.assertEqual(len(vesk.Box(self.base).samples_arrays().times), 16)

    def test_in_many_places_is_one_short_warning(self):
        with vesk.Recorder(self.folder + "/long", samples=1000, intervals=2) as recorder:
            for row in range(600):
                recorder.write({"a": row}, time=BEGIN + row)
        content = bytearray(self.read_bytes("long.1.cbuf.z"))
        content[200::90] = bytes(len(content[200::90]))
        self.write_bytes("long.1.cbuf.z", content)
        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always")
            vesk.Box(self.folder + "/long").samples_arrays()
        self.assertEqual(len(caught), 1)
        self.assertLess(len(str(caught[0].message)), 2000)
        self.assertEqual(caught[0].filename, __file__)


class Hostility(BoxTest):
    def test_of_names_and_texts_stays_text(self):
        hostile = ["\x1b]0;x\x07", "<script>", "a\nb", "\u202edrawer", "../../x", "'; drop", "=1+1"]
        with vesk.Recorder(self.base) as recorder:
            recorder.write({name: 1 for name in hostile}, time=BEGIN)
            recorder.event(1, "\x1b[2J", time=BEGIN)
        box = vesk.Box(self.base)
        self.assertEqual(box.samples_arrays().sensors, hostile)
        self.assertEqual(box.event_list()[0].text, "\x1b[2J")
        for name in hostile:
            self.assertEqual(box.samples_arrays(sensors=[name]).sensors, [name])

    def test_of_bytes_that_are_no_text_becomes_text(self):
        # Python writes no such name, so the bytes of one are exchanged; the length stays.
        import zlib
        with vesk.Recorder(self.base) as recorder:
            recorder.write({"name": 1, "other": 2}, time=BEGIN)
        content = self.read_bytes("box.1.cbuf.z")
        streams = b""
        while content:
            decoder = zlib.decompressobj()
            plain = decoder.decompress(content)
            content = decoder.unused_data
            streams += zlib.compress(plain.replace(b"name", b"n\xffm\xc0"))
        self.write_bytes("box.1.cbuf.z", streams)
        box = vesk.Box(self.base)
        self.assertEqual(box.samples_arrays().sensors, ["n\\xffm\\xc0", "other"])
        self.assertEqual(box.samples_arrays(sensors="n\\xffm\\xc0").values.tolist(), [[1]])
        "".join(box.samples_arrays().sensors).encode("utf-8")

    def test_of_ever_new_names_is_refused_before_memory_ends(self):
        # Each sample has a sensor of its own, so the table grows with the square of their number.
        with vesk.Recorder(self.base, samples=200000) as recorder:
            for row in range(10000):
                recorder.write({f"s{row}": row}, time=BEGIN + row)
        script = (
            "import sys, vesk\n"
            "try: print(vesk.Box(sys.argv[1]).samples_arrays().values.shape)\n"
            "except (MemoryError, vesk.Error) as reason: print('refused', reason)\n"
            "print(vesk.Box(sys.argv[1]).samples_arrays(sensors='s1').values.shape)\n"
        )

        def limit():
            resource.setrlimit(resource.RLIMIT_AS, (350 << 20, 350 << 20))

        ran = subprocess.run([sys.executable, "-c", script, self.base], preexec_fn=limit, check=True,
                             env={**os.environ, "OPENBLAS_NUM_THREADS": "1"},
                             capture_output=True, text=True)
        self.assertRegex(ran.stdout, r"^refused")
        self.assertIn("(10000, 1)", ran.stdout)


if __name__ == "__main__":
    unittest.main()
