#!/usr/bin/env python3
"""The recording as a service: what it tells its manager, what it reads again, and its unit.

  service_test.py --vesk build/release/cli/vesk notify
      A manager's socket is played: ready, signs of life, reload and end come through it.
  service_test.py --vesk build/release/cli/vesk ticks
      A recording that is stopped for some seconds takes its samples on time again; what it missed is
      told once, counted and marked as a gap.
  service_test.py --vesk build/release/cli/vesk slow_disk --shim libslow_disk.so
      A disk that needs seconds to bring a sample onto the medium costs the samples of these seconds,
      which are told and counted; the others are on time.
  service_test.py --vesk build/release/cli/vesk journal
      What it says has a priority in front where it goes to the journal, and the name of the command
      elsewhere.
  service_test.py --vesk build/release/cli/vesk child
      The program of --from dies with a recording that is killed.
  service_test.py --vesk build/release/cli/vesk unit --unit build/release/vesk-record.service
      systemd finds no fault in the unit and rates its exposure at 2.0 or less.
"""

import argparse
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
from pathlib import Path

PATIENCE = 60
SKIPPED = 77
MOST_EXPOSURE = 2.0


def wait_until(what, holds):
    end = time.monotonic() + PATIENCE
    while not holds():
        if time.monotonic() > end:
            sys.exit(f"FAILED: not in {PATIENCE} seconds: {what}")
        time.sleep(0.05)


def require(holds, what):
    if not holds:
        sys.exit(f"FAILED: {what}")


class Manager:
    """Takes datagrams as the service manager does."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        name = f"vesk-test-{os.getpid()}"
        self.socket.bind("\0" + name)
        self.socket.settimeout(0.05)
        self.address = "@" + name
        self.seen = []

    def has(self, word):
        try:
            while True:
                self.seen.append(self.socket.recv(4096).decode())
        except TimeoutError:
            return any(word in text.split("\n") for text in self.seen)


def notify(arguments, folder):
    manager = Manager()
    config = folder / "record.conf"
    config.write_text("interval 1h\nsensors load\ntop 0\n")
    environment = dict(os.environ, NOTIFY_SOCKET=manager.address, WATCHDOG_USEC="900000")
    said = folder / "said"
    with said.open("w") as messages:
        recorder = subprocess.Popen(
            [arguments.vesk, "record", str(folder / "box"), "--config", str(config)],
            env=environment, stderr=messages)
    try:
        wait_until("ready", lambda: manager.has("READY=1"))
        # The next sample is an hour away: it is the watchdog that wakes the recording.
        manager.seen.clear()
        wait_until("a sign of life", lambda: manager.has("WATCHDOG=1"))
        manager.seen.clear()
        wait_until("another one", lambda: manager.has("WATCHDOG=1"))
        manager.seen.clear()
        config.write_text("interval 2h\nsensors load\n")
        recorder.send_signal(signal.SIGHUP)
        wait_until("the reload", lambda: manager.has("RELOADING=1"))
        wait_until("ready again", lambda: manager.has("READY=1"))
        require("every 2h" in said.read_text(), f"the new interval is not told: {said.read_text()}")
    finally:
        recorder.send_signal(signal.SIGTERM)
        code = recorder.wait(PATIENCE)
    require(code == 0, f"exit code {code}")
    require(manager.has("STOPPING=1"), f"the end is not told: {manager.seen}")


def samples_in(arguments, base):
    told = subprocess.run([arguments.vesk, "dump", base], capture_output=True, text=True,
                          check=False)
    return [line.split(",", 1)[0] for line in told.stdout.splitlines() if "::" not in line]


def require_missed_are_told(arguments, base, said, least):
    """Each second between the first and the last sample has one sample or is told to have none."""
    found = samples_in(arguments, base)
    seconds = [int(text[-2:]) + 60 * int(text[-5:-3]) for text in found]
    require(len(set(found)) == len(found), f"two samples of one second: {found}")
    events = subprocess.run([arguments.vesk, "events", base], capture_output=True, text=True,
                            check=True).stdout
    late = re.findall(r"gap .*reason=late missed=(\d+)", events)
    missed = sum(int(count) for count in late)
    whole = (seconds[-1] - seconds[0]) % 3600 + 1
    require(missed == whole - len(found) and missed >= least,
            f"{missed} told to be missed, {whole - len(found)} are: {events}")
    require(said.read_text().count("samples come too late") == 1,
            f"not said once: {said.read_text()}")


def slow_disk(arguments, folder):
    base = str(folder / "box")
    said = folder / "said"
    pace = folder / "pace"
    pace.write_text("0\n")
    with said.open("w") as messages:
        recorder = subprocess.Popen(
            [arguments.vesk, "record", base, "--sensors", "load", "--top", "0", "--sync", "vector"],
            stderr=messages,
            env=dict(os.environ, LD_PRELOAD=arguments.shim, VESK_TEST_SLOW_DISK=str(pace)))
    try:
        wait_until("two samples", lambda: len(samples_in(arguments, base)) >= 2)
        pace.write_text("2600\n")
        wait_until("samples are missed", lambda: "too late" in said.read_text())
        pace.write_text("0\n")
        before = len(samples_in(arguments, base))
        wait_until("three more", lambda: len(samples_in(arguments, base)) >= before + 3)
    finally:
        recorder.send_signal(signal.SIGTERM)
        code = recorder.wait(PATIENCE)
    require(code == 0, f"exit code {code}")
    require_missed_are_told(arguments, base, said, 2)


def ticks(arguments, folder):
    base = str(folder / "box")
    said = folder / "said"
    with said.open("w") as messages:
        recorder = subprocess.Popen(
            [arguments.vesk, "record", base, "--sensors", "load", "--top", "0"], stderr=messages)

    def samples():
        return samples_in(arguments, base)

    try:
        wait_until("two samples", lambda: len(samples()) >= 2)
        recorder.send_signal(signal.SIGSTOP)
        before = len(samples())
        time.sleep(3.3)
        recorder.send_signal(signal.SIGCONT)
        wait_until("two more", lambda: len(samples()) >= before + 3)
        recorder.send_signal(signal.SIGSTOP)
        before = len(samples())
        time.sleep(2.3)
        recorder.send_signal(signal.SIGCONT)
        wait_until("two more", lambda: len(samples()) >= before + 3)
    finally:
        recorder.send_signal(signal.SIGCONT)
        recorder.send_signal(signal.SIGTERM)
        code = recorder.wait(PATIENCE)
    require(code == 0, f"exit code {code}")
    require_missed_are_told(arguments, base, said, 3)


def journal(arguments, folder):
    """Plays the stream of the journal, which JOURNAL_STREAM names by device and inode."""
    def said_by(*words, is_journal=True):
        ours, theirs = socket.socketpair()
        status = os.fstat(theirs.fileno())
        # Standard error was redirected since: the variable names another stream then.
        inode = status.st_ino if is_journal else status.st_ino + 1
        subprocess.run([arguments.vesk, *words], stderr=theirs, check=False, timeout=PATIENCE,
                       env=dict(os.environ, JOURNAL_STREAM=f"{status.st_dev}:{inode}"))
        theirs.close()
        text = b""
        while piece := ours.recv(4096):
            text += piece
        ours.close()
        return text.decode().splitlines()

    base = str(folder / "box")
    record = ["record", base, "--sensors", "load", "--top", "0", "--no-kernel-log", "--for", "1s"]
    lines = said_by(*record)
    require(len(lines) == 2 and all(line.startswith(f"<5>{base}: ") for line in lines),
            f"no notices: {lines}")
    lines = said_by(*record, is_journal=False)
    require(len(lines) == 2 and all(line.startswith(f"vesk: note: {base}: ") for line in lines),
            f"not as on a terminal: {lines}")
    missing = str(folder / "nowhere" / "box")
    lines = said_by("record", missing)
    require(len(lines) == 1 and lines[0].startswith(f"<3>{missing}: "), f"no error: {lines}")
    lines = said_by("record", missing, is_journal=False)
    require(len(lines) == 1 and lines[0].startswith(f"vesk: {missing}: "), f"no error: {lines}")


def child(arguments, folder):
    base = str(folder / "box")
    program = folder / "program"
    number = folder / "number"
    program.write_text(f"echo $$ > {number}\necho 20240101:00:00:00,::made\n"
                       "while echo 20240101:00:00:00,1; do sleep 0.1; done\n")
    recorder = subprocess.Popen(
        [arguments.vesk, "record", base, "--sensors", "load", "--from", f"exec sh {program}"],
        stderr=subprocess.DEVNULL)

    def recorded():
        told = subprocess.run([arguments.vesk, "dump", base], capture_output=True, text=True,
                              check=False)
        return "::made" in told.stdout

    try:
        wait_until("its sensor", recorded)
    finally:
        recorder.kill()
        recorder.wait(PATIENCE)
    process = Path("/proc", number.read_text().strip())
    # Where nobody reaps orphans it stays as a zombie.
    wait_until("the program's end", lambda: not process.exists() or
               ") Z " in (process / "stat").read_text())


def unit(arguments, folder):
    if not shutil.which("systemd-analyze"):
        print("there is no systemd-analyze here")
        sys.exit(SKIPPED)
    # The command that the unit starts is not installed.
    text = Path(arguments.unit).read_text()
    require("@" not in re.sub("~?@[a-z-]+", "", text), "a place of the unit is not filled in")
    copy = folder / "vesk-record.service"
    copy.write_text(re.sub("^ExecStart=[^ ]+", f"ExecStart={arguments.vesk}", text, flags=re.M))
    told = subprocess.run(["systemd-analyze", "verify", "--man=no", str(copy)],
                          capture_output=True, text=True, check=False)
    own = [line for line in told.stderr.splitlines() if "vesk-record" in line]
    require(told.returncode == 0 and not own, f"verify: {told.stderr}")
    told = subprocess.run(["systemd-analyze", "security", "--offline=yes", "--no-pager", str(copy)],
                          capture_output=True, text=True, check=False)
    exposure = re.search(r"Overall exposure level[^:]*: ([0-9.]+)", told.stdout)
    require(exposure is not None, f"security: {told.stdout}{told.stderr}")
    print(f"exposure {exposure[1]}")
    require(float(exposure[1]) <= MOST_EXPOSURE, f"exposure {exposure[1]}")


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("--unit")
    parser.add_argument("--shim", type=lambda text: str(Path(text).resolve()))
    parser.add_argument("what", choices=["notify", "ticks", "slow_disk", "journal", "child", "unit"])
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="vesk-service-") as folder:
        {"notify": notify, "ticks": ticks, "slow_disk": slow_disk, "journal": journal, "child": child,
         "unit": unit}[arguments.what](arguments, Path(folder))
    print("ok")


if __name__ == "__main__":
    main()
