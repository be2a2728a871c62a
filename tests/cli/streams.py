#!/usr/bin/env python3
"""Changes the zlib streams of a buffer file the way that accidents do.

  streams.py damage FILE INDEX              flips a bit in the middle of a stream (0 is the first)
  streams.py event FILE TYPE TIME TEXT      appends an event as vesk_write_event() stores it
"""

import struct
import sys
import zlib


def streams(data):
    """The place and size of each stream."""
    found = []
    at = 0
    while at < len(data):
        decoder = zlib.decompressobj()
        decoder.decompress(data[at:])
        size = len(data) - at - len(decoder.unused_data)
        found.append((at, size))
        at += size
    return found


def damage(path, index):
    with open(path, "rb") as file:
        data = bytearray(file.read())
    at, size = streams(bytes(data))[int(index)]
    data[at + size // 2] ^= 0x10
    with open(path, "wb") as file:
        file.write(data)


def event(path, kind, seconds, text):
    body = struct.pack(">BIBiiI", 1, int(kind), 1, int(seconds), 0, len(text)) + text.encode()
    with open(path, "ab") as file:
        file.write(zlib.compress(body))


if __name__ == "__main__":
    {"damage": damage, "event": event}[sys.argv[1]](*sys.argv[2:])
