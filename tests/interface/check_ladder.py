#!/usr/bin/env python3
"""Shows that folders only include what lies below them.

  check_ladder.py ROOT    the root of the sources

The folders of src/ and of cli/ form two ladders, written down here once. A file may include from
its own folder and from the folders below. The command sees the library as any other program does:
through <vesk/...>.
"""

import re
import sys
from pathlib import Path

# Each rung may include from the rungs before it; folders on one rung know nothing of each other.
LIBRARY = [["support"], ["io"], ["model"], ["matrix"], ["buffers", "text"], ["box"],
           ["recorder", "recovery"], ["start"]]
COMMAND = [["process"], ["text"], ["analysis", "draw"], ["box"], ["machine", "export"],
           ["page", "push"], ["serve"], ["verbs"]]

# Forms of matrices are written by the serializer, and matrices are printed for debugging.
ALLOWED = {"src/io/binary_serializer.cpp", "src/support/debug_matrix.cpp"}

INCLUDE = re.compile(r'^\s*#\s*include\s+(?:"([^"]+)"|<(vesk/[^>]+)>)', re.MULTILINE)


def rung_of(ladder, folder):
    for number, folders in enumerate(ladder):
        if folder in folders:
            return number
    return None


def header_folders(root):
    """The folder of each public header: that of the source of its name."""
    folders = {}
    for source in (root / "src").glob("*/*.cpp"):
        folders[f"vesk/{source.stem}.h"] = source.parent.name
    return folders


def folder_of(path, headers):
    if path.startswith("vesk/"):
        return headers.get(path)
    return path.split("/")[0] if "/" in path else None


def problems(root, top, ladder, headers):
    for file in sorted((root / top).glob("*/**/*.[ch]pp")):
        name = file.relative_to(root).as_posix()
        folder = name.split("/")[1]
        own = rung_of(ladder, folder)
        if own is None:
            yield f"{name}: the folder {folder} is on no rung"
            continue
        for match in INCLUDE.finditer(file.read_text(encoding="utf-8")):
            quoted, public = match.groups()
            if top == "cli" and public:
                continue
            other = folder_of(quoted or public, headers)
            if other is None and public:
                continue
            rung = rung_of(ladder, other)
            if rung is None:
                yield f"{name}: includes {quoted or public}, which is in no folder of {top}/"
            elif other != folder and rung >= own and name not in ALLOWED:
                yield f"{name}: includes {quoted or public}, which does not lie below {folder}"


def main():
    root = Path(sys.argv[1])
    headers = header_folders(root)
    found = list(problems(root, "src", LIBRARY, headers))
    found += problems(root, "cli", COMMAND, headers)
    print("\n".join(found) if found else "the ladder holds")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
