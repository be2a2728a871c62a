#!/usr/bin/env python3
"""Measures the verbs of the command on one large box beside the bare zlib calls on the same bytes, and
beside rrdtool on the same values, interleaved, and prints a table: medians of processor time, megabytes
of text a second, and the ratio to the floor.

usage: command.py VESK FLOOR [--sensors N] [--vectors N] [--rounds N]

VESK is the command, FLOOR is bench_command_floor. Without rrdtool its rows are left out.
"""
import argparse
import os
import random
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile

EPOCH = 1_700_000_000
# The system counts processor time no finer.
SHORTEST = 0.001


def make_text(path, sensors, vectors):
    """Telemetry as machines give it: every sensor walks, and one in four stands still."""
    draw = random.Random(1)
    values = [50.0] * sensors
    with open(path, "w", encoding="ascii") as file:
        file.write(f"{EPOCH}," + ",".join(f"::machine.sensor{i}" for i in range(sensors)) + "\n")
        for t in range(vectors):
            for i in range(sensors):
                if i % 4:
                    values[i] += round(draw.gauss(0, 0.25) * 100) / 100
            file.write(f"{EPOCH + t}," + ",".join(f"{value:.2f}" for value in values) + "\n")


def processor_time(words, **streams):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(words, check=True, stderr=subprocess.DEVNULL, **streams)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


class Measurement:
    """What is run, each round once."""

    def __init__(self, options, folder):
        self.options, self.folder = options, folder
        self.text = self.path("telemetry.txt")
        self.base = self.path("box")
        self.buffer = f"{self.base}.1.cbuf.z"
        make_text(self.text, options.sensors, options.vectors)
        self.import_text(self.base)

    def path(self, name):
        return os.path.join(self.folder, name)

    def import_text(self, base):
        even = str(self.options.vectors + self.options.vectors % 2)
        return processor_time([self.options.vesk, "import", base, self.text, "--samples", even,
                               "--intervals", "2"])

    def import_anew(self):
        try:
            return self.import_text(self.path("other"))
        finally:
            for name in os.listdir(self.folder):
                if name.startswith("other"):
                    os.unlink(self.path(name))

    def read(self, verb, *words):
        with open(self.path("out"), "wb") as out:
            return processor_time([self.options.vesk, verb, self.base, *words], stdout=out)

    def floor(self, *words):
        return float(subprocess.run([self.options.floor, *words], check=True, capture_output=True,
                                    text=True).stdout)

    def rows(self):
        """The name of each row, what it runs, and the row that it is compared with."""
        yield "bare compression", lambda: self.floor("compress", self.buffer), None
        yield "import", self.import_anew, "bare compression"
        yield "bare inflate, writing the text", lambda: self.floor("inflate", self.buffer, self.text), None
        yield "dump", lambda: self.read("dump"), "bare inflate, writing the text"
        yield "zcat, counting lines", lambda: self.floor("lines", self.buffer), None
        for verb in ("info", "check", "repair"):
            yield verb, lambda verb=verb: self.read(verb), "zcat, counting lines"


class RoundRobinDatabase:
    """The same values in a round-robin database, which holds them once the database is made."""

    def __init__(self, measurement):
        self.measurement = measurement
        self.path = measurement.path("floor.rrd")
        options = measurement.options
        subprocess.run(["rrdtool", "create", self.path, "--step", "1", "--start", str(EPOCH - 1),
                        *(f"DS:s{i}:GAUGE:2:U:U" for i in range(options.sensors)),
                        f"RRA:AVERAGE:0.5:1:{options.vectors}"], check=True)
        with open(measurement.text, encoding="ascii") as lines:
            next(lines)
            for line in lines:
                subprocess.run(["rrdtool", "update", self.path, line.strip().replace(",", ":")],
                               check=True, stdout=subprocess.DEVNULL)

    def dump(self):
        return processor_time(["rrdtool", "dump", self.path, self.measurement.path("floor.xml")])

    def restore(self):
        return processor_time(["rrdtool", "restore", "-f", self.measurement.path("floor.xml"),
                               self.measurement.path("restored.rrd")])


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("vesk")
    parser.add_argument("floor")
    parser.add_argument("--sensors", type=int, default=1000)
    parser.add_argument("--vectors", type=int, default=10000)
    parser.add_argument("--rounds", type=int, default=3)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        measurement = Measurement(options, folder)
        rows = list(measurement.rows())
        if shutil.which("rrdtool"):
            database = RoundRobinDatabase(measurement)
            rows += [("rrdtool dump", database.dump, "dump"), ("rrdtool restore", database.restore, "import")]
        times = {name: [] for name, _, _ in rows}
        for _ in range(options.rounds):
            for name, run, _ in rows:
                times[name].append(run())
        megabytes = os.path.getsize(measurement.text) / 1e6
    print(f"{options.sensors} sensors x {options.vectors} vectors, {megabytes:.0f} MB of text, "
          f"{options.rounds} rounds\n")
    print("| what | processor time | MB of text/s | beside | ratio |")
    print("|---|---:|---:|---|---:|")
    for name, _, beside in rows:
        median = max(statistics.median(times[name]), SHORTEST)
        ratio = f"{median / max(statistics.median(times[beside]), SHORTEST):.2f}" if beside else ""
        print(f"| {name} | {median:.2f} s | {megabytes / median:.0f} | {beside or ''} | {ratio} |")


if __name__ == "__main__":
    sys.exit(main())
