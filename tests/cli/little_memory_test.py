#!/usr/bin/env python3
"""Looks at a box whose files are far longer than the memory.

  little_memory_test.py --vesk build/release/cli/vesk

A file that is only claimed to be long takes no room on the disk. What follows a state means nothing,
so a long state file costs nothing and the box stays healthy. A buffer is looked at as a whole: the
command says that the memory is not enough, and ends with 1.
"""

import argparse
import os
import resource
import subprocess
import sys
import tempfile
from pathlib import Path

MEMORY = 1 << 28
LENGTH = 1 << 31
SKIPPED = 77
TELEMETRY = "".join(["20240101:00:00:00,::a\n"] +
                    [f"20240101:00:00:{second:02},{second}\n" for second in range(1, 15)])


def limit_memory():
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))


def call(vesk, folder, *words, text=""):
    return subprocess.run([vesk, *words], cwd=folder, input=text, capture_output=True, text=True,
                          preexec_fn=limit_memory, check=False)


def failures_of_states(vesk, folder):
    for name in ("box.state", "box.state.bak"):
        os.truncate(os.path.join(folder, name), LENGTH)
    for words, text in ((["check", "box"], ""), (["info", "box"], ""), (["dump", "box"], ""),
                        (["event", "box", "1", "x"], ""), (["import", "box"], TELEMETRY),
                        (["check", "box"], "")):
        result = call(vesk, folder, *words, text=text)
        if result.returncode != 0:
            yield f"{words}: {result.returncode} instead of 0: {result.stderr}"


def failures_of_buffers(vesk, folder):
    buffer = max(Path(folder).glob("box.*.cbuf.z"))
    os.truncate(buffer, LENGTH)
    for words in (["check", "box"], ["dump", "box"], ["repair", "box"]):
        result = call(vesk, folder, *words)
        if result.returncode != 1 or "out of memory" not in result.stderr:
            yield f"{words}: {result.returncode} instead of 1: {result.stderr}"


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    vesk = parser.parse_args().vesk
    with tempfile.TemporaryDirectory(prefix="vesk-memory-") as folder:
        if call(vesk, folder, "--version").returncode != 0:
            print("SKIP: the command was built with a sanitizer, which needs more memory")
            return SKIPPED
        made = call(vesk, folder, "import", "box", "--samples", "4", "--intervals", "2",
                    text=TELEMETRY)
        failures = [made.stderr] if made.returncode != 0 else [
            *failures_of_states(vesk, folder), *failures_of_buffers(vesk, folder)]
    for failure in failures:
        print(f"FAILED: {failure}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
