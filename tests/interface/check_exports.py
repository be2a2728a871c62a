#!/usr/bin/env python3
"""Compares, both ways, the names that the shared library exports with the list kept beside this
script, with the names that the public headers mark VESK_API and with the version script.

usage: check_exports.py LIBRARY INCLUDE_DIR VERSION_SCRIPT [NM]
"""
import pathlib
import re
import subprocess
import sys


def exported(library, nm):
    output = subprocess.run(
        [nm, "-D", "--defined-only", library], capture_output=True, text=True, check=True
    ).stdout
    symbols = [line.split() for line in output.splitlines()]
    # Kind A is the version node itself.
    return {symbol[-1].split("@")[0] for symbol in symbols if symbol[-2] != "A"}


def declared(include):
    names = set()
    for header in pathlib.Path(include).glob("*.h"):
        text = re.sub(r"/\*.*?\*/", "", header.read_text(), flags=re.S)
        for declaration in re.findall(r"^VESK_API ([^;]*);", text, flags=re.M):
            names.add(re.search(r"(\w+)\s*(\(|$)", declaration).group(1))
    return names


def scripted(version_script):
    text = pathlib.Path(version_script).read_text()
    return set(re.findall(r"^\s+(\w+);", text, flags=re.M))


def main():
    library, include, version_script, *nm = sys.argv[1:]
    listed = set((pathlib.Path(__file__).parent / "exported.txt").read_text().split())
    found = {
        "the library": exported(library, nm[0] if nm else "nm"),
        "the headers": declared(include),
        "the version script": scripted(version_script),
    }
    failed = False
    for where, names in found.items():
        for name in sorted(listed - names):
            failed = True
            print(f"{name} is listed, but missing in {where}")
        for name in sorted(names - listed):
            failed = True
            print(f"{name} is in {where}, but not listed")
    print(f"{len(listed)} names")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
