#!/usr/bin/env python3
"""Holds the pages of large boxes to their bounds: the size of the file, and the time of a browser.

  large_page_test.py --vesk PATH

A page of 100 sensors is made each time. With VESK_LARGE_PAGE=N in the environment, N samples of
1000 sensors are imported, too, all of them raw (20000 take a minute and 60 MB of disk, 1000000 a
quarter of an hour, 3 GB and as much memory), and the page is opened in a headless Chromium, moved
for five seconds, and its figures are printed. Bounds are on processor time, because a machine may
be busy with other things.
"""

import argparse
import json
import os
import random
import resource
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

import browser

VESK = None
LARGE = int(os.environ.get("VESK_LARGE_PAGE", "0"))
BEGIN = 1700000000
KINDS = ["busy_percent", "used_bytes", "reads_per_s", "C", "wait_seconds"]
IN_BLOCK = 50


class Telemetry:
    """Rows of values of which a third change at each sample. A million rows need blocks of values that
    were made beforehand and come again after 401, 403, 405, ... rows."""

    def __init__(self, sensors):
        self.names = [f"::group{i // 100}.part{i % 100 // 10}.s{i}_{KINDS[i % len(KINDS)]}"
                      for i in range(sensors)]
        chance = random.Random(1)
        self.blocks = [self._block(chance, 401 + 2 * (first // IN_BLOCK),
                                   min(IN_BLOCK, sensors - first))
                       for first in range(0, sensors, IN_BLOCK)]

    @staticmethod
    def _block(chance, rows, width):
        values = [chance.uniform(0, 90) for _ in range(width)]
        lines = []
        for _ in range(rows):
            values = [value if chance.random() > 1 / 3 else
                      min(100, max(0, value + chance.uniform(-1, 1))) for value in values]
            lines.append(",".join(f"{value:.4g}" for value in values))
        return lines

    def write(self, samples, out):
        def line(number, fields):
            moment = time.strftime("%Y%m%d:%H:%M:%S", time.gmtime(BEGIN + number))
            return f"{moment},{','.join(fields)}\n".encode()
        out.write(line(0, self.names))
        for number in range(samples):
            out.write(line(number, [block[number % len(block)] for block in self.blocks]))


def processor_time_of_children():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def vesk(*words, **options):
    return subprocess.run([VESK, *words], check=True, stdout=subprocess.PIPE,
                          env={**os.environ, "TZ": "UTC0"}, **options)


def make_page(folder, sensors, samples, *sizes):
    """The page, and the processor seconds that `report` took."""
    base = str(Path(folder) / "box")
    page = Path(folder) / "page.html"
    with subprocess.Popen([VESK, "import", base, "-", *sizes], stdin=subprocess.PIPE,
                          env={**os.environ, "TZ": "UTC0"}) as importer:
        Telemetry(sensors).write(samples, importer.stdin)
        importer.stdin.close()
    if importer.returncode != 0:
        raise RuntimeError("the import failed")
    before = processor_time_of_children()
    vesk("report", base, "-o", str(page))
    return page, processor_time_of_children() - before


class PageOfAHundredSensors(unittest.TestCase):
    def test_is_at_most_one_and_a_half_megabytes(self):
        with tempfile.TemporaryDirectory(prefix="vesk-large-") as folder:
            page, _ = make_page(folder, 100, 5000, "--samples", "1200", "--intervals", "240")
            size = page.stat().st_size
            told = json.loads(vesk("show", str(Path(folder) / "box"), "--json").stdout)
        self.assertEqual(told["sensors"], 100)
        self.assertGreater(told["history"]["intervals"], 200)
        # Smaller would be a page that does not hold what there is room for.
        self.assertGreater(size, 1_000_000)
        self.assertLessEqual(size, 1_500_000)


def metrics_of(reader):
    told = reader.command("Performance.getMetrics")["metrics"]
    return {one["name"]: one["value"] for one in told}


MOVE = """
window.frames = [];
const begin = performance.now();
const half = (boxEnd - boxBegin) / 2;
const step = () => {
  window.frames.push(performance.now());
  const from = boxBegin + half * (0.5 + 0.5 * Math.sin(window.frames.length / 20));
  showWindow(from, from + half);
  if (performance.now() - begin < 5000) {
    requestAnimationFrame(step);
  } else {
    window.moved = true;
  }
};
requestAnimationFrame(step);
"""


@unittest.skipIf(LARGE == 0, "VESK_LARGE_PAGE is not set")
@unittest.skipIf(browser.missing(), "there is no Chromium")
class PageOfAThousandSensors(unittest.TestCase):
    def test_is_quick_in_a_browser(self):
        with tempfile.TemporaryDirectory(prefix="vesk-large-") as folder, \
                browser.Browser() as reader:
            page, seconds = make_page(folder, 1000, LARGE, "--samples", str(-(-LARGE // 400) * 200),
                                      "--intervals", "200")
            size = page.stat().st_size
            print(f"report: {seconds:.1f} s of a processor, {size / 1e6:.1f} MB")
            reader.command("Performance.enable")
            self.open(reader, page)
            frame = self.move(reader)
        self.assertLess(size, 20_000_000)
        self.assertLess(frame, 1 / 30)

    def open(self, reader, page):
        reader.open(page.as_uri())
        reader.settle()
        paint = reader.run("return performance.getEntriesByName('first-contentful-paint')[0]"
                           ".startTime") / 1000
        usable = reader.run("return performance.getEntriesByType('navigation')[0]"
                            ".domContentLoadedEventEnd") / 1000
        used = metrics_of(reader)["ThreadTime"]
        print(f"first text after {paint:.2f} s, charts after {usable:.2f} s, of which "
              f"{used:.2f} s of a processor; load {os.getloadavg()[0]:.1f}")
        self.assertLess(used, 2)

    def move(self, reader):
        """The processor seconds of a frame."""
        reader.run("document.querySelector('.card').scrollIntoView()")
        reader.settle()
        before = metrics_of(reader)
        reader.run(MOVE)
        while not reader.run("return window.moved === true"):
            time.sleep(0.5)
        after = metrics_of(reader)
        frames = reader.run("return window.frames")
        frame = (after["ThreadTime"] - before["ThreadTime"]) / len(frames)
        rate = 1000 * (len(frames) - 1) / (frames[-1] - frames[0])
        print(f"moving: {rate:.0f} frames a second, {1000 * frame:.1f} ms of a processor for each; "
              f"load {os.getloadavg()[0]:.1f}")
        return frame


def main():
    global VESK
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--vesk", required=True)
    options, rest = parser.parse_known_args()
    VESK = str(Path(options.vesk).resolve())
    result = unittest.main(argv=[sys.argv[0], *rest], exit=False).result
    return 0 if result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
