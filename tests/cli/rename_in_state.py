#!/usr/bin/env python3
"""Puts another name into a state file, as somebody might who wants its reader to look elsewhere.

  rename_in_state.py FILE END NEW    the last name that ends with END becomes NEW
"""

import struct
import sys


def main():
    path, end, new = sys.argv[1], sys.argv[2].encode(), sys.argv[3].encode()
    with open(path, "rb") as file:
        data = file.read()
    last = data.rindex(end) + len(end)
    # A name is its length, four bytes, and its characters.
    for length in range(len(end), 1024):
        begin = last - length
        if data[begin - 4:begin] == struct.pack(">I", length):
            break
    else:
        sys.exit(f"no name ends with {end}")
    with open(path, "wb") as file:
        file.write(data[:begin - 4] + struct.pack(">I", len(new)) + new + data[last:])


if __name__ == "__main__":
    main()
