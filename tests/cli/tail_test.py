#!/usr/bin/env python3
"""Follows a box with `vesk tail -f` while an import makes its buffers take turns.

  tail_test.py --vesk build/release/cli/vesk [SAMPLES]

The samples are numbered. Each one has to be printed once and in its order: over many rotations, over
kills of the import and new starts of it, and over the recovery of a torn record. The feeder goes on
when its samples were printed, so the follower is never too late; where it is held back on purpose it
has to say so.
"""

import argparse
import json
import os
import random
import select
import signal
import subprocess
import sys
import tempfile
import time
import zlib
from pathlib import Path

from verdict import Failure, require

EPOCH = 1_600_000_000
SAMPLES = 8
TIME_LIMIT = 60


class Feeder:
    """An import that is fed through a pipe, and tells what is in the box."""

    def __init__(self, vesk, folder, sensors="::number", samples=SAMPLES):
        reading, writing = os.pipe()
        self.process = subprocess.Popen(
            [vesk, "import", "box", "--samples", str(samples), "--intervals", "2", "--sync",
             "never", "--acknowledge", str(writing)], cwd=folder, stdin=subprocess.PIPE,
            stderr=subprocess.PIPE, pass_fds=[writing])
        os.close(writing)
        self.acknowledged = os.fdopen(reading)
        self.write(f"{stamp(0)},{sensors}\n")

    def write(self, text):
        self.process.stdin.write(text.encode())
        self.process.stdin.flush()

    def feed(self, numbers, more=""):
        """Returns when all of them are in the box."""
        self.write("".join(f"{stamp(number)},{number}{more}\n" for number in numbers))
        for _ in numbers:
            require(self.acknowledged.readline(), "the import ended")

    def end(self):
        self.process.stdin.close()
        require(self.process.wait(timeout=TIME_LIMIT) == 0, self.process.stderr.read().decode())
        self.close()

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.process.stdin.close()
        self.close()

    def close(self):
        self.acknowledged.close()
        self.process.stderr.close()


class Follower:
    """Takes what `vesk tail` prints."""

    def __init__(self, vesk, folder, *words):
        self.process = subprocess.Popen([vesk, "tail", "box", *words], cwd=folder,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE, bufsize=0)
        self.rest = b""

    def line(self):
        end = time.monotonic() + TIME_LIMIT
        while b"\n" not in self.rest:
            ready, _, _ = select.select([self.process.stdout], [], [], end - time.monotonic())
            require(ready, "the next sample was not printed")
            more = self.process.stdout.read(65536)
            if not more:
                raise Failure(f"tail ended: {self.process.stderr.read().decode()}")
            self.rest += more
        line, self.rest = self.rest.split(b"\n", 1)
        return line.decode()

    def number(self):
        return int(json.loads(self.line())["values"]["::number"])

    def expect(self, numbers):
        for number in numbers:
            found = self.number()
            require(found == number, f"{found} was printed instead of {number}")

    def end(self, how=signal.SIGINT):
        self.process.send_signal(how)
        code = self.process.wait(timeout=TIME_LIMIT)
        rest = self.rest + self.process.stdout.read()
        messages = self.process.stderr.read().decode()
        self.process.stdout.close()
        self.process.stderr.close()
        require(not rest, f"{rest.decode()} was printed, too")
        require(code == 0, f"tail ended with {code}: {messages}")
        return messages


def stamp(number):
    return time.strftime("%Y%m%d:%H:%M:%S", time.gmtime(EPOCH + number))


def newest_buffer(folder):
    return max(Path(folder).glob("box.*.cbuf.z"), key=lambda path: int(path.name.split(".")[1]))


def follow_rotations(vesk, folder, samples):
    """Rotations, kills, torn records and new starts, in any order."""
    chance = random.Random(1)
    feeder = Feeder(vesk, folder)
    feeder.feed([0])
    follower = Follower(vesk, folder, "-f", "-n", "5", "--format", "jsonl")
    follower.expect([0])
    done = 1
    kills = 0
    while done < samples:
        numbers = range(done, min(samples, done + chance.randint(1, SAMPLES)))
        feeder.feed(numbers)
        follower.expect(numbers)
        done = numbers.stop
        if chance.random() < 0.1:
            feeder.kill()
            if chance.random() < 0.7:
                # As if the kill had come in the midst of a record.
                path = newest_buffer(folder)
                with open(path, "ab") as file:
                    file.write(path.read_bytes()[-chance.randint(3, 20):][:-2])
            feeder = Feeder(vesk, folder)
            kills += 1
    feeder.end()
    require(kills > 2, f"only {kills} kills")
    require(follower.end() == "", "tail had something to say")
    return int(newest_buffer(folder).name.split(".")[1])


def outlive_a_buffer(vesk, folder):
    """What was in a buffer that a rotation has deleted is printed all the same."""
    feeder = Feeder(vesk, folder)
    feeder.feed(range(4 * SAMPLES))
    follower = Follower(vesk, folder, "-f", "-n", "1", "--format", "jsonl")
    done = 4 * SAMPLES
    follower.expect([done - 1])
    for count in range(SAMPLES, 2 * SAMPLES + 1):
        follower.process.send_signal(signal.SIGSTOP)
        feeder.feed(range(done, done + count))
        follower.process.send_signal(signal.SIGCONT)
        follower.expect(range(done, done + count))
        done += count
    feeder.end()
    require(follower.end() == "", "tail had something to say")


def tell_losses(vesk, folder):
    """A follower that is too late says so, and goes on."""
    feeder = Feeder(vesk, folder)
    feeder.feed(range(5))
    follower = Follower(vesk, folder, "--follow", "-n", "2", "--format", "jsonl")
    follower.expect([3, 4])
    follower.process.send_signal(signal.SIGSTOP)
    feeder.feed(range(5, 100))
    follower.process.send_signal(signal.SIGCONT)
    before = 4
    while before < 99:
        found = follower.number()
        require(found > before, f"{found} was printed after {before}")
        before = found
    feeder.end()
    require("have gone into the history unseen" in follower.end(signal.SIGTERM), "no loss was told")


def follow_rewritten_buffers(vesk, folder):
    """A recovery may put another file of the same samples into the place of a buffer."""
    chance = random.Random(2)
    done = 0
    follower = None
    for level in (9, 1, 6, 0, 6):
        feeder = Feeder(vesk, folder, samples=100)
        feeder.feed(range(done, done + 9))
        feeder.end()
        follower = follower or Follower(vesk, folder, "-f", "-n", "100", "--format", "jsonl")
        follower.expect(range(done, done + 9))
        done += 9
        path = newest_buffer(folder)
        content = b""
        rest = path.read_bytes()
        while rest:
            stream = zlib.decompressobj()
            content += stream.decompress(rest)
            rest = stream.unused_data
        if chance.random() < 0.5:
            path.write_bytes(zlib.compress(content, level))
        else:
            path.with_suffix(".new").write_bytes(zlib.compress(content, level))
            path.with_suffix(".new").rename(path)
    require(follower.end() == "", "tail had something to say")


def read_only_what_comes(vesk, folder):
    """A look at a large buffer costs as little as one at a small one."""
    chance = random.Random(3)
    width = 300
    names = "::number," + ",".join(f"::s{i}" for i in range(width))
    feeder = Feeder(vesk, folder, names, samples=2000)
    for number in range(200):
        feeder.feed([number], "".join(f",{chance.random()}" for _ in range(width)))
    size = newest_buffer(folder).stat().st_size
    require(size > 150_000, f"a buffer of {size} bytes is no large one")
    follower = Follower(vesk, folder, "-f", "-n", "1", "--format", "jsonl", "--sensor", "number")
    follower.expect([199])

    def bytes_read():
        return int(Path(f"/proc/{follower.process.pid}/io").read_text().split()[1])

    before = bytes_read()
    for number in range(200, 220):
        feeder.feed([number], ",1" * width)
        follower.expect([number])
    taken = bytes_read() - before
    feeder.end()
    require(follower.end() == "", "tail had something to say")
    require(taken < size, f"{taken} bytes were read for 20 samples of a buffer of {size} bytes")


def take_new_sensors(vesk, folder):
    feeder = Feeder(vesk, folder)
    feeder.feed(range(2))
    follower = Follower(vesk, folder, "-f", "-n", "1", "--format", "csv")
    require(follower.line() == "time,kind,seconds,::number", "heading")
    require(follower.line().endswith(",raw,0,1"), "first row")
    feeder.write(f"{stamp(2)},::other,::number\n{stamp(2)},7,2\n")
    require(follower.line() == "time,kind,seconds,::number,::other", "second heading")
    require(follower.line().endswith(",raw,0,2,7"), "second row")
    feeder.end()
    require("1 new sensor came" in follower.end(), "the new sensor was not told")


def end_with_the_reader(vesk, folder):
    """Nothing has to be written to notice that the reader has gone."""
    feeder = Feeder(vesk, folder)
    feeder.feed(range(2))
    follower = Follower(vesk, folder, "-f", "--format", "jsonl")
    follower.expect(range(2))
    follower.process.stdout.close()
    code = follower.process.wait(timeout=TIME_LIMIT)
    messages = follower.process.stderr.read().decode()
    follower.process.stderr.close()
    feeder.end()
    require(code == 1 and "standard output" in messages, f"ended with {code}: {messages}")


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("samples", type=int, nargs="?", default=400)
    arguments = parser.parse_args()
    os.environ["TZ"] = "UTC0"
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    checks = {"rotations": lambda *words: follow_rotations(*words, arguments.samples),
              "deleted buffers": outlive_a_buffer, "losses": tell_losses,
              "rewritten buffers": follow_rewritten_buffers, "costs": read_only_what_comes,
              "new sensors": take_new_sensors, "end of the reader": end_with_the_reader}
    for name, check in checks.items():
        with tempfile.TemporaryDirectory(prefix="vesk-tail-", dir=memory) as folder:
            try:
                result = check(arguments.vesk, folder)
            except Failure as reason:
                print(f"{name}: {reason}")
                return 1
            if result:
                print(f"{arguments.samples} samples, {result} files")
    return 0


if __name__ == "__main__":
    sys.exit(main())
