#!/usr/bin/env python3
"""Lets the calls that the command makes of the system fail, one at a time, and looks whether it keeps
its word.

For each verb, each box and each kind of call the first call fails, then the second, and so on until
there is none left to fail: once, and with all calls behind it. Each time

  - the command ends by itself, within the time limit, with an exit code that fits: 0 or 1 where
    nothing is damaged, and 3 or 4 besides where the box is;
  - with 0, a reader has printed what it prints without the failure, and a writer has written
    everything;
  - behind that `repair` and `check` are fine, and all that was there before or was acknowledged is in
    the box once and in order.

  surroundings_test.py --vesk build/release/cli/vesk --shim build/release/tests/.../libfailing_calls.so
      --sample          a part of it, for every change
      --only PATTERN    the cases whose names match ('import/*', '*/read/*'), to repeat one
"""

import argparse
import collections
import csv
import errno
import fnmatch
import io
import itertools
import json
import os
import queue
import re
import shutil
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

EPOCH = 1_600_000_000
TIME_LIMIT = 20
ADDED = 6
RECORDED = 3
# One case of so many is tried with every change, and of that the calls 1, 2, 4, 8, ...
SAMPLE = 163
# A call that is met again and again for ever is no call that fails.
MOST_CALLS = 2000


# What was found to be wrong once is tried whole with every change.
ONCE_WRONG = ("check/hcc/list/EIO/once", "check/hcc/open/EMFILE/once", "check/hcc/stat/EIO/once",
              "info/hcc/stat/EIO/once", "diff--all--b//c00_full/read/EIO/once",
              "fetch--formatcsv/c00_full/read/EIO/once", "show/hcc/open/EMFILE/once",
              "show/hcc/read/EIO/once", "report/hcc/read/EIO/once", "show/c00/clock/EINVAL/once",
              "report/tiered/stat/EIO/once", "info/tiered/stat/EIO/once")


class Failure(Exception):
    pass


def require(condition, text):
    if not condition:
        raise Failure(text)


# --- what fails ---------------------------------------------------------------------------------

# The kind of call, how it fails, and whether that may last.
FAILURES = [
    ("read", errno.EIO, True), ("read", errno.EINTR, False), ("read", "short", True),
    ("write", errno.ENOSPC, True), ("write", errno.EIO, True), ("write", errno.EINTR, False),
    ("write", "short", True),
    ("open", errno.EMFILE, True), ("open", errno.EIO, True), ("open", errno.EINTR, False),
    ("close", errno.EIO, True), ("list", errno.EIO, True), ("stat", errno.EIO, True),
    ("lock", errno.ENOLCK, True), ("lock", errno.EINTR, True), ("fork", errno.EAGAIN, True),
    ("socket", errno.EMFILE, True), ("socket", errno.EACCES, True),
    ("socket", errno.EINTR, False), ("wait", errno.EINTR, False), ("rename", errno.EIO, True),
    ("rename", errno.ENOSPC, True), ("sync", errno.EIO, True), ("unlink", errno.EIO, True),
    ("truncate", errno.EIO, True), ("truncate", errno.EINTR, False), ("seek", errno.EIO, True),
    # Without any clock there is nothing to be done at the right time.
    ("clock", errno.EINVAL, False),
]
def failure_name(kind, how, lasting):
    words = how if how == "short" else errno.errorcode[how]
    return f"{kind}/{words}/{'for_ever' if lasting else 'once'}"


# --- boxes --------------------------------------------------------------------------------------

def stamp(number):
    return time.strftime("%Y%m%d:%H:%M:%S", time.gmtime(EPOCH + number))


def lines(first, count, seconds=1):
    text = f"{stamp(first * seconds)},::seq,::b\n"
    for number in range(first, first + count):
        text += f"{stamp(number * seconds)},{number},{number % 7}.5\n"
    return text


# Of the events that this test makes; recordings write none of it.
TYPE = "5"

# The seconds are those between two vectors.
Shape = collections.namedtuple("Shape", "name samples intervals vectors damage seconds tiers waiting",
                               defaults=(1, None, 0))


def all_shapes():
    """Boxes in all stages, some of which take turns with the next vectors."""
    result = [Shape("none", 4, 2, 0, None)]
    for name, vectors in (("c00", 2), ("c00_full", 4), ("cc0", 6), ("ccc", 10), ("ccc_full", 12),
                          ("hcc", 14), ("hcc_full", 16)):
        result.append(Shape(name, 4, 2, vectors, None))
    result.append(Shape("small_ccc_full", 2, 2, 6, None))
    result.append(Shape("small_hcc_full", 2, 2, 12, None))
    result.append(Shape("torn", 4, 2, 14, "torn"))
    result.append(Shape("stateless", 4, 2, 14, "stateless"))
    result.append(Shape("tiered", 4, 2, 14, None, seconds=20, tiers="1m"))
    result.append(Shape("waiting", 4, 2, 12, None, waiting=2))
    return result


SHAPES = all_shapes()


def make(vesk, shape, base):
    if shape.vectors == 0:
        return
    sizes = ["--samples", str(shape.samples), "--intervals", str(shape.intervals)]
    if shape.tiers is not None:
        sizes += ["--tiers", shape.tiers]

    def run(*words, text=None):
        result = subprocess.run([vesk, *words], input=text, text=True, capture_output=True, check=False)
        require(result.returncode == 0, result.stderr)

    run("import", base, "-", "--utc", *sizes, text=lines(1, shape.vectors - 1, shape.seconds))
    # Behind the last vector of a full buffer the history would not count it.
    run("event", base, TYPE, "an event")
    run("import", base, "-", "--utc", text=lines(shape.vectors, 1, shape.seconds))
    for _ in range(shape.waiting):
        run("event", base, TYPE, "an event for which the full buffer has no room")
    require(Path(f"{base}.events").exists() == (shape.waiting > 0), "the events do not wait")
    if shape.damage == "torn":
        buffers = Path(base).parent.glob("box.*.cbuf.z")
        newest = max(buffers, key=lambda path: int(path.name.split(".")[1]))
        newest.write_bytes(newest.read_bytes()[:-9])
    elif shape.damage == "stateless":
        os.unlink(f"{base}.state")


# --- what is in them ----------------------------------------------------------------------------

class Content:
    """What is in a box."""

    def __init__(self, vesk, base):
        self.numbers = []
        self.samples = 0
        self.events = 0
        self.read_history(self.run(vesk, "dump", "--history", "--utc", base))
        self.read_raw(self.run(vesk, "dump", "--utc", base))
        self.count_events(self.run(vesk, "dump", "--events", base),
                          self.run(vesk, "info", "--json", base))

    @staticmethod
    def run(*words):
        result = subprocess.run(words, capture_output=True, text=True, check=False)
        require(result.returncode == 0, f"{words[1:]} ends with {result.returncode}: {result.stderr}")
        return result.stdout

    def read_history(self, text):
        for row in csv.DictReader(io.StringIO(text)):
            count = int(row["count"])
            if row["sensor"] == "::seq" and count > 0:
                first, last = int(float(row["first"])), int(float(row["last"]))
                require(last - first + 1 == count, f"{first} to {last} in {count} samples")
                self.numbers += range(first, last + 1)
            elif row["sensor"] == "::load.1min":
                self.samples += count

    def read_raw(self, text):
        names = []
        for line in text.splitlines():
            fields = line.split(",")[1:]
            if fields[0].startswith("::"):
                names = fields
            elif "::seq" in names and fields[names.index("::seq")] != "nan":
                self.numbers.append(int(float(fields[names.index("::seq")])))
            elif "::load.1min" in names and fields[names.index("::load.1min")] != "nan":
                self.samples += 1

    @staticmethod
    def read_tier(text):
        """The vectors of each row, the first and the last; no two rows may sum up the same one."""
        rows = []
        names = []
        for line in text.splitlines():
            fields = line.split(",")[1:]
            if fields[0].startswith("::"):
                names = fields
            elif "::seq" in names:
                row = dict(zip(names, fields))
                first, last = (int(float(row.get(f"::{side}.seq", row["::seq"])))
                               for side in ("min", "max"))
                require(first > (rows[-1][1] if rows else 0), f"{first} comes again in the tier")
                rows.append((first, last))
        return rows

    def count_events(self, shown, told):
        """Those in the box, those that wait and those that are counted in the history."""
        self.events = sum(row["type"] == TYPE for row in csv.DictReader(io.StringIO(shown)))
        self.events += json.loads(told)["history"]["events_by_type"][TYPE]


# --- trials -------------------------------------------------------------------------------------

READERS = ("dump", "dump --history", "dump --events", "info", "info --json", "show", "report",
           "check", "check --json", "repair --dry-run", "suspects --json", "stats --json", "fetch --format csv",
           "export --format jsonl", "diff --all --b /", "tail", "events",
           "plot ::b --ascii --width 60 --height 8")
WRITERS = ("import", "record", "event", "repair")
Case = collections.namedtuple("Case", "verb shape kind how lasting")
Result = collections.namedtuple("Result", "code output messages reached")


def name_of(case):
    how = case.how if case.how == "short" else errno.errorcode[case.how]
    return "/".join([case.verb.replace(" ", ""), case.shape.name, case.kind, how,
                     "for_ever" if case.lasting else "once"])


class Place:
    """A folder in which one try after the other is made. A box must stay where it was made."""

    def __init__(self, arguments, folder):
        self.vesk = arguments.vesk
        self.shim = arguments.shim
        self.folder = Path(folder)
        self.boxes = self.folder / "boxes"
        self.here = self.folder / "here"
        self.base = str(self.here / "box")
        self.expectations = {}
        self.boxes.mkdir()
        for shape in SHAPES:
            self.clear()
            make(self.vesk, shape, self.base)
            text = lines(shape.vectors + 1, ADDED, shape.seconds)
            (self.here / "text").write_text(text)
            shutil.copytree(self.here, self.boxes / shape.name)

    def clear(self):
        shutil.rmtree(self.here, ignore_errors=True)
        self.here.mkdir()

    def lay_out(self, shape):
        self.clear()
        shutil.copytree(self.boxes / shape.name, self.here, dirs_exist_ok=True)

    def files(self):
        return {entry.name: Path(entry.path).read_bytes() for entry in os.scandir(self.here)
                if entry.is_file(follow_symlinks=False) and entry.name.startswith("box")}

    def words(self, case):
        verb, *options = case.verb.split()
        sizes = ["--samples", str(case.shape.samples), "--intervals", str(case.shape.intervals)]
        return {
            "import": ["import", self.base, str(self.here / "text"), "--utc", "--sync", "vector",
                       "--acknowledge", str(self.here / "told"), *sizes],
            "record": ["record", self.base, "--for", f"{RECORDED}s", "--top", "0",
                       "--no-kernel-log", *sizes],
            "event": ["event", self.base, TYPE, "the new event"],
        }.get(verb, [verb, self.base, *options, *([] if verb != "dump" else ["--utc"])])

    def run(self, case, number):
        """Runs the verb with this call failing; none with number 0."""
        reached = self.folder / "reached"
        reached.unlink(missing_ok=True)
        never = number == 0
        plan = {"LD_PRELOAD": self.shim, "VESK_FAIL_CALLS": case.kind, "VESK_FAIL_AT": str(number),
                "VESK_FAIL_WITH": str(case.how), "VESK_FAIL_BELOW": str(self.here),
                "VESK_FAIL_REACHED": str(reached), "VESK_FAIL_NO_WAIT": "1"}
        if case.lasting and not never:
            plan["VESK_FAIL_FOR_EVER"] = "1"
        output = self.here / "output"
        with open(output, "wb") as stream:
            process = subprocess.Popen([self.vesk, *self.words(case)], stdout=stream,
                                       stderr=subprocess.PIPE, env={**os.environ, **plan})
            try:
                messages = process.communicate(timeout=TIME_LIMIT)[1].decode(errors="replace")
            except subprocess.TimeoutExpired as reason:
                process.kill()
                process.communicate()
                raise Failure("does not end") from reason
        # show tells how long ago the latest sample was taken.
        printed = re.sub(rb"was taken .* ago", b"was taken some time ago", output.read_bytes())
        return Result(process.returncode, printed, messages, reached.exists())

    def expected(self, case):
        """What happens when nothing fails, and what is in the box before."""
        key = (case.verb, case.shape.name)
        if key not in self.expectations:
            self.lay_out(case.shape)
            before = None
            if case.shape.vectors > 0:
                self.mend(case.shape)
                before = Content(self.vesk, self.base)
            self.lay_out(case.shape)
            usual = self.run(case, 0)
            require(usual.code != 2, f"{case.verb} is wrong usage: {usual.messages}")
            self.expectations[key] = (usual, before)
        return self.expectations[key]

    def mend(self, shape):
        sizes = ["--samples", str(shape.samples), "--intervals", str(shape.intervals)]
        result = subprocess.run([self.vesk, "repair", self.base, *sizes], capture_output=True, text=True,
                                check=False)
        require(result.returncode == 0, f"cannot be repaired: {result.stderr}")
        result = subprocess.run([self.vesk, "check", self.base], capture_output=True, text=True,
                                check=False)
        require(result.returncode == 0, f"not healthy: {result.stdout}{result.stderr}")

    def try_one(self, case, number):
        usual, before = self.expected(case)
        self.lay_out(case.shape)
        at_first = self.files()
        found = self.run(case, number)
        try:
            require(found.code in (usual.code, 1), f"exit code {found.code}, not {usual.code} or 1")
            require(found.code != 1 or found.messages or found.output != usual.output,
                    "exit code 1 without a word")
            if case.verb in WRITERS:
                self.judge_writer(case, usual, before, found)
            else:
                require(found.code == 1 or found.output == usual.output, "prints something else:\n"
                        + found.output.decode(errors="replace"))
                require(self.files() == at_first, "has changed a file")
        except Failure as reason:
            raise Failure(
                f"{reason}\n     it said: {found.messages.strip()} ({found.code})") from reason
        return found

    def judge_writer(self, case, usual, before, found):
        if usual.code != 0:
            require(found.code != 0 and not list(self.here.glob("box.*buf.z")), "has made a box")
            return
        if before is None and not list(self.here.glob("box.*z")) \
                and not list(self.here.glob("box.state*")):
            require(found.code == 1, "has made nothing")
            return
        self.mend(case.shape)
        after = Content(self.vesk, self.base)
        wanted = [] if before is None else list(before.numbers)
        if case.verb == "import":
            least = ADDED if found.code == 0 else self.acknowledged()
            added = max(least, min(len(after.numbers) - len(wanted), ADDED))
            wanted += range(case.shape.vectors + 1, case.shape.vectors + 1 + added)
        require(after.numbers == wanted, f"holds {after.numbers}, not {wanted}")
        if case.shape.tiers is not None:
            self.judge_tier(case.shape, after)
        events = 0 if before is None else before.events
        events += case.verb == "event" and found.code == 0
        require(events <= after.events <= events + (case.verb == "event"), f"{after.events} events, "
                f"not {events}")
        if case.verb == "record":
            self.judge_recording(found, after)

    def judge_tier(self, shape, content):
        """What went wrong in the tier costs rows of it, and none of those that it had."""
        rows = content.read_tier(
            content.run(self.vesk, "dump", "--utc", f"{self.base}.{shape.tiers}"))
        require(rows and rows[0][0] == 1 and rows[-1][1] >= shape.vectors, f"the tier has {rows}")
        require(rows[-1][1] <= content.numbers[-1], f"the tier has {rows} of {content.numbers}")

    def acknowledged(self):
        told = self.here / "told"
        return len(told.read_text().splitlines()) if told.exists() else 0

    @staticmethod
    def judge_recording(found, after):
        missing = sum(int(number) for number in
                      re.findall(r"([0-9]+) samples? (?:is|are) (?:missing|not recorded)", found.messages))
        least = RECORDED - missing if found.code == 0 or missing > 0 else 0
        require(least <= after.samples <= RECORDED, f"{after.samples} samples, not {least}")


# --- all of it ----------------------------------------------------------------------------------

class Figures:
    def __init__(self):
        self.reached = 0
        self.codes = collections.Counter()
        self.failed = []


def try_all(place, case, figures, numbers, most_told=3):
    """The first call, the second, ... until there is none."""
    for number in numbers:
        require(number < MOST_CALLS, f"{name_of(case)}: more than {MOST_CALLS} calls")
        try:
            found = place.try_one(case, number)
        except Failure as reason:
            figures.failed.append(name_of(case))
            if figures.failed.count(name_of(case)) <= most_told:
                print(f"FAIL --only {name_of(case)} --number {number}: {reason}", flush=True)
            if not (place.folder / "reached").exists():
                return
            continue
        if not found.reached:
            return
        figures.reached += 1
        figures.codes[found.code] += 1


def all_cases():
    for verb in WRITERS + READERS:
        for shape in SHAPES:
            for kind, how, may_last in FAILURES:
                for lasting in [False, True] if may_last else [False]:
                    yield Case(verb, shape, kind, how, lasting)


def sampled(cases):
    """A part in which each verb, each box and each way to fail comes."""
    return [case for i, case in enumerate(cases) if i % SAMPLE == 0 or name_of(case) in ONCE_WRONG]


def numbers_of(arguments, case):
    if arguments.number:
        return [arguments.number]
    powers = arguments.sample and name_of(case) not in ONCE_WRONG
    return (2 ** i for i in itertools.count()) if powers else itertools.count(1)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("--shim", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("--sample", action="store_true")
    parser.add_argument("--only", default="*", metavar="PATTERN")
    parser.add_argument("--number", type=int, help="this call only")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    arguments = parser.parse_args()
    cases = [case for case in all_cases() if fnmatch.fnmatch(name_of(case), arguments.only)]
    if arguments.sample:
        cases = sampled(cases)
    figures = Figures()
    began = time.monotonic()
    with tempfile.TemporaryDirectory(prefix="vesk-surroundings-") as folder:
        places = queue.Queue()
        for i in range(arguments.jobs):
            (Path(folder) / str(i)).mkdir()
            places.put(Place(arguments, Path(folder) / str(i)))

        def work(case):
            place = places.get()
            try:
                numbers = numbers_of(arguments, case)
                try_all(place, case, figures, numbers)
            finally:
                places.put(place)

        with ThreadPoolExecutor(arguments.jobs) as pool:
            list(pool.map(work, cases))
    codes = ", ".join(f"{code}: {count}" for code, count in sorted(figures.codes.items()))
    print(f"{len(cases)} cases, {figures.reached} calls that failed in "
          f"{time.monotonic() - began:.0f} s; exit codes {codes}; {len(figures.failed)} not as they "
          f"should be")
    return 1 if figures.failed or figures.reached == 0 else 0


if __name__ == "__main__":
    os.environ["TZ"] = "UTC0"
    time.tzset()
    sys.exit(main())
