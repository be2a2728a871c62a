#!/usr/bin/env python3
"""A recording while the clock leaves the range of the box for a while.

The clock of `vesk record` is stepped by twenty years, beyond what a box can hold, and back. The samples
meanwhile are missed, which is said once; the recording goes on, says how many are missing, and ends
with 0. The other samples are all in the box.

  clock_test.py --vesk build/release/cli/vesk --clock libstepped_clock.so
"""

import argparse
import os
import re
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

TWENTY_YEARS = 20 * 365 * 86400
PATIENCE = 60


def samples_in(vesk, base):
    told = subprocess.run([vesk, "dump", base], capture_output=True, text=True, check=False)
    # A header line has names, which hold "::".
    return [line.split(",", 1)[0] for line in told.stdout.splitlines() if "::" not in line]


def wait_until(what, holds):
    end = time.monotonic() + PATIENCE
    while not holds():
        if time.monotonic() > end:
            sys.exit(f"FAILED: not in {PATIENCE} seconds: {what}")
        time.sleep(0.05)


def step(file, seconds):
    # At once, whenever it is read.
    new = file.with_suffix(".new")
    new.write_text(f"{seconds}\n")
    new.rename(file)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("--clock", required=True, type=lambda text: str(Path(text).resolve()))
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="vesk-clock-") as folder:
        base = os.path.join(folder, "box")
        clock = Path(folder, "clock")
        said = Path(folder, "said")
        step(clock, 0)
        environment = dict(os.environ, LD_PRELOAD=arguments.clock, VESK_TEST_CLOCK=str(clock))
        with said.open("w") as messages:
            recorder = subprocess.Popen([arguments.vesk, "record", base], stderr=messages,
                                        env=environment)
        try:
            wait_until("two samples", lambda: len(samples_in(arguments.vesk, base)) >= 2)
            step(clock, TWENTY_YEARS)
            wait_until("a missed sample is told", lambda: "not recorded" in said.read_text())
            # The next ones are tried in vain.
            before = len(samples_in(arguments.vesk, base))
            time.sleep(2.5)
            after = samples_in(arguments.vesk, base)
            step(clock, 0)
            wait_until("recording again", lambda: "recording again" in said.read_text())
            wait_until("another sample",
                       lambda: len(samples_in(arguments.vesk, base)) > len(after) + 1)
        finally:
            recorder.send_signal(signal.SIGINT)
            code = recorder.wait()
        text = said.read_text()
        times = samples_in(arguments.vesk, base)
        missing = re.search(r"recording again; (\d+) sample", text)
        problems = []
        if code != 0:
            problems.append(f"exit code {code}")
        # Beside these two lines it says that it begins and that it ends.
        if text.count("not recorded") != 1 or len(text.splitlines()) != 4:
            problems.append("not said once")
        if missing is None or int(missing.group(1)) < 2:
            problems.append("the number of missing samples is wrong")
        if len(after) != before:
            problems.append(f"{len(after) - before} samples recorded out of the range")
        if times != sorted(set(times)):
            problems.append(f"the samples are {times}")
        checked = subprocess.run([arguments.vesk, "check", base], capture_output=True, text=True,
                                 check=False)
        if checked.returncode != 0:
            problems.append(checked.stdout)
        print(f"{len(times)} samples recorded, "
              f"{missing.group(1) if missing else '?'} missed; the recording said:\n{text}", end="")
        print(*problems, sep="\n")
        return 1 if problems else 0


if __name__ == "__main__":
    os.environ["TZ"] = "UTC0"
    sys.exit(main())
