"""What the tests of the Python package share: folders, boxes, and the command beside them."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest
import warnings

try:
    import numpy
except ImportError:
    print("skipped: numpy is not installed")
    sys.exit(77)

import vesk

BEGIN = 1700000000
COMMAND = os.environ.get("VESK", "vesk")
# No order of names or hashes is this one.
SENSORS = ["zeta", "alpha", "::m[0]", "beta", "::load_1"]


def value(row, column):
    """What a test box holds; None where a value is missing."""
    return None if (row + column) % 7 == 3 else row * 1.25 - column * 1000


def fill(base, rows=40, samples=8, intervals=2, begin=BEGIN, **options):
    """Makes a box with a history of it, unless it has fewer than 4 buffers of rows."""
    with vesk.Recorder(base, samples=samples, intervals=intervals, **options) as recorder:
        for row in range(rows):
            recorder.write(
                {name: value(row, column) for column, name in enumerate(SENSORS)}, time=begin + row
            )
            if row % 10 == 5:
                recorder.event(1 + row % 5, f"row {row}", time=begin + row)


def command(*words, check=True, **options):
    """Runs vesk with these words."""
    return subprocess.run(
        [COMMAND, *map(str, words)], check=check, capture_output=True, text=True, **options
    )


class BoxTest(unittest.TestCase):
    """A test with a folder of its own, in which every warning is expected."""

    def setUp(self):
        # In memory where that can be had: what is synced there costs no time.
        memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
        self.folder = tempfile.mkdtemp(prefix="vesk-python-", dir=memory)
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.base = os.path.join(self.folder, "box")
        catcher = warnings.catch_warnings()
        catcher.__enter__()
        self.addCleanup(catcher.__exit__, None, None, None)
        warnings.simplefilter("error")

    def files(self):
        """The files of the box by name, without its lock."""
        return sorted(name for name in os.listdir(self.folder) if not name.endswith(".lock"))

    def read_bytes(self, name):
        with open(os.path.join(self.folder, name), "rb") as file:
            return file.read()

    def write_bytes(self, name, content):
        with open(os.path.join(self.folder, name), "wb") as file:
            file.write(content)


def equal(found, wanted):
    """Whether two arrays are the same bits; all NaN are the same."""
    return found.shape == wanted.shape and numpy.array_equal(found, wanted, equal_nan=True)
