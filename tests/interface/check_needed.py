#!/usr/bin/env python3
"""Checks what the shared library needs at run time, and its own name.

usage: check_needed.py LIBRARY
"""
import re
import subprocess
import sys


def main():
    output = subprocess.run(
        ["readelf", "-d", sys.argv[1]], capture_output=True, text=True, check=True
    ).stdout
    needed = sorted(re.findall(r"\(NEEDED\).*\[(.*?)\]", output))
    soname = re.findall(r"\(SONAME\).*\[(.*?)\]", output)
    print("needs", *needed)
    print("is", *soname)
    expected = ["libc.so.6", "libm.so.6", "libz.so.1"]
    return 0 if needed == expected and soname == ["libvesk.so.1"] else 1


if __name__ == "__main__":
    sys.exit(main())
