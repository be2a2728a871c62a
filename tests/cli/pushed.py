"""What the tests of pushes share: telemetry that is known, boxes that are made of it while somebody
pushes them, and the comparison of both with what is in ClickHouse.
"""

import math
import random
import shutil
import struct
import subprocess
import threading
import time
from pathlib import Path

from verdict import Failure, require

EPOCH = 1_704_067_200
SENSORS = ("::a", "::b c", "::\u00e9\u4e16")
PUSH_LIMIT = 240


def stamp(seconds):
    return time.strftime("%Y%m%d:%H:%M:%S", time.gmtime(seconds))


def single(value):
    return struct.unpack("<f", struct.pack("<f", value))[0]


def bits(value):
    return struct.pack("<f", value)


class Telemetry:
    """Rows that are made up, in the order in which they are recorded. The first sensor always has a
    value, the others miss some; the values are of all kinds of bits."""

    def __init__(self, seed, step=10, first=EPOCH):
        self.chance = random.Random(seed)
        self.rows = []
        self.step = step
        self.next = first

    def value(self):
        kind = self.chance.randrange(12)
        if kind == 0:
            return math.nan
        if kind == 1:
            return single(struct.unpack("<f", self.chance.randbytes(4))[0])
        return single(self.chance.uniform(-50, 5000))

    def row(self):
        values = [single(self.chance.uniform(0, 100)), self.value(), self.value()]
        self.rows.append((self.next, values))
        self.next += self.step
        return self.rows[-1]

    @staticmethod
    def heading(row):
        return stamp(row[0]) + "," + ",".join(SENSORS) + "\n"

    @staticmethod
    def line(row):
        return stamp(row[0]) + "," + ",".join(repr(value) for value in row[1]) + "\n"


class Desk:
    """A folder with the program, boxes and cursors."""

    def __init__(self, program, folder):
        self.program = program
        self.folder = Path(folder)
        self.state = self.folder / "state"

    def run(self, *words, data=None, codes=(0,), env=None):
        done = subprocess.run([self.program, *words], cwd=self.folder, input=data, env=env,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              timeout=PUSH_LIMIT, check=False)
        text = done.stdout.decode(errors="replace")
        require(done.returncode in codes,
                f"vesk {' '.join(words)} ended with {done.returncode}: {text}")
        return text

    def push_words(self, base, url, *more, raw="all", name=""):
        return ["push", base, "--to", url, "--state", str(self.state), "--raw", raw, "--label",
                f"box={name or base}", *more]

    def push(self, base, url, *more, raw="all", name="", codes=(0,), env=None):
        words = self.push_words(base, url, *more, raw=raw, name=name)
        return self.run(*words, codes=codes, env=env)

    def forget(self):
        shutil.rmtree(self.state, ignore_errors=True)

    def import_rows(self, base, rows, samples=64, intervals=8):
        text = Telemetry.heading(rows[0]) + "".join(Telemetry.line(row) for row in rows)
        self.run("import", base, "--utc", "--samples", str(samples), "--intervals",
                 str(intervals), data=text.encode())


class Recorder(threading.Thread):
    """Records into a box without a pause, but for one: it never gets farther ahead of the beginning
    of the last whole push than a box keeps."""

    def __init__(self, desk, base, telemetry, samples=64, intervals=8):
        super().__init__(daemon=True)
        self.telemetry = telemetry
        self.ahead = samples - 8
        self.changed = threading.Condition()
        self.written = 0
        self.pushed = 0
        self.ends = False
        self.acknowledged = desk.folder / f"{base}.acknowledged"
        self.process = subprocess.Popen(
            [desk.program, "import", base, "--utc", "--samples", str(samples), "--intervals",
             str(intervals), "--acknowledge", str(self.acknowledged)],
            cwd=desk.folder, stdin=subprocess.PIPE)

    def run(self):
        pipe = self.process.stdin
        while True:
            with self.changed:
                while self.written - self.pushed >= self.ahead and not self.ends:
                    self.changed.wait()
                if self.ends:
                    return
                row = self.telemetry.row()
                self.written += 1
            text = Telemetry.line(row)
            pipe.write(((Telemetry.heading(row) if self.written == 1 else "") + text).encode())
            pipe.flush()

    def in_the_box(self):
        """How many rows are in the box for certain."""
        try:
            return self.acknowledged.read_bytes().count(b"\n")
        except FileNotFoundError:
            return 0

    def wait_for(self, rows):
        until = time.monotonic() + PUSH_LIMIT
        while self.in_the_box() < rows:
            require(time.monotonic() < until, f"{rows} rows are never recorded")
            time.sleep(0.005)

    def has_pushed(self, rows):
        """A push has ended that began when so many rows were in the box."""
        with self.changed:
            self.pushed = max(self.pushed, rows)
            self.changed.notify()

    def finish(self):
        with self.changed:
            self.ends = True
            self.changed.notify()
        self.join()
        self.process.stdin.close()
        code = self.process.wait(PUSH_LIMIT)
        require(code == 0, f"the recording ended with {code}")


def texts_in(data, at):
    length = shift = 0
    while True:
        byte = data[at]
        at += 1
        length |= (byte & 127) << shift
        shift += 7
        if byte < 128:
            return data[at:at + length].decode(errors="surrogateescape"), at + length


def samples_in(server, box, table="fleet.samples"):
    """By sensor: the times and the bits of the values, in the order of their recording."""
    data = server.bytes_of(
        f"select distinct sensor, file, time, ordinal, value from {table} where box = '{box}' "
        "order by sensor, file format RowBinary")
    found = {}
    at = 0
    while at < len(data):
        sensor, at = texts_in(data, at)
        file, when, ordinal = struct.unpack_from("<III", data, at)
        found.setdefault(sensor, []).append((when, data[at + 12:at + 16], file, ordinal))
        at += 16
    return {sensor: sorted((when, value) for when, value, _, _ in rows)
            for sensor, rows in found.items()}


def require_samples(server, box, rows, table="fleet.samples"):
    """Each value that was recorded is there once, to its last bit, and nothing else."""
    wanted = {}
    for when, values in rows:
        for sensor, value in zip(SENSORS, values):
            if not math.isnan(value):
                wanted.setdefault(sensor, []).append((when, bits(value)))
    found = samples_in(server, box, table)
    require(found.keys() == wanted.keys(), f"{box}: sensors {sorted(found)}")
    for sensor, points in wanted.items():
        points.sort()
        if found[sensor] != points:
            missing = set(points) - set(found[sensor])
            strange = set(found[sensor]) - set(points)
            raise Failure(f"{box}: {sensor}: {len(found[sensor])} values instead of {len(points)}; "
                          f"missing {sorted(missing)[:3]}, strange {sorted(strange)[:3]}")


def chain_in(server, box, sensor, table="fleet.intervals"):
    """The intervals of a sensor in the order of their recording. One that an engine had a part of
    before stands for that part, too."""
    rows = server.ask(
        f"select distinct file, ordinal, toUInt32(start), toUInt32(end), toUInt32(known), count, "
        f"min, max, first, last, mean from {table} where box = '{box}' and sensor = '{sensor}' "
        "order by file, ordinal")
    chain = []
    for row in rows:
        start, end, known, count = (int(text) for text in row[2:6])
        while known and chain and chain[-1]["start"] >= start:
            chain.pop()
        numbers = dict(zip(("min", "max", "first", "last", "mean"),
                           (float(text) for text in row[6:])))
        chain.append({"start": start, "end": end, "count": count, **numbers})
    return chain


def require_chain(server, box, rows, table="fleet.intervals"):
    """The intervals lie behind each other without a gap, from the first sample on, and each tells
    what the samples of its time were. Returns how many samples they hold."""
    at = 0
    for link in chain_in(server, box, SENSORS[0], table):
        part = rows[at:at + link["count"]]
        require(part and part[0][0] == link["start"] and part[-1][0] == link["end"],
                f"{box}: behind {at} samples comes {link}, not what begins at {rows[at][0]}")
        values = [values[0] for _, values in part]
        wanted = {"min": min(values), "max": max(values), "first": values[0], "last": values[-1]}
        for what, number in wanted.items():
            require(bits(number) == bits(link[what]), f"{box}: {what} of {link} is {number}")
        mean = sum(values) / len(values)
        require(math.isclose(mean, link["mean"], rel_tol=1e-4), f"{box}: the mean of {link}: {mean}")
        at += link["count"]
    return at


def require_whole(server, box, rows):
    """The samples, and a history that reaches up to what the box still has as samples."""
    require_samples(server, box, rows)
    return require_chain(server, box, rows)
