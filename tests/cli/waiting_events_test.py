#!/usr/bin/env python3
"""Events that have to wait are neither lost, doubled nor put into another order.

The command is killed before each of its system calls that writes, syncs, renames or deletes (by
strace, which injects the signal), while it keeps an event and while it takes events over. After each
kill an ordinary import goes on, and the box must hold every event whose sender ended with 0 exactly
once and in order. Needs strace; says so and skips without it.

  waiting_events_test.py --vesk build/release/cli/vesk
  VESK_WAITING_EVENTS=long waiting_events_test.py --vesk build/release/cli/vesk
      also before each call that opens a file
"""

import argparse
import itertools
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

CALLS = ["write", "pwrite64", "fdatasync", "fsync", "unlink", "rename", "ftruncate"]
if os.environ.get("VESK_WAITING_EVENTS") == "long":
    CALLS += ["openat"]
SKIPPED = 77
FULL = b"20240101:00:00:00,::a\n20240101:00:00:01,1\n20240101:00:00:02,2\n"
MORE = b"20240101:00:00:00,::a\n20240101:00:00:03,3\n"


def run(words, folder, text=b""):
    return subprocess.run(words, cwd=folder, input=text, capture_output=True, timeout=120,
                          check=False)


def events_of(vesk, folder):
    told = run([vesk, "dump", "--events", "box"], folder)
    assert told.returncode == 0, told.stderr
    return [line.split(",", 1)[1] for line in told.stdout.decode().splitlines()[1:]]


def killed(vesk, words, folder, text, call, count):
    """Runs the command and kills it before its @p count-th @p call. False when it made fewer."""
    result = run(["strace", "-f", "-qq", "-o", "/dev/null", "-e", f"trace={call}", "-e",
                  f"inject={call}:signal=KILL:when={count}", vesk, *words], folder, text)
    return result.returncode != 0


def start(vesk, folder, waiting):
    """A full buffer, and events that wait behind it."""
    run([vesk, "import", "box", "--samples", "2", "--intervals", "2"], folder, FULL)
    for i in range(waiting):
        sent = run([vesk, "event", "box", "1", f"e{i}"], folder)
        assert sent.returncode == 0, sent.stderr


def problems_after(vesk, folder, died, waiting, new):
    """Goes on with an import and looks at what came of it."""
    result = run([vesk, "import", "box"], folder, MORE)
    if result.returncode != 0:
        yield f"the import ends with {result.stderr}"
    found = events_of(vesk, folder)
    must = [f"1,e{i}" for i in range(waiting)]
    if found != must + new and (found != must or not died):
        yield f"the events are {found}"
    if os.path.exists(Path(folder) / "box.events"):
        yield "box.events stays"
    checked = run([vesk, "check", "box"], folder)
    if checked.returncode != 0:
        yield f"{checked.stdout}"


def kill_everywhere(vesk, what, words, text, waiting, new):
    """Before each number of each call in turn, until the command ends by itself."""
    kills = 0
    problems = []
    with tempfile.TemporaryDirectory(prefix="vesk-waiting-") as around:
        box = Path(around) / "box"
        kept = Path(around) / "kept"
        box.mkdir()
        start(vesk, box, waiting)
        shutil.copytree(box, kept)
        for call in CALLS:
            # The counts of strace are those of each call.
            for count in itertools.count(1):
                died = killed(vesk, words, box, text, call, count)
                problems += [f"{what}, {call} {count}: {problem}"
                             for problem in problems_after(vesk, box, died, waiting, new)]
                shutil.rmtree(box)
                shutil.copytree(kept, box)
                if not died:
                    break
                kills += 1
    return kills, problems


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    arguments = parser.parse_args()
    os.environ["TZ"] = "UTC0"
    if shutil.which("strace") is None:
        print("SKIP: there is no strace")
        return SKIPPED
    failed = []
    kept, problems = kill_everywhere(arguments.vesk, "event", ["event", "box", "1", "new"], b"",
                                     2, ["1,new"])
    failed += problems
    print(f"an event that has to wait: killed at {kept} calls")
    taken, problems = kill_everywhere(arguments.vesk, "import", ["import", "box"], MORE, 3,
                                      [])
    failed += problems
    print(f"three events taken over: killed at {taken} calls")
    print(*failed, sep="\n")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
