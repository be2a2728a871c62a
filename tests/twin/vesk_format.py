#!/usr/bin/env python3
"""Decodes the files of a recorder. Made from docs/file-format.md alone; shares no code with the library.

    vesk_format.py FILE...      prints what the files hold
"""

import struct
import sys
import zlib
from dataclasses import dataclass, field

CURRENT, HISTORY = 1, 2
NAMES, VALUES, EVENT = 1, 2, 3
INTERVAL = 2
COUNTERS = (1, 4, 2, 3, 5)  # event types, in stored order
STAGES = {1: "c00", 2: "cc0", 3: "ccc", 4: "hcc"}
LIMIT = 10000


class Malformed(Exception):
    """The bytes are not what the format says."""


class Truncated(Malformed):
    """The bytes end inside a form."""


@dataclass
class Stream:
    """One complete zlib stream: where its bytes lie in the file, and its content."""
    start: int
    end: int
    content: bytes


@dataclass
class Names:
    time: int
    sensors: list


@dataclass
class Values:
    time: int
    values: tuple


@dataclass
class Event:
    type: int
    time: int
    text: bytes


@dataclass
class HistValue:
    count: int
    minimum: float
    maximum: float
    first: float
    last: float
    sums: tuple


@dataclass
class Interval:
    start: int
    end: int
    hist: list
    events: dict


@dataclass
class Buffer:
    kind: int
    capacity: int
    records: list = field(default_factory=list)
    ends: list = field(default_factory=list)  # offset behind each record
    bare_event_at: int = None  # offset of the first bare event, where reading stops


@dataclass
class State:
    base: bytes
    state_path: bytes
    state: int
    samples: int
    intervals: int
    samples_per_interval: int
    next_number: int
    paths: list


# ---------------------------------------------------------------------------------------------------------------------
# Section 4: streams

def split_streams(data, start=0):
    """The complete streams of a file from a savepoint on, and the offset of the last savepoint.

    Damage raises Malformed; a torn stream at the end is left to the caller, who sees that the savepoint is not the end.
    """
    streams = []
    view = memoryview(data)
    position = start
    while position < len(data):
        inflater = zlib.decompressobj()
        try:
            content = inflater.decompress(view[position:])
        except zlib.error as error:
            raise Malformed("offset %d: %s" % (position, error)) from None
        if not inflater.eof:
            break
        end = len(data) - len(inflater.unused_data)
        streams.append(Stream(position, end, content))
        position = end
    return streams, position


# ---------------------------------------------------------------------------------------------------------------------
# Section 1: primitive forms

class Cursor:
    """Reads forms from bytes, one after the other."""

    def __init__(self, data):
        self.data = data
        self.at = 0

    def at_end(self):
        return self.at == len(self.data)

    def take(self, size):
        if self.at + size > len(self.data):
            raise Truncated("the data ends inside an item at offset %d" % self.at)
        self.at += size
        return self.data[self.at - size:self.at]

    def number(self):
        return int.from_bytes(self.take(4), "big")

    def version(self, *known):
        found = self.take(1)[0]
        if found not in known:
            raise Malformed("version %d at offset %d" % (found, self.at - 1))
        return found

    def count(self):
        n = self.number()
        if not 1 <= n <= LIMIT:
            raise Malformed("count %d at offset %d" % (n, self.at - 4))
        return n

    def string(self):
        text = bytes(self.take(self.count()))
        if 0 in text:
            raise Malformed("zero byte in a string before offset %d" % self.at)
        return text

    def timestamp(self):
        self.version(1)
        seconds, microseconds = struct.unpack(">iI", self.take(8))
        if microseconds:
            raise Malformed("microseconds at offset %d" % (self.at - 4))
        return seconds

    def sensor(self):
        self.version(1)
        return self.string()

    def sensor_array(self):
        self.version(1)
        return [self.sensor() for _ in range(self.count())]


# ---------------------------------------------------------------------------------------------------------------------
# Section 3: the state file

def parse_state(data):
    c = Cursor(data)
    c.version(1)
    base, state_path = c.string(), c.string()
    state, samples, intervals, per_interval, number = (c.number() for _ in range(5))
    if not samples or samples % 2 or not intervals or samples % intervals or per_interval != samples // intervals:
        raise Malformed("sizes %d, %d, %d" % (samples, intervals, per_interval))
    if state not in STAGES:
        raise Malformed("state %d" % state)
    c.version(1)
    paths = [c.string() for _ in range({1: 1, 2: 2, 3: 3, 4: 3}[state])]
    return State(base, state_path, state, samples, intervals, per_interval, number, paths)


# ---------------------------------------------------------------------------------------------------------------------
# Sections 5 to 7: buffers

def _names(c):
    c.version(1)
    return Names(c.timestamp(), c.sensor_array())


def _values(c):
    c.version(1)
    time = c.timestamp()
    n = c.count()
    return Values(time, struct.unpack(">%df" % n, c.take(4 * n)))


def _event(c):
    c.version(1)
    event_type = c.number()
    return Event(event_type, c.timestamp(), c.string())


def _hist_value(c):
    c.version(1)
    count, minimum, maximum, first, last, *sums = struct.unpack(">I8f", c.take(36))
    return HistValue(count, minimum, maximum, first, last, tuple(sums))


def _interval(c):
    version = c.version(1, 2)
    start, end = c.timestamp(), c.timestamp()
    hist = [_hist_value(c) for _ in range(c.count())]
    events = dict.fromkeys(COUNTERS, 0)
    if version == 2:
        c.version(1)
        events = {event_type: c.number() for event_type in COUNTERS}
    return Interval(start, end, hist, events)


RECORDS = {
    CURRENT: {NAMES: _names, VALUES: _values, EVENT: _event},
    HISTORY: {NAMES: _names, INTERVAL: _interval},
}


def parse_buffer(content):
    """The records of a buffer's content. Reading stops for good at a bare event."""
    c = Cursor(content)
    kind = c.number()
    if kind not in RECORDS:
        raise Malformed("kind word %d" % kind)
    c.version(1)
    capacity = c.number()
    if not capacity or capacity % 2:
        raise Malformed("capacity %d" % capacity)
    buffer = Buffer(kind, capacity)
    sensors = None
    samples = 0
    while not c.at_end():
        start = c.at
        record_type = c.number()
        if kind == CURRENT and record_type >= 0x01000000:
            buffer.bare_event_at = start
            break
        if record_type not in RECORDS[kind]:
            raise Malformed("record type %d at offset %d" % (record_type, start))
        record = RECORDS[kind][record_type](c)
        if isinstance(record, Names):
            sensors = record.sensors
        elif sensors is None:
            raise Malformed("the first record names no sensors")
        elif not isinstance(record, Event):
            samples += 1
            n = len(record.values if kind == CURRENT else record.hist)
            if n != len(sensors):
                raise Malformed("%d values for %d sensors at offset %d" % (n, len(sensors), start))
        buffer.records.append(record)
        buffer.ends.append(c.at)
    if samples > capacity:
        raise Malformed("%d records in a buffer of %d" % (samples, capacity))
    return buffer


def read_buffer(path):
    """The streams of a buffer file up to its last savepoint, and the records in them."""
    with open(path, "rb") as file:
        data = file.read()
    streams, savepoint = split_streams(data)
    content = b"".join(stream.content for stream in streams)
    return streams, parse_buffer(content), len(data) - savepoint


# ---------------------------------------------------------------------------------------------------------------------
# The command

def _show_state(state):
    print("state %s, %d samples in a current buffer, %d intervals of %d samples, next number %d" % (
        STAGES[state.state], state.samples, state.intervals, state.samples_per_interval, state.next_number))
    for path in state.paths:
        print("  " + path.decode(errors="replace"))


def _show_buffer(streams, buffer, torn):
    print("%s buffer of %d, %d streams" % ({1: "current", 2: "history"}[buffer.kind], buffer.capacity, len(streams)))
    for record in buffer.records:
        print("  %r" % (record,))
    if buffer.bare_event_at is not None:
        print("  bare event at offset %d: the rest cannot be read" % buffer.bare_event_at)
    if torn:
        print("  %d bytes of a torn stream" % torn)


def main(paths):
    status = 0
    for path in paths:
        print(path + ":")
        try:
            if path.endswith(".state"):
                with open(path, "rb") as file:
                    _show_state(parse_state(file.read()))
            else:
                _show_buffer(*read_buffer(path))
        except (Malformed, OSError) as error:
            print("  %s" % error)
            status = 1
    return status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
