#!/usr/bin/env python3
"""An import is killed while it makes the first history of a box.

The seventh vector of a box of two samples a buffer is the one that summarises the oldest buffers. The
command is killed before each of its system calls that writes, renames or deletes while it takes that
vector (by strace, which injects the signal). After each kill a repair puts the box in order, and no
vector is there twice: raw and in the history there are six of them, or seven, and the seventh is there
when it was told to be. Needs strace; says so and skips without it.

  first_history_test.py --vesk build/release/cli/vesk
"""

import argparse
import itertools
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

CALLS = ["write", "pwrite64", "unlink", "rename", "ftruncate"]
SKIPPED = 77
HEADER = b"20240101:00:00:00,::a\n"


def vector(number):
    return f"20240101:00:00:{number:02},{number}\n".encode()


def run(words, folder, text=b""):
    return subprocess.run(words, cwd=folder, input=text, capture_output=True, timeout=120,
                          check=False)


def vectors_in(vesk, folder):
    """The numbers of the raw vectors, and how many are in the history."""
    raw = run([vesk, "dump", "box"], folder).stdout.decode().splitlines()
    numbers = [int(line.split(",")[1]) for line in raw if "::" not in line]
    rows = run([vesk, "dump", "--history", "box"], folder).stdout.decode().splitlines()[1:]
    return numbers, sum(int(row.split(",")[3]) for row in rows)


def problems_after(vesk, folder):
    repaired = run([vesk, "repair", "box"], folder)
    if repaired.returncode != 0:
        yield f"the repair ends with {repaired.stderr}"
    if run([vesk, "check", "box"], folder).returncode != 0:
        yield "not healthy after a repair"
    told = (Path(folder) / "told").read_bytes().count(b"\n")
    raw, summed = vectors_in(vesk, folder)
    if raw != list(range(summed + 1, summed + len(raw) + 1)):
        yield f"{summed} in the history, then {raw}"
    if summed + len(raw) not in (6, 7) or summed + len(raw) < 6 + told:
        yield f"{6 + told} told, {summed} in the history and {raw}"


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    vesk = parser.parse_args().vesk
    os.environ["TZ"] = "UTC0"
    if shutil.which("strace") is None:
        print("SKIP: there is no strace")
        return SKIPPED
    failed = []
    kills = 0
    with tempfile.TemporaryDirectory(prefix="vesk-first-history-") as around:
        box = Path(around) / "box"
        kept = Path(around) / "kept"
        kept.mkdir()
        first = HEADER + b"".join(vector(number) for number in range(1, 7))
        run([vesk, "import", "box", "--samples", "2", "--intervals", "2"], kept, first)
        if list(kept.glob("*.hbuf.z")):
            sys.exit("there is a history before the seventh vector")
        for call in CALLS:
            # The counts of strace are those of each call.
            for count in itertools.count(1):
                shutil.copytree(kept, box)
                (box / "told").touch()
                result = run(["strace", "-f", "-qq", "-o", "/dev/null", "-e", f"trace={call}", "-e",
                              f"inject={call}:signal=KILL:when={count}", vesk, "import", "box",
                              "--acknowledge", "told"], box, HEADER + vector(7))
                failed += [f"{call} {count}: {problem}" for problem in problems_after(vesk, box)]
                ended = result.returncode == 0
                if ended and not list(box.glob("*.hbuf.z")):
                    failed.append("the seventh vector makes no history")
                shutil.rmtree(box)
                if ended:
                    break
                kills += 1
    print(f"killed at {kills} calls while the first history was made")
    print(*failed, sep="\n")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
