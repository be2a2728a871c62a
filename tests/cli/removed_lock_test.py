#!/usr/bin/env python3
"""The lock file is removed under a process that writes to the box, and another one comes.

Two imports are fed line by line and tell each vector that is in the box. Whoever writes first after the
removal goes on, the other one is refused with exit code 1: there is no moment from which on both tell
vectors, each told vector is in the box once, and the box is healthy.

  removed_lock_test.py --vesk build/release/cli/vesk [ROUNDS]
"""

import argparse
import os
import random
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

from verdict import Failure, require

EPOCH = 1_700_000_000


def stamp(number):
    return time.strftime("%Y%m%d:%H:%M:%S", time.gmtime(EPOCH + number))


class Import:
    """One that is fed vector by vector."""

    def __init__(self, vesk, base):
        told, tells = os.pipe()
        self.process = subprocess.Popen(
            [vesk, "import", base, "-", "--utc", "--samples", "4", "--intervals", "2",
             "--acknowledge", str(tells)],
            stdin=subprocess.PIPE, stderr=subprocess.PIPE, pass_fds=[tells])
        os.close(tells)
        self.told = os.fdopen(told)
        self.count = 0
        self.say(f"{stamp(0)},::a\n")

    def say(self, text):
        try:
            self.process.stdin.write(text.encode())
            self.process.stdin.flush()
        except BrokenPipeError:
            pass

    def feed(self, number):
        """True when the vector is told to be in the box, False when the import has ended."""
        self.say(f"{stamp(number)},{number}\n")
        line = self.told.readline()
        self.count += bool(line)
        require(line in ("", stamp(number) + "\n"), f"{line!r} told for {number}")
        return bool(line)

    def end(self):
        try:
            self.process.stdin.close()
        except BrokenPipeError:
            pass
        message = self.process.stderr.read().decode()
        self.process.stderr.close()
        self.told.close()
        return self.process.wait(), message


def numbers_in(vesk, base):
    """All vectors of the box: how often each number is there, raw, and how many are in the history."""
    raw = subprocess.run([vesk, "dump", "--utc", base], capture_output=True, text=True, check=False)
    numbers = [int(float(line.split(",")[1])) for line in raw.stdout.splitlines()
               if "::" not in line]
    history = subprocess.run([vesk, "dump", "--utc", "--history", base], capture_output=True,
                             text=True, check=False)
    summed = sum(int(line.split(",")[3]) for line in history.stdout.splitlines()[1:])
    return numbers, summed


def require_box(vesk, base, told):
    numbers, summed = numbers_in(vesk, base)
    require(len(numbers) == len(set(numbers)), f"there twice: {numbers}")
    require(summed + len(numbers) == told, f"{told} told, {summed} and {numbers} in the box")
    checked = subprocess.run([vesk, "check", base], capture_output=True, text=True, check=False)
    require(checked.returncode == 0, checked.stdout)


def remove_lock(base):
    os.unlink(base + ".lock")


def newcomer_first(vesk, base):
    """The newcomer has locked and written before the first writes again: the first one ends."""
    one = Import(vesk, base)
    for number in range(1, 8):
        require(one.feed(number), "the first import takes nothing")
    remove_lock(base)
    other = Import(vesk, base)
    require(other.feed(8), "the newcomer takes nothing")
    require(not one.feed(100), "two imports write at a time")
    for number in range(9, 20):
        require(other.feed(number), "the newcomer does not go on")
    code, message = one.end()
    require(code == 1 and "is writing to the box" in message, f"{code}: {message}")
    code, message = other.end()
    require(code == 0, f"{code}: {message}")
    require_box(vesk, base, one.count + other.count)


def first_again_first(vesk, base):
    """The first one writes again before anybody comes: the newcomer is refused."""
    one = Import(vesk, base)
    require(one.feed(1), "the first import takes nothing")
    remove_lock(base)
    require(one.feed(2), "the removed lock ends an import that is alone")
    other = Import(vesk, base)
    require(not other.feed(100), "two imports write at a time")
    code, message = other.end()
    require(code == 1 and "is writing to the box" in message, f"{code}: {message}")
    require(one.feed(3), "the first import does not go on")
    code, message = one.end()
    require(code == 0 and "the file of the lock was removed" in message, f"{code}: {message}")
    require_box(vesk, base, one.count)


def both_at_once(vesk, base, chance):
    """Nobody waits for anybody: at least one of them goes on to its end, and all that was told is there."""
    one = Import(vesk, base)
    require(one.feed(1), "the first import takes nothing")
    other = []

    def newcomer():
        remove_lock(base)
        late = Import(vesk, base)
        other.append(late)
        number = 1001
        while late.feed(number) and number < 1020:
            number += 1

    thread = threading.Thread(target=newcomer)
    thread.start()
    number = 2
    while one.feed(number) and number < 20 + chance.randrange(40):
        number += 1
    thread.join()
    codes = [one.end(), other[0].end()]
    require(0 in (codes[0][0], codes[1][0]), f"both ended: {codes}")
    # What was on its way when an import noticed may be there though it was not told.
    numbers, summed = numbers_in(vesk, base)
    told = one.count + other[0].count
    require(len(numbers) == len(set(numbers)), f"there twice: {numbers}")
    require(told <= summed + len(numbers) <= told + 1,
            f"{told} told, {summed} and {numbers} in the box")
    return codes[0][0] != codes[1][0]


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 30))
    parser.add_argument("rounds", nargs="?", type=int, default=10)
    arguments = parser.parse_args()
    chance = random.Random(arguments.seed)
    met = 0
    try:
        with tempfile.TemporaryDirectory(prefix="vesk-lock-") as folder:
            newcomer_first(arguments.vesk, os.path.join(folder, "one"))
            first_again_first(arguments.vesk, os.path.join(folder, "two"))
            for i in range(arguments.rounds):
                met += both_at_once(arguments.vesk, os.path.join(folder, f"box{i}"), chance)
    except Failure as failure:
        print(f"FAILED with --seed {arguments.seed}: {failure}")
        return 1
    print(f"{arguments.rounds} boxes with two imports at once; {met} times one ended the other")
    return 0


if __name__ == "__main__":
    sys.exit(main())
