#!/usr/bin/env python3
"""Kills what writes to a box, again and again, and looks whether the box keeps its word.

  kill_test.py --vesk build/release/cli/vesk imports KILLS    `vesk import`, as fast as it goes
  kill_test.py --vesk build/release/cli/vesk records KILLS    `vesk record`, with events sent to it

The imports get a stream of vectors that are numbered, and tell each one that is in the box by
--acknowledge. They are killed (SIGKILL) at random moments: while they run, while they start, while
they recover what the kill before left behind. Then

  - every acknowledged vector is in the box, raw or in the history, and in order;
  - the box opens again, and `vesk check` finds it healthy after that;
  - no padding stands in for a lost sample;
  - the files never took more space than the shape of the box allows, looked at all the while.

The recordings get events; every event that was acknowledged is in the box or counted in its
history.

  --seconds S    end after so many seconds, with fewer kills
  --seed N       repeats a run, as far as moments can be repeated
"""

import argparse
import csv
import io
import json
import os
import random
import signal
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

from verdict import Failure, require

EPOCH = 1_600_000_000
SAMPLES = 24
INTERVALS = 4
# The sensors change with every so many vectors: few, many, and more than one write takes.
BLOCK = 8
WIDTHS = (3, 40, 620)
NAME = "::s{:05d}"
# Values that hardly compress.
POOL = [f"{random.Random(i).random():.6f}" for i in range(4096)]


def stamp(number):
    return time.strftime("%Y%m%d:%H:%M:%S", time.gmtime(EPOCH + number))


def number_of(text):
    moment = time.strptime(text, "%Y%m%d:%H:%M:%S")
    return int(round(time.mktime(moment) - time.timezone)) - EPOCH


def width_at(number):
    return WIDTHS[number // BLOCK % len(WIDTHS)]


def lines_from(number, chance):
    """The text telemetry from a vector on, without an end."""
    width = 0
    while True:
        if width_at(number) != width:
            width = width_at(number)
            names = ",".join(["::seq"] + [NAME.format(i) for i in range(1, width)])
            yield f"{stamp(number)},{names}\n"
        begin = chance.randrange(len(POOL) - width)
        yield f"{stamp(number)},{number},{','.join(POOL[begin:begin + width - 1])}\n"
        number += 1


def text_of(number, count):
    """The text telemetry of so many vectors."""
    text = ""
    for line in lines_from(number, random.Random(number)):
        if "::seq" not in line:
            count -= 1
        text += line
        if count == 0:
            return text


def deflated(size):
    """What a zlib stream of so many bytes takes at most."""
    return size + (size >> 12) + (size >> 14) + (size >> 25) + 13 + 16


def space_bound():
    """What the files of the box can take at most: the most that two generations of buffers and what
    a recovery writes beside them need."""
    widest = max(WIDTHS)
    names = deflated(32 + widest * (5 + len(NAME.format(0))))
    values = deflated(32 + 4 * widest)
    interval = deflated(128 + 32 * widest)
    current = 64 + SAMPLES * values + (SAMPLES // BLOCK + 2) * names
    history = 64 + 2 * INTERVALS * (interval + names)
    small_files = 6 * 4096
    torn = 3 * 8 * values
    return 2 * history + 4 * current + small_files + torn


class SpaceWatch(threading.Thread):
    """Remembers the most space that the files of a folder took."""

    def __init__(self, folder):
        super().__init__(daemon=True)
        self.folder = folder
        self.most = 0
        self.looks = 0
        self.ended = threading.Event()

    def look(self):
        total = 0
        for entry in os.scandir(self.folder):
            try:
                total += entry.stat().st_size
            except FileNotFoundError:
                pass
        self.most = max(self.most, total)
        self.looks += 1

    def run(self):
        while not self.ended.wait(0.002):
            self.look()


class ImportedBox:
    def __init__(self, vesk, folder, chance):
        self.vesk = vesk
        self.base = os.path.join(folder, "box")
        self.chance = chance
        self.acknowledged = 0
        self.duplicates = 0
        self.recoveries = 0

    def command(self):
        sync = self.chance.choice(["never", "never", "vector", "end"])
        return [self.vesk, "import", self.base, "-", "--utc", "--samples", str(SAMPLES),
                "--intervals", str(INTERVALS), "--sync", sync]

    def live_and_die(self):
        """One life of an import, ended by a kill. True when the kill came in time."""
        told, tells = os.pipe()
        process = subprocess.Popen(self.command() + ["--acknowledge", str(tells)],
                                   stdin=subprocess.PIPE, stderr=subprocess.PIPE,
                                   pass_fds=[tells])
        os.close(tells)
        feeder = threading.Thread(target=self.feed, args=(process.stdin, self.acknowledged + 1),
                                  daemon=True)
        feeder.start()
        first = b""
        if self.chance.random() < 0.7:
            first = os.read(told, 65536)
            time.sleep(self.chance.expovariate(1 / 0.04))
        else:
            time.sleep(self.chance.random() * 0.02)
        process.send_signal(signal.SIGKILL)
        text = first + self.rest_of(told)
        os.close(told)
        messages = process.stderr.read().decode()
        code = process.wait()
        feeder.join()
        process.stderr.close()
        require(code == -signal.SIGKILL, f"the import ended by itself with {code}: {messages}")
        self.take_acknowledgements(text.decode())
        self.recoveries += "recovered" in messages

    @staticmethod
    def rest_of(descriptor):
        text = b""
        while piece := os.read(descriptor, 65536):
            text += piece
        return text

    def feed(self, stream, number):
        chance = random.Random(number)
        try:
            for line in lines_from(number, chance):
                stream.write(line.encode())
        except (BrokenPipeError, ConnectionResetError):
            pass
        try:
            stream.close()
        except BrokenPipeError:
            pass

    def take_acknowledgements(self, text):
        for line in text.splitlines():
            if len(line) == 17:
                number = number_of(line)
                require(number == self.acknowledged + 1,
                        f"acknowledged {number} behind {self.acknowledged}")
                self.acknowledged = number

    def run(self, *words, text=""):
        return subprocess.run([self.vesk, *words], input=text, capture_output=True, text=True,
                              check=False)

    def live_and_end(self, vectors=1):
        """The next start, which ends by itself, and everything that must hold then."""
        text = text_of(self.acknowledged + 1, vectors)
        result = subprocess.run(self.command(), input=text, capture_output=True, text=True,
                                check=False)
        require(result.returncode == 0, f"the box does not open: {result.stderr}")
        self.recoveries += "recovered" in result.stderr
        self.acknowledged += vectors
        self.verify()

    def verify(self):
        checked = self.run("check", self.base)
        require(checked.returncode == 0, f"not healthy after a start:\n{checked.stdout}")
        dumped = self.run("dump", "--utc", self.base)
        require(dumped.returncode == 0, dumped.stderr)
        history = self.run("dump", "--utc", "--history", self.base)
        require(history.returncode == 0, history.stderr)
        last, total = self.verify_history(history.stdout)
        last, samples = self.verify_raw(dumped.stdout, last)
        require(last >= self.acknowledged, f"{self.acknowledged} is lost, {last} is the last")
        self.duplicates = total + samples - last

    @staticmethod
    def verify_history(text):
        last = 0
        total = 0
        for row in csv.DictReader(io.StringIO(text)):
            if row["sensor"] != "::seq":
                continue
            begin, end, count = float(row["first"]), float(row["last"]), int(row["count"])
            require(begin in (last, last + 1), f"the history goes from {last} to {begin}")
            require(row["min"] == row["first"] and row["max"] == row["last"],
                    f"out of order in the history: {row}")
            require(count >= end - begin + 1, f"{begin} to {end} in {count} samples")
            last = int(end)
            total += count
        return last, total

    @staticmethod
    def verify_raw(text, last):
        samples = 0
        for line in text.splitlines():
            moment, value = line.split(",", 2)[:2]
            if value.startswith("::"):
                continue
            require(value != "nan", f"padding behind {last}")
            number = int(float(value))
            require(number == number_of(moment), f"{value} at {moment}")
            require(number in (last, last + 1), f"{number} behind {last}")
            last = number
            samples += 1
        return last, samples


def kill_imports(arguments, folder, chance):
    box = ImportedBox(arguments.vesk, folder, chance)
    watch = SpaceWatch(folder)
    watch.start()
    began = time.monotonic()
    kills = 0
    starts = 0
    while kills < arguments.kills and time.monotonic() - began < arguments.seconds:
        box.live_and_die()
        kills += 1
        # Some kills come before the box was whole again after the kill before.
        if chance.random() < 0.5:
            box.live_and_end()
            starts += 1
    box.live_and_end()
    watch.ended.set()
    watch.join()
    watch.look()
    bound = space_bound()
    print(f"{kills} imports killed in {time.monotonic() - began:.1f} s, {box.acknowledged} vectors "
          f"acknowledged, 0 lost, {box.duplicates} written but not acknowledged; "
          f"{box.recoveries} starts had to recover something, {starts + 1} boxes verified")
    print(f"at most {watch.most} bytes on disk in {watch.looks} looks; {bound} are allowed")
    require(watch.most <= bound, "more space than allowed")
    require(box.duplicates <= kills, "more vectors than can be on their way at the kills")


class RecordedBox(threading.Thread):
    """A recording that is killed, with events that are sent to it meanwhile."""

    TYPE = "5"  # recordings write none of it by themselves

    def __init__(self, vesk, base, kills, seed):
        super().__init__()
        self.vesk = vesk
        self.base = base
        self.kills = kills
        self.chance = random.Random(seed)
        self.acknowledged = 0
        self.sent = 0
        self.error = None

    def command(self, *words):
        return [self.vesk, "record", self.base, "--samples", "4", "--intervals", "2",
                "--no-kernel-log", *words]

    def run(self):
        try:
            for _ in range(self.kills):
                self.live_and_die()
            self.end()
        except Failure as failure:
            self.error = failure

    def send(self):
        result = subprocess.run([self.vesk, "event", self.base, self.TYPE,
                                 f"event {self.sent}"], capture_output=True, text=True, check=False)
        self.sent += 1
        # With a note the event is only promised.
        self.acknowledged += result.returncode == 0 and not result.stderr

    def live_and_die(self):
        process = subprocess.Popen(self.command(), stderr=subprocess.PIPE, text=True)
        death = time.monotonic() + self.chance.random() * 3
        killer = threading.Timer(death - time.monotonic(), process.kill)
        killer.start()
        # No event on its own: without a recording the box would be written to by the sender.
        while time.monotonic() < death and not os.path.exists(self.base + ".sock"):
            time.sleep(0.005)
        while time.monotonic() < death - 0.05:
            self.send()
            time.sleep(self.chance.random() * 0.1)
        messages = process.stderr.read()
        code = process.wait()
        process.stderr.close()
        require(code == -signal.SIGKILL, f"the recording ended by itself with {code}: {messages}")

    def end(self):
        result = subprocess.run(self.command("--for", "1s"), capture_output=True, text=True,
                                check=False)
        require(result.returncode == 0, f"the box does not open: {result.stderr}")
        checked = subprocess.run([self.vesk, "check", self.base], capture_output=True, text=True,
                                 check=False)
        require(checked.returncode == 0, f"not healthy after a start:\n{checked.stdout}")
        told = subprocess.run([self.vesk, "info", "--json", self.base], capture_output=True,
                              text=True, check=False)
        report = json.loads(told.stdout)
        dumped = subprocess.run([self.vesk, "dump", "--events", self.base], capture_output=True,
                                text=True, check=False)
        found = report["history"]["events_by_type"][self.TYPE] + sum(
            line.split(",")[1] == self.TYPE for line in dumped.stdout.splitlines()[1:])
        require(found >= self.acknowledged,
                f"{self.acknowledged} events acknowledged, {found} in the box")


def kill_records(arguments, folder, chance):
    began = time.monotonic()
    boxes = min(arguments.kills, 6)
    each = -(-arguments.kills // boxes)
    recordings = [RecordedBox(arguments.vesk, os.path.join(folder, f"box{i}"), each,
                              chance.random()) for i in range(boxes)]
    for recording in recordings:
        recording.start()
    for recording in recordings:
        recording.join()
    for recording in recordings:
        if recording.error:
            raise recording.error
    print(f"{boxes * each} recordings killed in {time.monotonic() - began:.1f} s, "
          f"{sum(r.sent for r in recordings)} events sent, "
          f"{sum(r.acknowledged for r in recordings)} acknowledged, 0 lost")


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("--seconds", type=float, default=1e9)
    parser.add_argument("--seed", type=int, default=None)
    parser.add_argument("what", choices=["imports", "records"])
    parser.add_argument("kills", type=int)
    arguments = parser.parse_args()
    seed = arguments.seed if arguments.seed is not None else random.randrange(1 << 30)
    # In memory where there is such a folder: a kill leaves the cache of the kernel alone.
    parent = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    with tempfile.TemporaryDirectory(prefix="vesk-kill-", dir=parent) as folder:
        kill = kill_imports if arguments.what == "imports" else kill_records
        try:
            kill(arguments, folder, random.Random(seed))
        except Failure as failure:
            keep = tempfile.mkdtemp(prefix="vesk-killed-")
            for entry in os.scandir(folder):
                if entry.is_file():
                    Path(keep, entry.name).write_bytes(Path(entry.path).read_bytes())
            print(f"FAILED with --seed {seed}: {failure}\nthe box is kept in {keep}")
            return 1
    return 0


if __name__ == "__main__":
    os.environ["TZ"] = "UTC0"
    time.tzset()
    sys.exit(main())
