#!/usr/bin/env python3
"""Lets the disk run full under what writes to a box, and looks whether the box keeps its word.

  full_disk_test.py --vesk build/release/cli/vesk imports    disks of many sizes, so that they are
                                                             full at every step of a box's life
  full_disk_test.py --vesk build/release/cli/vesk record     a disk that gets room again

An import ends and says why. What it acknowledged is in the box, and it goes on once there is room.
A recording samples on, says so once, and records again once there is room.

The disk is a small one in memory where mounting is allowed, and for imports a limit to the size of
files where it is not. Without the right to mount, `record` is skipped (exit code 77).
"""

import argparse
import os
import random
import resource
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from kill_test import Failure, ImportedBox, require, text_of

SKIPPED = 77
VECTORS = 170
PAGE = 4096


class SmallDisk:
    """A file system of its own."""

    full = "No space left on device"
    sizes = range(PAGE, 75 * PAGE, 2 * PAGE)

    def __init__(self, folder):
        self.folder = folder
        self.mounted = False

    def mount(self, options):
        subprocess.run(["mount", "-t", "tmpfs", "-o", options, "none", self.folder], check=True)

    def limit(self, size):
        self.mount(f"size={size}")
        self.mounted = True

    def lift(self):
        self.mount("remount,size=16m")

    def clear(self):
        if self.mounted:
            subprocess.run(["umount", self.folder], check=True)
            self.mounted = False


class SizeLimit:
    """No file grows beyond a limit. The command takes that for a full disk."""

    full = "File too large"
    sizes = list(range(0, 256, 16)) + list(range(256, 100 * 1024, 3 * 1024))

    def __init__(self, folder):
        self.folder = folder

    def limit(self, size):
        resource.setrlimit(resource.RLIMIT_FSIZE, (size, resource.RLIM_INFINITY))

    def lift(self):
        self.limit(resource.RLIM_INFINITY)

    def clear(self):
        self.lift()
        for entry in os.scandir(self.folder):
            os.unlink(entry.path)


def import_until_full(vesk, disk, size):
    """Imports onto a disk of this size; true when it was too small."""
    box = ImportedBox(vesk, disk.folder, random.Random(size))
    text = text_of(1, VECTORS)
    # What stays of the pipe is larger than what the import tells before it is read.
    told, tells = os.pipe()
    disk.limit(size)
    result = subprocess.run(box.command() + ["--acknowledge", str(tells)], input=text,
                            capture_output=True, text=True, pass_fds=[tells], check=False)
    os.close(tells)
    box.take_acknowledgements(box.rest_of(told).decode())
    os.close(told)
    disk.lift()
    if result.returncode == 0:
        box.verify()
        return False
    require(result.returncode == 1, f"exit code {result.returncode}: {result.stderr}")
    require(disk.full in result.stderr, f"the reason is not told: {result.stderr}")
    # The box can be read as it is.
    if box.acknowledged > 0:
        dumped = box.run("dump", "--utc", box.base)
        require(dumped.returncode in (0, 3), dumped.stderr)
    box.live_and_end()
    # Some rotations more, for what may be wrong with older buffers.
    box.live_and_end(80)
    return True


def fill_disks(vesk, disk, step):
    full = 0
    sizes = list(disk.sizes)[::step]
    for size in sizes:
        try:
            full += import_until_full(vesk, disk, size)
        except Failure as failure:
            raise Failure(f"disk of {size} bytes: {failure}") from failure
        finally:
            disk.clear()
    require(full > len(sizes) // 3, "the disks were too large to be filled")
    print(f"{len(sizes)} disks ({type(disk).__name__}), {full} of them too small, 0 lost")


REFUSED = "this sample is not recorded"


def wait_for(path, words, process):
    deadline = time.monotonic() + 60
    while words not in Path(path).read_text():
        require(process.poll() is None, f"the recording ended: {Path(path).read_text()}")
        require(time.monotonic() < deadline, f"'{words}' is not told: {Path(path).read_text()}")
        time.sleep(0.02)


def record_on_full_disk(vesk, disk, outside):
    disk.limit(64 * PAGE)
    base = os.path.join(disk.folder, "box")
    messages = os.path.join(outside, "messages")
    with open(messages, "wb") as stream:
        process = subprocess.Popen([vesk, "record", base, "--samples", "4", "--intervals", "2"],
                                   stderr=stream)
    try:
        while not os.path.exists(base + ".1.cbuf.z") or os.path.getsize(base + ".1.cbuf.z") == 0:
            require(process.poll() is None, "the recording ended")
            time.sleep(0.02)
        filler = os.path.join(disk.folder, "filler")
        with open(filler, "wb", buffering=0) as stream:
            try:
                while True:
                    stream.write(bytes(1024))
            except OSError:
                pass
        # What is synced may find the disk full first, which is told in words of its own.
        wait_for(messages, REFUSED, process)
        before = subprocess.run([vesk, "dump", base], capture_output=True, text=True, check=False)
        os.unlink(filler)
        wait_for(messages, "recording again", process)
        process.send_signal(signal.SIGINT)
        code = process.wait()
    finally:
        process.kill()
        process.wait()
    text = Path(messages).read_text()
    require(code == 0, f"exit code {code}: {text}")
    refusals = [line for line in text.splitlines() if REFUSED in line]
    others = [line for line in text.splitlines() if disk.full in line and REFUSED not in line]
    require(len(refusals) == 1 and disk.full in refusals[0], f"not told once: {text}")
    require(len(others) <= 1 and all("cannot be synced" in line for line in others),
            f"told more than once: {text}")
    checked = subprocess.run([vesk, "check", base], capture_output=True, text=True, check=False)
    require(checked.returncode == 0, checked.stdout)
    after = subprocess.run([vesk, "dump", base], capture_output=True, text=True, check=False)
    require(after.stdout.startswith(before.stdout) and len(after.stdout) > len(before.stdout),
            "what was recorded before is lost")
    print("a recording goes on when there is room again")


def may_mount():
    return os.geteuid() == 0 and subprocess.run(["unshare", "--mount", "true"],
                                                capture_output=True, check=False).returncode == 0


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("--every", type=int, default=1, metavar="K", help="only one of K sizes")
    parser.add_argument("what", choices=["imports", "record"])
    arguments = parser.parse_args()
    if not arguments.inside and may_mount():
        os.execvp("unshare", ["unshare", "--mount", sys.executable, sys.argv[0], "--inside",
                              *sys.argv[1:]])
    if not arguments.inside and arguments.what == "record":
        print("mounting is not allowed here")
        return SKIPPED
    parent = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    with tempfile.TemporaryDirectory(prefix="vesk-full-", dir=parent) as folder, \
            tempfile.TemporaryDirectory(prefix="vesk-full-") as outside:
        disks = [SizeLimit(folder)] + ([SmallDisk(folder)] if arguments.inside else [])
        try:
            if arguments.what == "record":
                record_on_full_disk(arguments.vesk, disks[-1], outside)
            else:
                for disk in disks:
                    fill_disks(arguments.vesk, disk, arguments.every)
        except Failure as failure:
            print(f"FAILED: {failure}")
            return 1
        finally:
            disks[-1].clear()
    return 0


if __name__ == "__main__":
    os.environ["TZ"] = "UTC0"
    time.tzset()
    sys.exit(main())
