#!/usr/bin/env python3
"""Starts a recording, waits until its buffer holds a sample, sends it a signal and gives its exit
code.

  signal_after_sample.py INT COMMAND record BASE
"""

import os
import signal
import subprocess
import sys
import time


def main():
    name, *command = sys.argv[1:]
    buffer = command[-1] + ".1.cbuf.z"
    process = subprocess.Popen(command)
    deadline = time.monotonic() + 60
    while time.monotonic() < deadline and process.poll() is None:
        if os.path.exists(buffer) and os.path.getsize(buffer) > 0:
            break
        time.sleep(0.05)
    process.send_signal(getattr(signal, "SIG" + name))
    return process.wait(timeout=60)


if __name__ == "__main__":
    sys.exit(main())
