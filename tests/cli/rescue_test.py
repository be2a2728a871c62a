#!/usr/bin/env python3
"""A statically linked vesk rescues boxes on a machine that has nothing else.

It names no library and no loader. In a folder that is made the root, with the command and the files of
boxes in it and without /proc, /dev or any other file, it shows, dumps, reports, checks and repairs them,
with the same bytes as outside. So it does on the oldest processor and kernel, if qemu-user is there.

  rescue_test.py --vesk build/static/cli/vesk
"""

import argparse
import math
import os
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from verdict import Failure, require

EPOCH = 1_700_000_000
ROWS = 2000


def run(words, wanted=0, stdin=None):
    ran = subprocess.run(words, input=stdin, capture_output=True, timeout=120, check=False)
    require(ran.returncode == wanted,
            f"{' '.join(map(str, words))}: exit code {ran.returncode} instead of {wanted}\n"
            f"{ran.stderr.decode(errors='replace')}")
    return ran.stdout


def changing_root():
    """The words that run a program in another root, or none where that is not allowed."""
    words = ["chroot"] if os.geteuid() == 0 else ["unshare", "--user", "--map-root-user", "chroot"]
    tried = subprocess.run([*words, "/", "true"], capture_output=True, check=False)
    return words if tried.returncode == 0 else None


def telemetry():
    lines = ["%s,::cpu,::memory,::gone" % time.strftime("%Y%m%d:%H:%M:%S", time.gmtime(EPOCH))]
    for row in range(ROWS):
        stamp = time.strftime("%Y%m%d:%H:%M:%S", time.gmtime(EPOCH + row))
        lines.append(f"{stamp},{50 + 40 * math.sin(row / 30):.3f},{row},nan")
    return ("\n".join(lines) + "\n").encode()


class Boxes:
    """A whole box, and one whose newest file lost its end when the machine died."""

    def __init__(self, vesk, root):
        for name in ("whole", "torn"):
            run([vesk, "import", root / name, "-", "--utc", "--samples", "300", "--intervals", "30"],
                stdin=telemetry())
        newest = max(root.glob("torn.*.cbuf.z"), key=lambda path: int(path.name.split(".")[1]))
        os.truncate(newest, newest.stat().st_size - 7)
        for lock in root.glob("*.lock"):
            lock.unlink()


def check_that_nothing_is_needed(vesk):
    dynamic = run(["readelf", "-d", vesk]).decode()
    require("NEEDED" not in dynamic, "it needs a library:\n" + dynamic)
    segments = run(["readelf", "-lW", vesk]).decode()
    require("INTERP" not in segments, "it needs a loader:\n" + segments)
    require("DYN (Position-Independent" in segments, "it lies at a fixed address:\n" + segments)


def rescue(vesk, root, enter):
    """Runs every verb that rescues with ``enter`` in front, which makes root the root."""
    inside = [*enter, "/vesk"]
    before = sorted(path.name for path in root.iterdir())
    for base, code in (("whole", 0), ("torn", 3)):
        def run_inside(verb, *words, base=base, code=code):
            return run([*inside, verb, f"/{base}", *words], code)

        shown = run_inside("show").decode()
        require("::memory" in shown or "sensors" in shown, shown)
        require(run_inside("dump", "--utc") == run([vesk, "dump", "--utc", root / base], code),
                f"{base}: dump differs from the one outside")
        run_inside("info")
        require(b"::cpu" in run_inside("stats"), "stats tells no sensor")
        run_inside("suspects")
        run_inside("report", "-o", f"/{base}.html")
        page = (root / f"{base}.html").read_text()
        require("</html>" in page and "::memory" in page, "the page is not whole")
        (root / f"{base}.html").unlink()
        run_inside("export", "--format", "csv", "-o", f"/{base}.csv")
        (root / f"{base}.csv").unlink()
    refused = subprocess.run([*inside, "export", "/whole", "--format", "sqlite", "-o", "/whole.db"],
                             capture_output=True, check=False)
    require(refused.returncode == 2 and b"without SQLite" in refused.stderr, refused.stderr.decode())
    require(sorted(path.name for path in root.iterdir()) == before, "a file was left behind")

    run([*inside, "check", "/whole"])
    require(subprocess.run([*inside, "check", "/torn"], capture_output=True, check=False).returncode != 0,
            "the damage was not found")
    run([*inside, "repair", "/torn"])
    run([*inside, "check", "/torn"])
    rows = run([*inside, "dump", "--utc", "/torn"]).splitlines()
    whole = run([*inside, "dump", "--utc", "/whole"]).splitlines()
    require(rows == whole[:len(rows)] and len(rows) >= len(whole) - 2, "repair lost more than the end")


def on_the_oldest_machine(vesk, root):
    """The same bytes on a processor with no more than every x86-64 one has, with an old kernel."""
    emulator = shutil.which("qemu-x86_64")
    if emulator is None:
        print("not tried on the oldest processor: qemu-user is not installed")
        return
    old = [emulator, "-cpu", "qemu64,-sse3,-cx16,-lahf_lm", "-r", "3.2.0", vesk]
    require(run([*old, "dump", "--utc", root / "whole"]) == run([vesk, "dump", "--utc", root / "whole"]),
            "other bytes on the oldest processor")
    require(run([*old, "stats", root / "whole"]) == run([vesk, "stats", root / "whole"]),
            "other statistics on the oldest processor")


def main():
    words = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    words.add_argument("--vesk", required=True)
    vesk = Path(words.parse_args().vesk).resolve()
    enter = changing_root()
    with tempfile.TemporaryDirectory() as folder:
        root = Path(folder)
        try:
            check_that_nothing_is_needed(vesk)
            Boxes(vesk, root)
            on_the_oldest_machine(vesk, root)
            if enter is None:
                print("skipped: this user may not change the root")
                return 77
            shutil.copy(vesk, root / "vesk")
            rescue(vesk, root, [*enter, root])
        except Failure as reason:
            print(f"failed: {reason}")
            return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
