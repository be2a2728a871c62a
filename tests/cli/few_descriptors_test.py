#!/usr/bin/env python3
"""Sends a recording more events that have to wait than it has descriptors, and looks whether it goes
on.

  few_descriptors_test.py --vesk build/release/cli/vesk

Each sender of an event that waits for a sample holds a descriptor of the recording. They must not
take those that the sample needs. All of the events are in the box in the end.
"""

import argparse
import os
import resource
import subprocess
import sys
import tempfile
import time
from pathlib import Path

DESCRIPTORS = 96
EVENTS = 120
INTERVAL = 8


def limit_descriptors():
    resource.setrlimit(resource.RLIMIT_NOFILE, (DESCRIPTORS, DESCRIPTORS))


def failures_of(vesk, base):
    recording = subprocess.Popen(
        [vesk, "record", base, "--interval", f"{INTERVAL}s", "--for", f"{INTERVAL}s",
         "--top", "0", "--no-kernel-log"],
        stderr=subprocess.PIPE, text=True, preexec_fn=limit_descriptors)
    try:
        while not os.path.exists(base + ".sock") and recording.poll() is None:
            time.sleep(0.01)
        # Before the first sample of a box every event waits.
        senders = [subprocess.Popen([vesk, "event", base, "1", f"event {i}"],
                                    stderr=subprocess.PIPE, text=True) for i in range(EVENTS)]
        refused = [message for message, code in
                   [(sender.communicate()[1], sender.returncode) for sender in senders] if code != 0]
        messages = recording.communicate()[1]
    finally:
        recording.kill()
        recording.wait()
    if refused:
        yield f"{len(refused)} events are refused: {refused[0]}"
    problems = [line for line in messages.splitlines() if ": the recording ends " not in line
                and ": a recording begins" not in line]
    if recording.returncode != 0 or problems:
        yield f"the recording ends with {recording.returncode}: {messages}"
    dumped = subprocess.run([vesk, "dump", "--events", base], capture_output=True, text=True,
                            check=False)
    texts = [line.split(",")[2] for line in dumped.stdout.splitlines()[1:]]
    kept = sorted(text for text in texts if not text.startswith(("start ", "end ")))
    if kept != sorted(f"event {i}" for i in range(EVENTS)):
        yield f"{len(kept)} events are in the box: {dumped.stderr}"


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="vesk-descriptors-") as folder:
        failures = list(failures_of(arguments.vesk, os.path.join(folder, "box")))
    for failure in failures:
        print(f"FAILED: {failure}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
