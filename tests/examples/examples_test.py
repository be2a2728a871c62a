#!/usr/bin/env python3
"""Runs the programs of examples/, each twice in a folder of its own, and kills the daemon.

  examples_test.py --source . --programs build/release/examples --vesk build/release/cli/vesk
                   --compiler cc --include build/release/include

The daemon is killed (SIGKILL) after a number of acknowledged samples that lies before, at and behind
each change of its files. Then the reader and `vesk check` find what was acknowledged, the next start
goes on, and SIGTERM ends it cleanly.
"""

import argparse
import csv
import json
import math
import os
import re
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

NAMES = ("room", "daemon", "reader", "summary")
MOST_LINES = 99
SAMPLES = 60  # in a file of the daemon's box
# Acknowledged samples of each start before it is killed.
KILLED_AFTER = (1, 2, 56, 60, 61, 62, 59, 120)
SECONDS = 120


class Failure(Exception):
    pass


def require(condition, text):
    if not condition:
        raise Failure(text)


class Examples:
    def __init__(self, words, folder):
        self.words = words
        self.folder = folder
        self.programs = Path(words.programs).resolve()
        self.vesk = Path(words.vesk).resolve()

    def run(self, name, *words, stdin="", codes=(0,)):
        program = self.vesk if name == "vesk" else self.programs / name
        done = subprocess.run([str(program), *words], cwd=self.folder, input=stdin, text=True,
                              capture_output=True, timeout=SECONDS, check=False)
        require(done.returncode in codes,
                f"{name} {words}: exit code {done.returncode}\n{done.stdout}{done.stderr}")
        return done.stdout

    def records(self, base):
        """The sums of what the reader sees, by role, and the values of the last sample."""
        sums = {"history": 0, "full": 0, "open": 0}
        last = {}
        for line in self.run("reader", base).splitlines():
            head = re.match(r".*\.z: (\w+), (\d+) records, (\d+) damaged places", line)
            if head:
                require(head[1] in sums and head[3] == "0", f"a healthy box, yet: {line}")
                sums[head[1]] += int(head[2])
            else:
                require(line.startswith("  "), f"neither a file nor a sample: {line}")
                last = dict(word.split("=") for word in line.split()[1:])
        return sums, last

    def samples(self, base):
        """How many are in the box, raw or counted in its history, and the values of the last one."""
        sums, last = self.records(base)
        counted = 0
        rows = list(csv.DictReader(self.run("vesk", "dump", "--history", base).splitlines()))
        for row in rows:
            counted += int(row["count"]) if row["sensor"] == "::daemon.samples" else 0
        require(2 * sums["history"] == len(rows), f"{sums['history']} intervals, {len(rows)} rows")
        return counted + sums["full"] + sums["open"], last


def check_sources(examples):
    source = Path(examples.words.source)
    readme = (source / "README.md").read_text(encoding="utf-8")
    shown = readme.split("```c\n", 1)[1].split("```", 1)[0]
    room = (source / "examples/room.c").read_text(encoding="utf-8")
    require(room[room.index("#include"):] == shown, "README.md shows another program than room.c")
    for name in NAMES:
        path = source / "examples" / f"{name}.c"
        text = path.read_text(encoding="utf-8")
        require(text.startswith("/*\n * "), f"{path} does not say what it shows")
        require(text.count("\n") <= MOST_LINES, f"{path} has {text.count(chr(10))} lines")
        subprocess.run([examples.words.compiler, "-std=c11", "-fsyntax-only", "-Wall", "-Wextra",
                        "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror",
                        "-I", examples.words.include, str(path)], check=True)
    print("sources: without a warning, short, and the one of README.md")


def check_room(examples):
    for expected in (10, 20):
        examples.run("room")
        sums, last = examples.records("room")
        require(sums == {"history": 0, "full": 0, "open": expected}, f"room: {sums}")
        require(last == {"::room.temperature_C": "22.4", "::room.humidity_percent": "40"},
                f"room: last sample {last}")
        examples.run("vesk", "check", "room")
    print("room: two runs, one box")


def check_reader(examples):
    """A link under the name of a buffer is told, and what it leads to is not read."""
    buffer = Path(examples.folder) / "room.1.cbuf.z"
    elsewhere = buffer.rename(buffer.with_name("elsewhere"))
    buffer.symlink_to(elsewhere)
    told = examples.run("reader", "room", codes=(3,))
    require(told == "room.1.cbuf.z: open, 0 records, 0 damaged places, a file cannot be opened\n",
            f"reader: {told}")
    elsewhere.replace(buffer)
    print("reader: a link is not followed")


def check_summary(examples):
    numbers = [((7 * i) % 31) / 4 for i in range(97)]
    lines = "".join(f"{number}\n" for number in numbers) + "nan\n"
    mean = sum(numbers) / len(numbers)
    deviation = math.sqrt(sum((number - mean) ** 2 for number in numbers) / len(numbers))
    first = examples.run("summary", "10", stdin=lines)
    require(first == examples.run("summary", "10", stdin=lines), "summary: two runs differ")
    require(first.count("part:") == 10, f"summary: {first}")
    whole = dict(field.split(" ") for field in first.splitlines()[-1][len("whole: "):].split(", "))
    exact = {"count": "97", "min": "0", "max": "7.5", "first": "0",
             "last": f"{numbers[-1]:g}"}
    require(exact.items() <= whole.items(), f"summary: {whole}")
    require(abs(float(whole["mean"]) - mean) < 1e-4, f"summary: mean {whole['mean']}, not {mean}")
    require(abs(float(whole["stddev"]) - deviation) < 1e-3,
            f"summary: stddev {whole['stddev']}, not {deviation}")
    examples.run("summary", "10", stdin="1\nmuch\n", codes=(1,))
    print("summary: parts merge into the whole")


def run_daemon(examples, until, how):
    """Starts the daemon, ends it after so many acknowledged samples; how many there were."""
    with subprocess.Popen([str(examples.programs / "daemon"), "d", "1"], cwd=examples.folder,
                          stdout=subprocess.PIPE, text=True) as daemon:
        acknowledged = 0
        for line in daemon.stdout:
            acknowledged += 1
            require(line == f"sample {acknowledged}\n", f"daemon: {line!r}")
            if acknowledged == until:
                os.kill(daemon.pid, how)
                how_ended = how
        require(acknowledged >= until, f"daemon ended by itself after {acknowledged} samples")
        code = daemon.wait(SECONDS)
    expected = -signal.SIGKILL if how_ended == signal.SIGKILL else 0
    require(code == expected, f"daemon: exit code {code}")
    return acknowledged


def check_daemon(examples):
    least = most = 0
    for kills, until in enumerate(KILLED_AFTER, 1):
        acknowledged = run_daemon(examples, until, signal.SIGKILL)
        # Before anything mends the box: nothing is missing, and no more than the one sample in
        # hand at each kill was not acknowledged.
        examples.run("reader", "d", codes=(0, 3))
        examples.run("vesk", "check", "d", codes=(0, 3))
        examples.run("vesk", "repair", "d")
        examples.run("vesk", "check", "d")
        least += acknowledged
        most += acknowledged + 1
        found, last = examples.samples("d")
        require(least <= found <= most,
                f"kill {kills}: {found} samples, {least} to {most} were acknowledged")
        require(float(last["::daemon.samples"]) >= acknowledged, f"kill {kills}: ends with {last}")
        least = most = found
    for _ in range(2):
        acknowledged = run_daemon(examples, 5, signal.SIGTERM)
        found, last = examples.samples("d")
        require(found == least + acknowledged, f"daemon: {found}, not {least} + {acknowledged}")
        require(int(last["::daemon.samples"]) == acknowledged, f"daemon: ends with {last}")
        examples.run("vesk", "check", "d")
        least = found
    info = json.loads(examples.run("vesk", "info", "--json", "d"))
    events = info["raw"]["events"] + info["history"]["events"]
    # Each start and each clean end; a kill comes before the event of its start at times.
    require(len(KILLED_AFTER) - 1 + 4 <= events <= len(KILLED_AFTER) + 4, f"daemon: {events} events")
    require(found > 4 * SAMPLES, "the history was never halved")
    print(f"daemon: {len(KILLED_AFTER)} kills, {found} samples, none missing")


def main():
    parser = argparse.ArgumentParser()
    for word in ("source", "programs", "vesk", "compiler", "include"):
        parser.add_argument(f"--{word}", required=True)
    words = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        examples = Examples(words, folder)
        try:
            check_sources(examples)
            check_room(examples)
            check_reader(examples)
            check_summary(examples)
            check_daemon(examples)
        except (Failure, subprocess.SubprocessError) as failure:
            print(failure, file=sys.stderr)
            return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
