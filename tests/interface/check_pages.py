#!/usr/bin/env python3
"""Looks whether docs/api.md names every public header, and no other, and whether the links between
the pages lead to a file and to a heading in it.

usage: check_pages.py SOURCE_DIR
"""
import fnmatch
import os
import pathlib
import re
import sys


def headers_that_differ(source):
    headers = {path.name for path in (source / "include").glob("*.h")}
    patterns = re.findall(r"`([\w*]+\.h)`", (source / "docs/api.md").read_text(encoding="utf-8"))
    for header in sorted(headers):
        if not any(fnmatch.fnmatch(header, pattern) for pattern in patterns):
            yield f"docs/api.md does not name {header}"
    for pattern in patterns:
        if not fnmatch.filter(headers, pattern):
            yield f"docs/api.md names {pattern}, which is no public header"


def anchors(text):
    plain = re.sub(r"```.*?```", "", text, flags=re.S)
    headings = re.findall(r"^#+ (.*)$", plain, flags=re.M)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


def dead_links(source, pages):
    texts = {page.resolve(): page.read_text(encoding="utf-8") for page in pages}
    for page, text in texts.items():
        for link in re.findall(r"\]\(([^)\s]+)\)", text):
            if re.match(r"https?:", link):
                continue
            name, _, anchor = link.partition("#")
            target = pathlib.Path(os.path.normpath(page.parent / name)) if name else page
            if not target.exists():
                yield f"{page.name}: {link} leads nowhere"
            elif anchor and target in texts and anchor not in anchors(texts[target]):
                yield f"{page.name}: {link} names no heading"


def main():
    source = pathlib.Path(sys.argv[1]).resolve()
    pages = [*source.glob("*.md"), *source.glob("docs/*.md")]
    wrong = [*headers_that_differ(source), *dead_links(source, pages)]
    print("\n".join(wrong) or f"{len(pages)} pages")
    return 1 if wrong or len(pages) < 10 else 0


if __name__ == "__main__":
    sys.exit(main())
