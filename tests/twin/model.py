"""A naive model of a recorder: what every file holds after each call.

It follows docs/file-format.md. Instead of files it keeps the contents of their zlib streams, and instead of reading
a buffer back it keeps the records beside them.
"""

import ctypes
import struct
import sys
from array import array

FULL = -2
MALFORMED = -6
NOT_FULL = -44
TRUNCATED = -48

COUNTERS = (1, 4, 2, 3, 5)
NO_EVENTS = dict.fromkeys(COUNTERS, 0)


# ---------------------------------------------------------------------------------------------------------------------
# Single precision

def single(x):
    """x rounded to single precision.

    A sum or product of two floats is exact in double precision, or rounded there with more than twice the digits of
    a float plus two, so that rounding it once more gives the correctly rounded float.
    """
    return ctypes.c_float(x).value


def singles(doubles):
    """The stored values of a vector."""
    return array("f", doubles)


def float_bytes(floats):
    stored = array("f", floats)
    if sys.byteorder == "little":
        stored.byteswap()
    return stored.tobytes()


# ---------------------------------------------------------------------------------------------------------------------
# Forms

def u32(n):
    return struct.pack(">I", n)


def string(text):
    return u32(len(text)) + text


def timestamp(seconds):
    return struct.pack(">Bii", 1, seconds, 0)


def sensor_array(names):
    return b"\1" + u32(len(names)) + b"".join(b"\1" + string(name) for name in names)


def header(kind, capacity):
    return u32(kind) + b"\1" + u32(capacity)


def names_record(seconds, names):
    return u32(1) + b"\1" + timestamp(seconds) + sensor_array(names)


def values_record(seconds, floats):
    return u32(2) + b"\1" + timestamp(seconds) + u32(len(floats)) + float_bytes(floats)


def event_record(event_type, seconds, text):
    return u32(3) + bare_event(event_type, seconds, text)


def bare_event(event_type, seconds, text):
    return b"\1" + u32(event_type) + timestamp(seconds) + string(text)


def interval_record(start, end, hist, events):
    return b"".join((u32(2), b"\2", timestamp(start), timestamp(end), u32(len(hist)),
                     b"".join(value.stored() for value in hist),
                     b"\1", b"".join(u32(events[event_type]) for event_type in COUNTERS)))


# ---------------------------------------------------------------------------------------------------------------------
# Statistics

class Hist:
    """The statistics of one sensor over one interval."""
    __slots__ = ("count", "minimum", "maximum", "first", "last", "sums")

    def __init__(self):
        self.count = 0
        self.minimum = self.maximum = self.first = self.last = 0.0
        self.sums = (0.0, 0.0, 0.0, 0.0)

    def update(self, v):
        if v != v:
            return
        self.count += 1
        if self.count == 1:
            self.minimum = self.maximum = self.first = v
        elif v < self.minimum:
            self.minimum = v
        elif v > self.maximum:
            self.maximum = v
        self.last = v
        p2 = single(v * v)
        p3 = single(p2 * v)
        p4 = single(p3 * v)
        s1, s2, s3, s4 = self.sums
        self.sums = (single(s1 + v), single(s2 + p2), single(s3 + p3), single(s4 + p4))

    def merge(self, later):
        if later.count == 0:
            return
        if self.count == 0:
            self.minimum, self.maximum, self.first = later.minimum, later.maximum, later.first
        else:
            self.minimum = self.minimum if self.minimum < later.minimum else later.minimum
            self.maximum = self.maximum if self.maximum > later.maximum else later.maximum
        self.count = (self.count + later.count) & 0xFFFFFFFF
        self.last = later.last
        self.sums = tuple(single(a + b) for a, b in zip(self.sums, later.sums))

    def stored(self):
        head = struct.pack(">BI4f", 1, self.count, self.minimum, self.maximum, self.first, self.last)
        # Infinities of both signs add up to this NaN on every machine, whichever this one makes.
        return head + b"".join(b"\xff\xc0\0\0" if s != s else struct.pack(">f", s) for s in self.sums)


class SensorTable:
    """The sensors of one run, in the order in which history stores them."""

    def __init__(self):
        self.buckets = [[] for _ in range(256)]
        self.hist = {}  # of the live sensors
        self.known = set()

    def get(self, name):
        if name not in self.known:
            self.known.add(name)
            self.buckets[sum(name) % 256].insert(0, name)
        if name not in self.hist:
            self.hist[name] = Hist()
        return self.hist[name]

    def order(self):
        return tuple(name for bucket in self.buckets for name in bucket if name in self.hist)

    def clear(self):
        self.hist = {}


# ---------------------------------------------------------------------------------------------------------------------
# Buffers

class BufferFile:
    """What is on disk: the contents of the streams, and the records in them."""

    def __init__(self, kind, capacity):
        self.kind = kind
        self.capacity = capacity
        self.streams = []
        self.records = []


class OpenBuffer:
    """A buffer that is written to."""

    def __init__(self, file):
        self.file = file
        self.pending = bytearray()
        self.sensors = None  # those of the last names record
        self.count = 0

    def put(self, stored, *record):
        self.pending += stored
        self.file.records.append(record)

    def flush(self):
        if self.pending:
            self.file.streams.append(bytes(self.pending))
            self.pending.clear()

    close = flush


def create_buffer(disk, path, kind, capacity):
    disk[path] = BufferFile(kind, capacity)
    buffer = OpenBuffer(disk[path])
    buffer.pending += header(kind, capacity)
    return buffer


def reopen_current(disk, path):
    """The buffer, or the error code when it cannot be read to its end."""
    buffer = OpenBuffer(disk[path])
    if not buffer.file.streams:
        return TRUNCATED
    for kind, *body in buffer.file.records:
        if kind == "bare":
            return MALFORMED
        if kind == "names":
            buffer.sensors = body[1]
        if kind == "values":
            buffer.count += 1
    return buffer


def write_vector(buffer, seconds, names, doubles):
    if buffer.count == buffer.file.capacity:
        return FULL
    if buffer.sensors != names:
        buffer.sensors = names
        buffer.put(names_record(seconds, names), "names", seconds, names)
    floats = singles(doubles)
    buffer.put(values_record(seconds, floats), "values", seconds, floats)
    buffer.flush()
    buffer.count += 1
    return 0


def write_event(buffer, event_type, seconds, text):
    buffer.put(bare_event(event_type, seconds, text), "bare")
    buffer.flush()
    return 0


def write_tagged_event(buffer, event_type, seconds, text):
    """Only behind the first vector of a file: a buffer begins with names."""
    buffer.put(event_record(event_type, seconds, text), "event", event_type)
    buffer.flush()
    return 0


def write_interval(buffer, start, end, table, events):
    if buffer.count == buffer.file.capacity:
        return FULL
    names = table.order()
    if buffer.sensors != names:
        buffer.sensors = names
        buffer.put(names_record(start, names), "names", start, names)
    hist = [table.hist[name] for name in names]
    buffer.put(interval_record(start, end, hist, events), "interval", start, end, hist, events)
    buffer.flush()
    buffer.count += 1
    return 0


def summarise(file, out, samples_per_interval):
    """Appends the intervals of a full current buffer to a history buffer."""
    if (file.capacity % samples_per_interval
            or out.file.capacity - out.count < file.capacity // samples_per_interval):
        return MALFORMED
    table = SensorTable()
    sensors = None
    samples = 0
    events = dict(NO_EVENTS)
    start = end = None
    for kind, *body in file.records:
        if kind == "bare":
            if samples:
                write_interval(out, start, end, table, events)
            return MALFORMED
        if kind == "event":
            events[body[0]] += 1
            continue
        if kind == "names":
            sensors = body[1]
            continue
        end, floats = body
        if samples == 0:
            start = end
        samples += 1
        for name, value in zip(sensors, floats):
            table.get(name).update(value)
        if samples == samples_per_interval:
            write_interval(out, start, end, table, events)
            table.clear()
            events = dict(NO_EVENTS)
            samples = 0
    if samples:
        write_interval(out, start, end, table, events)
    return 0


def halve(file, out):
    """Appends the intervals of a full history buffer to another, in pairs."""
    if out.file.capacity - out.count < file.capacity // 2:
        return MALFORMED
    sensors = None
    intervals = []
    for kind, *body in file.records:
        if kind == "names":
            sensors = body[1]
        else:
            intervals.append((sensors, *body))
    table = SensorTable()
    for pair in range(0, len(intervals) - 1, 2):
        names1, start, _, hist1, events1 = intervals[pair]
        names2, _, end, hist2, events2 = intervals[pair + 1]
        for name, value in zip(names1, hist1):
            table.get(name).merge(value)
        for name, value in zip(names2, hist2):
            table.get(name).merge(value)
        events = {kind: (events1[kind] + events2[kind]) & 0xFFFFFFFF for kind in COUNTERS}
        write_interval(out, start, end, table, events)
        table.clear()
    return 0 if len(intervals) == file.capacity else NOT_FULL


# ---------------------------------------------------------------------------------------------------------------------
# The recorder

C00, CC0, CCC, HCC = 1, 2, 3, 4


class Recorder:
    """A recorder over a disk: a dictionary from paths to BufferFile, or to bytes for state files."""

    def __init__(self, disk, base):
        self.disk = disk
        self.base = base
        self.live = None

    def create(self, samples, intervals):
        self.samples, self.intervals = samples, intervals
        self.number = 1
        self.state = C00
        self.paths = [self._path("cbuf")]
        self.live = create_buffer(self.disk, self.paths[-1], 1, samples)
        self._save()

    def open(self):
        """0, or an error code when the live buffer cannot be read: the recorder is then no use."""
        self.samples, self.intervals, self.number, self.state, self.paths = self.saved
        self.paths = list(self.paths)
        live = reopen_current(self.disk, self.paths[-1])
        if isinstance(live, int):
            return live
        self.live = live
        return 0

    def close(self):
        if self.live:
            self.live.close()
        self.live = None

    def crash(self):
        """The process is killed: what was not flushed is lost."""
        self.live = None

    def live_file(self):
        return self.disk[self.paths[-1]]

    def write_event(self, event_type, seconds, text):
        return write_event(self.live, event_type, seconds, text)

    def write_tagged_event(self, event_type, seconds, text):
        return write_tagged_event(self.live, event_type, seconds, text)

    def write_vector(self, seconds, names, doubles):
        result = write_vector(self.live, seconds, names, doubles)
        if result != FULL:
            return result
        result = self._rotate()
        if result < 0:
            return result
        return write_vector(self.live, seconds, names, doubles)

    def _path(self, suffix):
        path = "%s.%d.%s.z" % (self.base, self.number, suffix)
        self.number += 1
        return path

    def _save(self):
        stored = [b"\1", string(self.base.encode()), string(self.base.encode() + b".state")]
        stored += map(u32, (self.state, self.samples, self.intervals, self.samples // self.intervals, self.number))
        stored += [b"\1"] + [string(path.encode()) for path in self.paths]
        self.disk[self.base + ".state"] = b"".join(stored)
        self.saved = (self.samples, self.intervals, self.number, self.state, tuple(self.paths))

    def _rotate(self):
        if self.state in (C00, CC0):
            consumed, kept = [], self.paths
            self.state += 1
        else:
            path = self._path("hbuf")
            history = create_buffer(self.disk, path, 2, 2 * self.intervals)
            consumed, kept = self.paths[:2], [path, self.paths[2]]
            result = self._condense(history, *consumed)
            history.close()
            if result < 0:
                return result
            self.state = HCC
        path = self._path("cbuf")
        live = create_buffer(self.disk, path, 1, self.samples)
        self.live.close()
        self.live = live
        self.paths = kept + [path]
        self._save()
        for path in consumed:
            del self.disk[path]
        return 0

    def _condense(self, history, oldest, older):
        """Fills a history buffer from the two oldest files."""
        per_interval = self.samples // self.intervals
        if self.state == CCC:
            result = summarise(self.disk[oldest], history, per_interval)
        else:
            result = halve(self.disk[oldest], history)
        if result < 0:
            return result
        return summarise(self.disk[older], history, per_interval)
