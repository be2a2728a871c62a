#!/usr/bin/env python3
"""Records this machine while all that can go wrong does, and looks whether the box keeps its word.

  soak_test.py --vesk build/release/cli/vesk --clock libstepped_clock.so --seconds 20

A recorder writes a sample a second into a small box, each one synced. Meanwhile, at random: it is
killed and started again, ended and started again, stopped for a while, loses its descriptors, its
disk fills and gets room, its clock is set, it reads its configuration again, the machine is busy.
All the while events are sent by many processes, and others read the box.

At the end
  - every sample that any reader saw is in the box or counted in its history, in order;
  - no sample is missing that no fault explains and no `gap` event tells;
  - every event that was acknowledged is in the box or counted in its history;
  - its tier of minutes counts the same samples, but for a minute at each kill;
  - the box and its tier are healthy, and their files never took more than `vesk estimate` says they may;
  - a recorder that lived long needs no more memory and descriptors than when it was young.

  --seed N     repeats a run, as far as moments can be repeated
  --keep DIR   where the box goes when something is wrong

The disk is a small one in memory where mounting is allowed; elsewhere the files of the recorder may
not grow for a while.
"""

import argparse
import json
import os
import random
import resource
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

from soak_ledger import UPTIME, Ledger, Loss, fetch_words, require

EVENT_TYPE = "5"  # recordings write none of it by themselves
PATIENCE = 30
EVENT_BYTES = 65536
DISK = 24 << 20
TWENTY_YEARS = 20 * 365 * 86400
# A fault may cost the samples of this time before it and after its end.
BEFORE, AFTER = 1.5, 3.5
GROWTH = 1 << 20
# Until then a life makes its first history, and loads the code and fills the tables that this needs.
WARM_UP = 400
LONG_LIFE = WARM_UP + 120


def uptime():
    return float(Path("/proc/uptime").read_text().split()[0])


class Space(threading.Thread):
    """Remembers the most that the files of the box took."""

    def __init__(self, folder):
        super().__init__(daemon=True)
        self.folder = folder
        self.most = 0
        self.ended = threading.Event()

    def run(self):
        while not self.ended.wait(0.1):
            total = 0
            for entry in os.scandir(self.folder):
                try:
                    total += entry.stat().st_size
                except FileNotFoundError:
                    pass
            self.most = max(self.most, total)


class Disk:
    """The disk of the box, which can be full."""

    def __init__(self, folder, filler):
        self.folder = folder
        self.filler = filler
        self.mounted = os.geteuid() == 0 and subprocess.run(
            ["mount", "-t", "tmpfs", "-o", f"size={DISK}", "none", folder], check=False,
            stderr=subprocess.DEVNULL).returncode == 0

    def fill(self, recorder, room):
        """Leaves @p room bytes."""
        if not self.mounted:
            resource.prlimit(recorder, resource.RLIMIT_FSIZE, (0, resource.RLIM_INFINITY))
            return
        free = os.statvfs(self.folder)
        size = free.f_bavail * free.f_frsize - room
        with open(self.filler, "wb") as file:
            try:
                os.posix_fallocate(file.fileno(), 0, max(size, 1))
            except OSError:
                pass

    def clear(self, recorder):
        if self.mounted:
            Path(self.filler).unlink(missing_ok=True)
        else:
            resource.prlimit(recorder, resource.RLIMIT_FSIZE,
                             (resource.RLIM_INFINITY, resource.RLIM_INFINITY))

    def close(self):
        if self.mounted:
            subprocess.run(["umount", "-l", self.folder], check=False)


class Recorder:
    """The process that records, through all its lives."""

    def __init__(self, vesk, base, clock, samples, intervals, log):
        self.vesk, self.base, self.log = vesk, base, log
        self.clock = Path(log.parent, "clock")
        self.config = Path(log.parent, "record.conf")
        self.config.write_text("top 3\n")
        self.environment = dict(os.environ)
        if clock:
            self.environment.update(LD_PRELOAD=clock, VESK_TEST_CLOCK=str(self.clock))
        self.set_clock(0)
        self.shape = ["--samples", str(samples), "--intervals", str(intervals), "--tiers", "1m"]
        self.process = None
        self.lives = []  # of each one: (age, resident bytes, descriptors)

    def set_clock(self, seconds):
        new = self.clock.with_suffix(".new")
        new.write_text(f"{seconds}\n")
        new.rename(self.clock)

    def said(self):
        return self.log.read_text(errors="replace")

    def start(self):
        before = self.said().count("a recording begins") + self.said().count("goes on after")
        with self.log.open("a") as log:
            # pylint: disable-next=consider-using-with
            self.process = subprocess.Popen(
                [self.vesk, "record", self.base, "--sync", "vector", "--event-bytes", str(EVENT_BYTES),
                 "--config", str(self.config), *self.shape],
                stdout=log, stderr=log, env=self.environment)
        self.lives.append([])
        end = time.monotonic() + PATIENCE
        while self.said().count("a recording begins") + self.said().count("goes on after") == before:
            require(self.process.poll() is None and time.monotonic() < end,
                    f"the recording does not begin: {self.said()[-2000:]}")
            time.sleep(0.02)

    def kill(self):
        self.process.kill()
        require(self.process.wait() == -signal.SIGKILL, f"it had ended: {self.said()[-2000:]}")

    def end(self, troubled=False):
        """Just behind a fault, the last samples may be missing, which it says."""
        self.process.send_signal(signal.SIGTERM)
        code = self.process.wait(timeout=PATIENCE)
        tells = code == 1 and self.said().rstrip().endswith("not recorded")
        require(code == 0 or (troubled and tells),
                f"the recording ends with {code}: {self.said()[-2000:]}")

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def measure(self, age):
        try:
            pages = int(Path(f"/proc/{self.process.pid}/statm").read_text().split()[1])
            self.lives[-1].append((age, pages * resource.getpagesize(), self.descriptors()))
        except (OSError, IndexError):
            pass

    def require_no_growth(self):
        """Compares what long lives took early with what they took late. Nothing without any."""
        worst = None
        for life in self.lives:
            if not life or life[-1][0] < LONG_LIFE:
                continue
            life = [each for each in life if each[0] >= WARM_UP]
            quarter = len(life) // 4
            early, late = life[quarter:2 * quarter], life[3 * quarter:]
            grown = statistics.median(each[1] for each in late) - statistics.median(
                each[1] for each in early)
            worst = max(worst or 0, grown)
            opened = statistics.median(each[2] for each in late) - statistics.median(
                each[2] for each in early)
            require(opened <= 1, f"{opened} more descriptors after {life[-1][0]:.0f} s")
        require((worst or 0) <= GROWTH, f"{worst} more bytes of memory late in a life")
        return worst


class Readers(threading.Thread):
    """Reads the box with one verb after the other. Reading must always end, and without damage while
    nothing is wrong."""

    def __init__(self, soak, pause, chance):
        super().__init__(daemon=True)
        self.soak, self.pause, self.chance = soak, pause, chance
        self.readings = 0
        self.wrong = []
        self.verbs = (["show"], ["info", "--json"], ["check"], ["stats"], ["events"],
                      ["fetch", "--step", "10s", "--format", "csv"], ["tail", "-n", "3"],
                      ["dump"], ["dump", "--history"])

    def run(self):
        while not self.soak.ended.wait(self.pause * self.chance.uniform(0.5, 1.5)):
            words = self.chance.choice(self.verbs)
            began = uptime()
            try:
                result = subprocess.run([self.soak.vesk, *words, self.soak.base],
                                        capture_output=True, timeout=PATIENCE, check=False)
            except subprocess.TimeoutExpired:
                self.wrong.append(f"{' '.join(words)} does not end")
                continue
            self.readings += 1
            calm = not self.soak.is_troubled(began, uptime())
            if result.returncode not in ((0,) if calm else (0, 1, 3)):
                self.wrong.append(f"{' '.join(words)} ends with {result.returncode}"
                                  f"{' without a fault' if calm else ''}: {result.stderr.decode()}")


class Follower(threading.Thread):
    """Remembers the samples that `tail -f` showed."""

    def __init__(self, soak):
        super().__init__(daemon=True)
        self.soak = soak
        self.seen = set()
        self.process = None

    def run(self):
        while not self.soak.ended.is_set():
            # pylint: disable-next=consider-using-with
            self.process = subprocess.Popen(
                [self.soak.vesk, "tail", "-f", "-n", "5", "--sensor", UPTIME, "--format", "csv",
                 self.soak.base], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
            for line in self.process.stdout:
                fields = line.rstrip("\n").split(",")
                if line.endswith("\n") and len(fields) == 4 and fields[1] == "raw" and fields[3]:
                    self.seen.add(float(fields[3]))
            self.process.wait()
            self.soak.ended.wait(0.2)

    def stop(self):
        if self.process:
            self.process.terminate()
        self.join(timeout=PATIENCE)


class Senders(threading.Thread):
    """Sends events, several at a time."""

    def __init__(self, soak, pause, chance):
        super().__init__(daemon=True)
        self.soak, self.pause, self.chance = soak, pause, chance
        self.sent = self.acknowledged = 0

    def run(self):
        while not self.soak.ended.wait(self.pause * self.chance.uniform(0.5, 1.5)):
            group = []
            for _ in range(self.chance.randint(1, 6)):
                group.append(subprocess.Popen(
                    [self.soak.vesk, "event", self.soak.base, EVENT_TYPE, f"event {self.sent}"],
                    stderr=subprocess.PIPE, text=True))
                self.sent += 1
            for each in group:
                said = each.communicate()[1]
                # With a note the event is only promised.
                self.acknowledged += each.returncode == 0 and not said


class Soak:
    def __init__(self, arguments, folder):
        self.vesk = arguments.vesk
        self.chance = random.Random(arguments.seed)
        self.seconds = arguments.seconds
        self.is_short = self.seconds < 120
        disk = Path(folder, "disk")
        disk.mkdir()
        self.disk = Disk(str(disk), str(disk / "filler"))
        (disk / "box").mkdir()
        self.base = str(disk / "box" / "box")
        samples, intervals = (8, 2) if self.is_short else (120, 12)
        self.look_every = samples / 4
        self.recorder = Recorder(self.vesk, self.base, arguments.clock, samples, intervals,
                                 Path(folder, "said"))
        self.recorder.log.touch()
        self.clock = 0
        self.ended = threading.Event()
        self.troubles = []  # [begin, end] by the uptime; None while it lasts
        self.counts = {}
        self.ledger = Ledger()
        self.late = {}  # the `gap` events that tell of samples that came too late
        self.space = Space(str(disk / "box"))
        self.readers = Readers(self, 0.4 if self.is_short else 2, random.Random(arguments.seed + 1))
        self.senders = Senders(self, 0.5 if self.is_short else 3, random.Random(arguments.seed + 2))
        self.follower = Follower(self)
        self.most_bytes = 0

    # --- what the others need to know

    def is_troubled(self, begin, end):
        return any(first - BEFORE < end and (last is None or begin < last + AFTER)
                   for first, last in list(self.troubles))

    # --- the faults

    def fault_kill(self):
        self.recorder.kill()
        time.sleep(self.chance.choice([0, 0, self.chance.uniform(0, 4)]))
        self.recorder.start()

    def fault_restart(self):
        self.recorder.end(troubled=True)
        self.recorder.start()

    def fault_disk(self):
        pid = self.recorder.process.pid
        self.disk.fill(pid, self.chance.choice([0, 0, 4096, 16384, 65536]))
        time.sleep(self.length(2, 10))
        self.disk.clear(pid)

    def fault_kill_on_full_disk(self):
        self.disk.fill(self.recorder.process.pid, self.chance.choice([0, 4096, 16384]))
        time.sleep(self.length(1, 5))
        self.recorder.kill()
        self.disk.clear(self.recorder.process.pid if not self.disk.mounted else 0)
        self.recorder.start()

    def fault_clock(self):
        self.clock = max(-3600, min(3600, self.clock + self.chance.choice(
            [-600, -90, -7, -2, 2, 7, 90, 600])))
        self.recorder.set_clock(self.clock)

    def fault_wrong_clock(self):
        self.recorder.set_clock(TWENTY_YEARS)
        time.sleep(self.length(1.5, 4))
        self.recorder.set_clock(self.clock)

    def fault_descriptors(self):
        pid = self.recorder.process.pid
        usual = resource.prlimit(pid, resource.RLIMIT_NOFILE)
        left = self.recorder.descriptors() + self.chance.choice([-1, 0, 0, 1, 2])
        resource.prlimit(pid, resource.RLIMIT_NOFILE, (left, usual[1]))
        time.sleep(self.length(2, 6))
        resource.prlimit(pid, resource.RLIMIT_NOFILE, usual)

    def fault_stop(self):
        self.recorder.process.send_signal(signal.SIGSTOP)
        time.sleep(self.length(1.5, 8))
        self.recorder.process.send_signal(signal.SIGCONT)

    def fault_load(self):
        busy = [subprocess.Popen(["sh", "-c", "while :; do :; done"])
                for _ in range(1 if self.is_short else 3)]
        time.sleep(self.length(1, 8))
        for each in busy:
            each.kill()
            each.wait()

    def fault_reload(self):
        self.recorder.config.write_text(f"top {self.chance.randint(0, 5)}\n")
        self.recorder.process.send_signal(signal.SIGHUP)

    def length(self, least, most):
        return least if self.is_short else self.chance.uniform(least, most)

    def happen(self, fault):
        self.counts[fault] = self.counts.get(fault, 0) + 1
        trouble = [uptime(), None]
        self.troubles.append(trouble)
        getattr(self, "fault_" + fault)()
        trouble[1] = uptime()

    def plan(self):
        """Names of faults with the pause before each one, without an end. In long runs there are
        phases in which the recorder lives on, so that its memory can be watched, and phases in
        which it dies often."""
        gentle = ["disk", "clock", "wrong_clock", "descriptors", "stop", "load", "reload"]
        if not self.recorder.environment.get("VESK_TEST_CLOCK"):
            gentle = [each for each in gentle if "clock" not in each]
        deadly = ["kill", "kill", "kill", "restart", "kill_on_full_disk"]
        if self.is_short:
            each_once = gentle + ["kill", "restart", "kill_on_full_disk"]
            self.chance.shuffle(each_once)
            while True:
                for name in each_once:
                    yield name, 0.4
        while True:
            for _ in range(30):
                yield self.chance.choice(gentle), self.chance.uniform(12, 40)
            for _ in range(20):
                yield self.chance.choice(deadly + gentle), self.chance.uniform(1, 12)

    # --- looking

    def run_verb(self, *words):
        return subprocess.run([self.vesk, *words], capture_output=True, text=True, check=False,
                              timeout=2 * PATIENCE)

    def look(self):
        """Compares the box with all that was seen of it. Between a kill and the next start it may
        end in a torn record (3), which is no sample."""
        words = fetch_words(self.vesk, self.base)
        result = self.run_verb(*words[1:])
        if result.returncode in (0, 3):
            self.ledger.take(result.stdout)
        told = self.run_verb("info", "--json", self.base)
        if told.returncode not in (0, 3):
            return
        report = json.loads(told.stdout)
        for gap in report["gaps"]:
            if gap["reason"] == "late":
                self.late[(gap["from"], gap["to"])] = gap

    def look_on(self):
        """Looks until the end, and measures the recorder."""
        began, life, looked = time.monotonic(), 0, 0.0
        while not self.ended.wait(1):
            now = time.monotonic()
            if len(self.recorder.lives) != life:
                life, began = len(self.recorder.lives), now
            self.recorder.measure(now - began)
            if now - looked >= self.look_every:
                looked = now
                try:
                    self.look()
                except Loss as loss:
                    self.loss = loss
                    self.ended.set()

    # --- all of it

    loss = None

    def run(self):
        self.most_bytes = self.promised_bytes()
        self.recorder.start()
        began = time.monotonic()
        watchers = [self.space, self.readers, self.senders, self.follower,
                    threading.Thread(target=self.look_on, daemon=True)]
        for each in watchers:
            each.start()
        minute = 0
        for name, pause in self.plan():
            if self.ended.wait(pause) or time.monotonic() - began > self.seconds:
                break
            self.happen(name)
            if (time.monotonic() - began) // 60 > minute:
                minute = (time.monotonic() - began) // 60
                self.tell(minute)
        # What is under way at the end is given the time to settle.
        self.ended.wait(BEFORE + AFTER + 3)
        self.ended.set()
        self.follower.stop()
        for each in watchers[1:3] + watchers[4:]:
            each.join(timeout=3 * PATIENCE)
        if self.loss:
            raise self.loss
        self.verdict(time.monotonic() - began)

    def tell(self, minute):
        life = self.recorder.lives[-1]
        print(f"{minute:4.0f} min: {len(self.ledger.samples)} samples, "
              f"{self.senders.acknowledged} events, {sum(self.counts.values())} faults, "
              f"{self.readers.readings} readings, {len(self.readers.wrong)} wrong, "
              f"{life[-1][1] / 1048576 if life else 0:.1f} MiB, "
              f"{life[-1][2] if life else 0} descriptors", flush=True)

    def promised_bytes(self):
        """What `vesk estimate` says that such a box takes at most."""
        words = [*self.recorder.shape, "--event-bytes", str(EVENT_BYTES)]
        return json.loads(self.run_verb("estimate", "--json", "--measure", "1s",
                                        *words).stdout)["most_bytes"]

    def verdict(self, seconds):
        end = uptime()
        self.recorder.end()
        self.look()
        self.space.ended.set()
        self.space.join()
        for box in (self.base, self.base + ".1m"):
            checked = self.run_verb("check", box)
            require(checked.returncode == 0, f"not healthy at the end:\n{checked.stdout}")
        unsummed = len(self.ledger.samples) - self.count_in_tier()
        kills = sum(count for name, count in self.counts.items() if name.startswith("kill"))
        require(0 <= unsummed <= 60 * kills, f"{unsummed} samples are not in the tier")
        lost = self.ledger.missing_of(self.follower.seen)
        require(not lost, f"samples that `tail -f` showed are gone: {lost[:10]}")
        found, waiting = self.count_events()
        require(found >= self.senders.acknowledged,
                f"{self.senders.acknowledged} events acknowledged, {found} in the box")
        require(found <= self.senders.sent, f"{self.senders.sent} events sent, {found} in the box")
        missing, calm = self.count_unexplained(end)
        late = sum(gap.get("missed", 0) or 0 for gap in self.late.values())
        require(missing <= late, f"{missing} samples are missing in {calm:.0f} calm seconds, and "
                                 f"{late} are told")
        require(self.space.most <= self.most_bytes,
                f"{self.space.most} bytes, {self.most_bytes} are promised")
        grown = self.recorder.require_no_growth()
        wrong = self.readers.wrong
        require(not wrong, f"{len(wrong)} readings are wrong, first: {wrong[:1]}")
        faults = ", ".join(f"{count} {name}" for name, count in sorted(self.counts.items()))
        growth = ("no life was long enough to tell its growth" if grown is None else
                  f"grown by {grown / 1024:.0f} KiB in a long life")
        most = max((each[1] for life in self.recorder.lives for each in life), default=0)
        print(f"{seconds:.0f} s; faults: {faults}\n"
              f"{len(self.ledger.samples)} samples, 0 lost ({len(self.follower.seen)} followed, "
              f"{self.ledger.unseen()} seen as history only, {self.ledger.looks} looks), "
              f"{unsummed} not in the tier\n"
              f"{missing} missing in {calm:.0f} calm seconds, {late} told as late\n"
              f"{self.senders.sent} events sent, {self.senders.acknowledged} acknowledged, 0 lost "
              f"({found} in the box, {waiting} of them wait)\n"
              f"{self.readers.readings} readings, 0 wrong\n"
              f"at most {self.space.most} bytes on disk, {self.most_bytes} promised\n"
              f"memory at most {most / 1048576:.1f} MiB, {growth}\nhealthy")

    def count_in_tier(self):
        told = self.run_verb("fetch", "--sensor", "tier.1m.samples_count", "--stat", "count,mean",
                             "--format", "csv", self.base + ".1m")
        rows = [line.split(",") for line in told.stdout.splitlines()[1:]]
        return round(sum(int(row[3]) * float(row[4]) for row in rows))

    def count_events(self):
        report = json.loads(self.run_verb("info", "--json", self.base).stdout)
        listed = json.loads(self.run_verb("events", "--json", "--type", EVENT_TYPE,
                                          self.base).stdout)["events"]
        waiting = sum(event["waits"] for event in listed)
        return report["history"]["events_by_type"][EVENT_TYPE] + len(listed), waiting

    def count_unexplained(self, last):
        """The samples that are missing while there was no fault, and how long that was."""
        missing = calm = 0
        edges = sorted(self.troubles) + [[last, None]]
        for (_, begin), (end, _) in zip(edges, edges[1:]):
            begin, end = begin + AFTER, end - BEFORE
            if end - begin >= 2:
                # One at each end may lie outside.
                expected = int(end - begin) - 1
                missing += max(0, expected - self.ledger.number_between(begin, end))
                calm += end - begin
        return missing, calm


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("--clock", type=lambda text: str(Path(text).resolve()))
    parser.add_argument("--seconds", type=float, default=14)
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 30))
    parser.add_argument("--keep")
    arguments = parser.parse_args()
    print(f"--seed {arguments.seed}", flush=True)
    with tempfile.TemporaryDirectory(prefix="vesk-soak-") as folder:
        soak = Soak(arguments, folder)
        try:
            soak.run()
        except Loss as loss:
            keep = arguments.keep or tempfile.mkdtemp(prefix="vesk-soaked-")
            shutil.copytree(os.path.dirname(soak.base), os.path.join(keep, "disk"),
                            ignore=shutil.ignore_patterns("*.sock"), dirs_exist_ok=True)
            shutil.copy(soak.recorder.log, keep)
            print(f"FAILED with --seed {arguments.seed}: {loss}\nthe box is kept in {keep}")
            return 1
        finally:
            soak.ended.set()
            if soak.recorder.process and soak.recorder.process.poll() is None:
                soak.recorder.process.kill()
                soak.recorder.process.wait()
            soak.disk.close()
    return 0


if __name__ == "__main__":
    os.environ["TZ"] = "UTC0"
    sys.exit(main())
