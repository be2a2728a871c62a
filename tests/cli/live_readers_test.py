#!/usr/bin/env python3
"""Reads a box again and again while an import at full speed makes its buffers take turns.

  live_readers_test.py --vesk build/release/cli/vesk READINGS

The box is healthy all the time, so every reading has to end with 0, say nothing on standard error
and show vectors without a gap: what left the raw samples is in the history. A gap between the two
kinds cannot be seen, because they are two readings.
"""

import argparse
import json
import os
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

from verdict import Failure

EPOCH = 1_600_000_000
SAMPLES = 8
INTERVALS = 2


def lines():
    """Numbered vectors, without an end. All have the same time but for its seconds of a day."""
    yield "20200101:00:00:00,::number,::more\n"
    number = 0
    while True:
        clock = f"{number // 3600 % 24:02}:{number // 60 % 60:02}:{number % 60:02}"
        yield f"20200101:{clock},{number},1\n"
        number += 1


class Import:
    """Runs until it is stopped, and is fed as fast as it takes."""

    def __init__(self, vesk, folder):
        self.process = subprocess.Popen(
            [vesk, "import", "box", "--samples", str(SAMPLES), "--intervals", str(INTERVALS),
             "--sync", "never"], cwd=folder, stdin=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.thread = threading.Thread(target=self.feed, daemon=True)
        self.thread.start()

    def feed(self):
        block = []
        try:
            for line in lines():
                block.append(line)
                if len(block) == 50:
                    self.process.stdin.write("".join(block).encode())
                    self.process.stdin.flush()
                    block.clear()
        except (BrokenPipeError, ValueError):
            pass

    def stop(self):
        if self.process.poll() is not None:
            raise Failure(f"the import ended by itself with {self.process.returncode}")
        self.process.terminate()
        self.process.wait(timeout=60)
        self.thread.join(timeout=60)


def require_a_row(numbers, what):
    for before, number in zip(numbers, numbers[1:]):
        if number != before + 1:
            raise Failure(f"{what}: {number} follows {before}")


def look_at_dump(output):
    numbers = [int(float(line.split(",")[1])) for line in output.splitlines()
               if "::number" not in line]
    require_a_row(numbers, "dump")
    if len(numbers) > 3 * SAMPLES:
        raise Failure(f"dump: {len(numbers)} samples are more than three buffers hold")


def look_at_history(output):
    """The last value of an interval is right before the first one of the next."""
    rows = [line.split(",") for line in output.splitlines() if ",::number," in line]
    for before, row in zip(rows, rows[1:]):
        if float(row[7]) != float(before[8]) + 1:
            raise Failure(f"dump --history: an interval from {row[7]} follows one to {before[8]}")


def look_at_info(output):
    found = json.loads(output)
    if found["damaged"] or found["state"]["error"] is not None:
        raise Failure(f"info: damaged: {output}")


def look_at_check(output):
    if json.loads(output)["verdict"] != "healthy":
        raise Failure(f"check: {output}")


def look_at_fetch(output):
    """Nothing is lost or doubled, also between history and the raw samples."""
    rows = [line.split(",") for line in output.splitlines()[1:]]
    for before, row in zip(rows, rows[1:]):
        if float(row[3]) != float(before[4]) + 1:
            raise Failure(f"fetch: a row from {row[3]} follows one to {before[4]}")


def look_at_export(output):
    """The same, in the lines of an export."""
    spans = []
    for row in map(json.loads, output.splitlines()):
        if row["kind"] == "interval":
            spans.append((row["values"]["::number"]["first"], row["values"]["::number"]["last"]))
        elif row["kind"] == "sample":
            spans.append((row["values"]["::number"],) * 2)
    for before, span in zip(spans, spans[1:]):
        if span[0] != before[1] + 1:
            raise Failure(f"export: {span} follows {before}")


def look_at_stats(output):
    sensor = json.loads(output)["sensors"][0]
    if sensor["count"] != sensor["last"] - sensor["first"] + 1:
        raise Failure(f"stats: {sensor}")


READINGS = (
    (["dump", "box"], look_at_dump),
    (["dump", "--history", "box"], look_at_history),
    (["dump", "--events", "box"], lambda output: None),
    (["info", "--json", "box"], look_at_info),
    (["check", "--json", "box"], look_at_check),
    (["fetch", "--sensor", "number", "--stat", "first,last", "--format", "csv", "box"],
     look_at_fetch),
    (["stats", "--sensor", "number", "--json", "box"], look_at_stats),
    (["events", "--json", "box"], json.loads),
    (["export", "--format", "jsonl", "box"], look_at_export),
)


def read_once(vesk, folder, reading):
    command, look_at = reading
    result = subprocess.run([vesk, *command], cwd=folder, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, timeout=60, check=False, text=True)
    if result.returncode != 0 or result.stderr:
        raise Failure(f"{' '.join(command)} ended with {result.returncode}: {result.stderr}"
                      f"{result.stdout if command[0] == 'check' else ''}")
    look_at(result.stdout)


def latest_number(folder):
    """The number of the newest buffer: about as many rotations there were."""
    return max((int(path.name.split(".")[1]) for path in Path(folder).glob("box.*.cbuf.z")),
               default=0)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("readings", type=int)
    arguments = parser.parse_args()
    os.environ["TZ"] = "UTC0"
    wrong = []
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    with tempfile.TemporaryDirectory(prefix="vesk-live-", dir=memory) as folder:
        writer = Import(arguments.vesk, folder)
        while latest_number(folder) < 10 and writer.process.poll() is None:
            time.sleep(0.01)
        for i in range(arguments.readings):
            try:
                read_once(arguments.vesk, folder, READINGS[i % len(READINGS)])
            except Failure as reason:
                wrong.append(str(reason))
        writer.stop()
        rotations = latest_number(folder)
    print(f"{arguments.readings} readings during about {rotations} rotations, "
          f"{len(wrong)} wrong")
    for text in wrong[:5]:
        print(text)
    if rotations < arguments.readings / 10:
        print("there were too few rotations for these readings to show anything")
        return 1
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
