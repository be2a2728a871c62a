#!/usr/bin/env python3
"""Counts the instructions of the recorder's paths under valgrind and compares them with those that were
counted before. Instructions repeat from run to run and from machine to machine, where times do not.

usage: instructions.py PROGRAM KEPT [--quick | --update]

PROGRAM is bench_recorder_paths; KEPT is the table that the counts are compared with, and that --update
writes anew. With --quick the largest boxes are left out.
"""
import os
import re
import subprocess
import sys
import tempfile

PATHS = ("write", "read", "reopen", "rotate")
SIZES = (10, 100, 1000)
# What else the machine is doing changes nothing, but another libc copies and allocates otherwise.
MOST_GROWTH = 1.02


def costs(path):
    """The instructions of each object of a callgrind file, those of called functions left out."""
    names, found, here, skip = {}, {}, None, False
    with open(path, encoding="utf-8", errors="replace") as file:
        for line in file:
            if match := re.match(r"(c?ob)=\((\d+)\)(?: (.*))?$", line):
                if match[3]:
                    names[match[2]] = os.path.basename(match[3])
                if match[1] == "ob":
                    here = names[match[2]]
            elif line.startswith("calls="):
                skip = True
            elif match := re.match(r"[+\-*0-9]\S* (\d+)$", line):
                if not skip:
                    found[here] = found.get(here, 0) + int(match[1])
                skip = False
    return found


def count(program, *words):
    with tempfile.TemporaryDirectory() as folder:
        out = os.path.join(folder, "out")
        # Whatever the loader does is done before, so that it is not counted.
        subprocess.run(["valgrind", "--tool=callgrind", "--toggle-collect=counted_part", "--quiet",
                        f"--callgrind-out-file={out}", program, *map(str, words)],
                       env=dict(os.environ, LD_BIND_NOW="1"), check=True, stdout=subprocess.DEVNULL,
                       stderr=subprocess.PIPE)
        return costs(out)


def read_kept(path):
    kept = {}
    if os.path.exists(path):
        with open(path, encoding="utf-8") as file:
            for line in file:
                if match := re.match(r"\| (\w+) \| (\d+) \| ([\d,]+) \| ([\d,]+) \|", line):
                    own, whole = (int(text.replace(",", "")) for text in match.group(3, 4))
                    kept[match[1], int(match[2])] = own, whole
    return kept


def main():
    program, table = sys.argv[1:3]
    kept = read_kept(table)
    lines = ["# Instructions of the recorder", "",
             "What `script/instructions` counted: 64 vectors written, a buffer of 120 read, a box with it",
             "reopened, and a box of 120 samples and 12 intervals turned. GCC 12, zlib 1.2.13, x86-64 with AVX2.",
             "", "| path | sensors | the library's own | altogether | bare zlib and stdio | ratio |",
             "|---|---:|---:|---:|---:|---:|"]
    complaints = []
    for path in PATHS:
        for size in SIZES[:2] if "--quick" in sys.argv else SIZES:
            found = count(program, path, size)
            floor = sum(count(program, path, size, "floor").values())
            own = sum(n for name, n in found.items() if name and name.startswith("libvesk"))
            whole = sum(found.values())
            lines.append(f"| {path} | {size} | {own:,} | {whole:,} | {floor:,} | {whole / floor:.3f} |")
            print(lines[-1], flush=True)
            for what, now, before in zip(("of its own", "altogether"), (own, whole),
                                         kept.get((path, size), (0, 0))):
                if before == 0 and "--update" not in sys.argv:
                    complaints.append(f"{path}, {size} sensors: nothing to compare with; --update keeps it")
                elif now > before * MOST_GROWTH:
                    complaints.append(f"{path}, {size} sensors: {now:,} instructions {what}, {before:,} before")
    if "--update" in sys.argv:
        with open(table, "w", encoding="utf-8") as file:
            file.write("\n".join(lines) + "\n")
        return 0
    print("\n".join(complaints) or "no path takes more instructions than before", file=sys.stderr)
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
