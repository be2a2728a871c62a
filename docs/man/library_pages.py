#!/usr/bin/env python3
"""Writes the manual pages of the library's headers from what doxygen made of their comments.

  library_pages.py filter HEADER               what doxygen reads instead of HEADER
  library_pages.py pages RAW OUT VERSION MAP   RAW is the folder that doxygen wrote; MAP names the
                                               functions that are exported

A header is one page, and each of its functions a name of that page. Doxygen writes the quotation
marks of its input as apostrophes, so they pass it under another name. Its pages tell the day on
which they were made, and list the headers that a header includes; these tell what a program
includes.
"""

import re
import sys
from pathlib import Path

SECTION = "3vesk"
# Stands for a quotation mark; no comment holds it.
QUOTE = "QuOtE"


def without_quotes(part):
    """Between quotation marks doxygen takes a backslash for what it is, so it does so without."""
    if part.startswith("@code"):
        return part.replace('"', QUOTE)
    return re.sub(r'"([^"]*)"',
                  lambda quoted: QUOTE + quoted[1].replace("\\", "\\\\") + QUOTE, part)


def filtered(text):
    def change(comment):
        parts = re.split(r"(@code.*?@endcode)", comment[0], flags=re.S)
        return "".join(map(without_quotes, parts))
    return re.sub(r"/\*\*.*?\*/", change, text, flags=re.S)


def exported(text):
    """The functions in the list that the linker reads."""
    return set(re.findall(r"^\s+(\w+);$", text.split("local:")[0], flags=re.M))


def functions_of(page, names):
    """Those that the page describes, in its order."""
    found = re.findall(r"^\.SS \"([^\"]*)\"", page.partition(".SH \"Function Documentation\"")[2],
                       flags=re.M)
    words = [re.search(r"(\w+) \(", heading) for heading in found]
    return [word[1] for word in words if word and word[1] in names]


def page_of(header, raw, version, names):
    functions = functions_of(raw, names)
    brief = re.search(r"^\.SH NAME\n.*? \\- (.*?)(?:\\&\.)?\s*$", raw, flags=re.M)[1]
    body = raw[raw.index('.SS "') if '.SS "' in raw else raw.index(".SH \"Detailed"):]
    body = body[:body.index('.SH "Author"')].rstrip()
    body = body.replace(f"include/{header}", header).replace(QUOTE, r"\(dq")
    name = ", ".join([header, *functions]).replace("-", r"\-")
    return "\n".join([
        f'.TH "{header}" {SECTION} "" "libvesk {version}" "Vesk"',
        ".ad l",
        ".nh",
        ".SH NAME",
        rf"{name} \- {brief}",
        ".SH SYNOPSIS",
        ".nf",
        rf"\fB#include <vesk/{header}>\fP",
        r"\fBcc ... \-lvesk\fP",
        ".fi",
        body,
        ".SH \"SEE ALSO\"",
        rf"\fBlibvesk\fP({SECTION}), \fBvesk\fP(1), \fBvesk\-box\fP(5)",
        "",
    ]), functions


def write_pages(raw, out, version, names):
    out.mkdir(parents=True, exist_ok=True)
    told = set()
    for file in sorted(raw.glob("*.h.3")):
        header = file.name[:-len(".3")]
        text, functions = page_of(header, file.read_text(encoding="utf-8"), version, names)
        (out / f"{header}.{SECTION}").write_text(text, encoding="utf-8")
        for function in functions:
            (out / f"{function}.{SECTION}").write_text(f".so man3/{header}.{SECTION}\n",
                                                      encoding="utf-8")
        told.update(functions)
    # What begins with an underscore is exported for the other products of this repository.
    missing = sorted(name for name in names - told if not name.startswith("_"))
    for name in missing:
        print(f"{name}: no header's page describes it", file=sys.stderr)
    return 1 if missing or not told else 0


def main():
    if sys.argv[1:2] == ["filter"] and len(sys.argv) == 3:
        sys.stdout.write(filtered(Path(sys.argv[2]).read_text(encoding="utf-8")))
        return 0
    if sys.argv[1:2] == ["pages"] and len(sys.argv) == 6:
        raw, out, version, of_linker = sys.argv[2:]
        return write_pages(Path(raw), Path(out), version,
                           exported(Path(of_linker).read_text(encoding="utf-8")))
    print(__doc__, file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main())
