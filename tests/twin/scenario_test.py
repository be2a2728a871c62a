#!/usr/bin/env python3
"""Single stories of a recorder against the model: bare events, kills, and the example of docs/file-format.md."""

import argparse
import math
import os
import re
import struct
import sys

import twin
from vesk_format import Malformed, read_buffer, parse_state

DOCUMENT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../docs/file-format.md")
NAMES = (b"cpu", b"fan")
NO_READING = struct.unpack(">d", bytes.fromhex("7FFFFFFFE0000000"))[0]


def expect(condition, what):
    if not condition:
        raise twin.Mismatch(what)


def write(recorder, first, count):
    """Writes some vectors and returns the results that are not 0."""
    recorder.sensors(0, NAMES)
    results = [recorder.vector(0, 1000 + i, (i * 0.1, 7.0 - i)) for i in range(first, first + count)]
    return [result for result in results if result]


def events_in_full_buffer(recorder):
    """A bare event stops the first rotation that has to read it, for good, and keeps every file."""
    recorder.create(4, 2)
    expect(write(recorder, 0, 3) == [], "vectors before the event")
    recorder.event(2, 1002, b"door opened")
    expect(write(recorder, 3, 1) == [], "vector after the event")
    recorder.event(0xFFFFFF, 1003, b"accepted when full")
    expect(write(recorder, 4, 8) == [], "vectors until three buffers are full")
    expect(write(recorder, 12, 3) == [-6] * 3, "vectors that need the rotation")
    leftovers = [path for path in recorder.disk if path.endswith(".hbuf.z")]
    expect(len(leftovers) == 3, "one history buffer for each attempt")
    _, buffer, _ = read_buffer(os.path.join(recorder.directory, recorder.base + ".1.cbuf.z"))
    expect(buffer.bare_event_at is not None and len(buffer.records) == 4, "records before the event")
    recorder.close()
    recorder.open()
    expect(write(recorder, 15, 2) == [-6] * 2, "vectors after a restart, which uses the numbers again")


def events_before_any_vector(recorder):
    """The first event of a file shares its stream with the header."""
    recorder.create(2, 2)
    recorder.event(1, 900, b"booting")
    recorder.event(5, 901, b"ready")
    expect(write(recorder, 0, 4) == [], "vectors")
    recorder.event(3, 1003, b"x" * 10000)
    expect(write(recorder, 4, 2) == [], "vectors")
    expect(write(recorder, 6, 1) == [-6], "vector that needs the rotation")


def events_in_newer_buffer(recorder):
    """The history of the older buffer is made and stays as a leftover; the younger one cannot be read."""
    recorder.create(4, 4)
    expect(write(recorder, 0, 5) == [], "vectors")
    recorder.event(4, 1004, b"fan slow")
    expect(write(recorder, 5, 7) == [], "vectors")
    expect(write(recorder, 12, 1) == [-6], "vector that needs the rotation")


def events_in_steady_state(recorder):
    """From the stage hcc on, the halved history stays as a leftover."""
    recorder.create(2, 2)
    expect(write(recorder, 0, 9) == [], "vectors")
    recorder.event(1, 2000, b"late")
    expect(write(recorder, 9, 3) == [], "vectors")
    expect(write(recorder, 12, 2) == [-6, -6], "vectors that need the rotation")


def event_in_live_buffer(recorder):
    """A recorder whose open buffer holds a bare event does not reopen."""
    recorder.create(4, 2)
    write(recorder, 0, 1)
    recorder.event(1, 1000, b"note")
    recorder.close()
    expect(recorder.open() == -6, "opening")
    recorder.close()


def killed_before_first_flush(recorder):
    """A buffer file has no byte until its first record; a kill before it leaves nothing to open."""
    recorder.create(4, 2)
    recorder.crash()
    expect(recorder.open() == -48, "opening")
    recorder.close()


def killed_between_writes(recorder):
    """Every vector that was acknowledged is there after a kill, in each stage."""
    recorder.create(4, 2)
    for i in range(22):
        expect(write(recorder, i, 1) == [], "vector")
        recorder.crash()
        expect(recorder.open() == 0, "opening")


def closed_without_a_write(recorder):
    """Closing flushes the header as a stream of its own, once."""
    recorder.create(4, 2)
    for _ in range(3):
        recorder.close()
        expect(recorder.open() == 0, "opening")
    expect([len(stream) for stream in recorder.model.live_file().streams] == [9], "one stream")
    expect(write(recorder, 0, 30) == [], "vectors")


def example_of_the_document(recorder):
    """The bytes that docs/file-format.md prints are those that the library writes."""
    with open(DOCUMENT, encoding="utf-8") as file:
        blocks = re.findall(r"^```hex (\S+) (\S+)\n(.*?)^```", file.read(), re.MULTILINE | re.DOTALL)
    printed = {(name, part): bytes.fromhex(digits) for name, part, digits in blocks}
    found = {}

    def keep(name, part=None):
        path = os.path.join(recorder.directory, name)
        if name.endswith(".state"):
            with open(path, "rb") as file:
                found[name, part] = file.read()
            parse_state(found[name, part])
        else:
            for i, stream in enumerate(read_buffer(path)[0][:2]):
                found[name, str(i)] = stream.content

    recorder.create(2, 2)
    recorder.sensors(0, NAMES)
    for i in range(7):
        recorder.vector(0, 1704067200 + 60 * i, (i + 0.5, NO_READING if i == 1 else 1000.0 - i))
        if i == 1:
            keep("r.state", "c00")
            keep("r.1.cbuf.z")
    keep("r.state", "hcc")
    keep("r.4.hbuf.z")
    expect(len(printed) == 6 and printed == found, "the example: %s" % sorted(
        key for key in set(printed) | set(found) if printed.get(key) != found.get(key)))


STORIES = (events_in_full_buffer, events_before_any_vector, events_in_newer_buffer, events_in_steady_state,
           event_in_live_buffer, killed_before_first_flush, killed_between_writes, closed_without_a_write,
           example_of_the_document)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    twin.add_arguments(parser)
    parser.add_argument("story", nargs="*", help="runs these stories only")
    arguments = parser.parse_args()
    expect(math.isnan(NO_READING), "the marker of a missing value")
    failures = 0
    for story in STORIES:
        if arguments.story and story.__name__ not in arguments.story:
            continue
        recorder = twin.Twin(twin.command(arguments), base="r")
        try:
            story(recorder)
            recorder.end()
        except (twin.Mismatch, Malformed) as error:
            recorder.abandon()
            failures += 1
            print("%s: %s" % (story.__name__, error))
            print("files: %s" % recorder.directory)
            print("repeat: python3 %s --driver %s --launcher '%s' %s" % (
                sys.argv[0], arguments.driver, arguments.launcher, story.__name__))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
