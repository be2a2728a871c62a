#!/usr/bin/env python3
"""Asks the questions of the page about many machines of boxes that are cut from real telemetry, and
compares the answers with those that the page prints.

  fleet_answers_test.py --vesk build/release/cli/vesk --page docs/fleet.md [--write]

The boxes are made and pushed by the lines of the shell on the page; fleet.example is the server of the
test. With --write the page gets the answers. Without clickhouse-server, or without the telemetry in
the folder that VESK_TEST_DATA names, the test is skipped and says so.
"""

import argparse
import os
import re
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from engines import ClickHouse  # noqa: E402
from fleet_boxes import bring_telemetry, make_boxes  # noqa: E402
from verdict import require, verdict  # noqa: E402

# A question, and the table behind it.
QUESTION = re.compile(r"^(```sql\n(.*?)^```\n\n)((?:\|[^\n]*\n)+)", re.MULTILINE | re.DOTALL)


def table_of(answer):
    """The rows of an answer, of which the first holds the names, as they stand on the page."""
    lines = [f"| {' | '.join(row)} |\n" for row in answer]
    return lines[0] + "|" + "---|" * len(answer[0]) + "\n" + "".join(lines[1:])


def answers_of(page, server):
    """The page with the answers of the server behind its questions."""
    def answered(match):
        answer = server.ask(match[2] + " format TabSeparatedWithNames")
        require(len(answer) > 1, f"no answer to {match[2]}")
        return match[1] + table_of(answer)
    return QUESTION.sub(answered, page)


def require_same(page, answered):
    for printed, found in zip(QUESTION.finditer(page), QUESTION.finditer(answered)):
        require(printed[3] == found[3], f"{printed[2]}\nthe page has\n{printed[3]}\nthe server "
                f"answers\n{found[3]}")


def check(vesk, path, folder, writes):
    page = path.read_text()
    count = len(QUESTION.findall(page))
    require(count == 5, f"{count} questions with answers on the page")
    bring_telemetry(folder)
    with ClickHouse(folder / "server") as server:
        make_boxes(page, folder, vesk, [("fleet.example", f"127.0.0.1:{server.http}")])
        answered = answers_of(page, server)
    if writes:
        path.write_text(answered)
    else:
        require_same(page, answered)
    print(f"{count} answers are those of the page")


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("--page", required=True, type=Path)
    parser.add_argument("--write", action="store_true")
    arguments = parser.parse_args()
    os.environ["NO_PROXY"] = os.environ["no_proxy"] = "*"
    with tempfile.TemporaryDirectory(prefix="vesk-fleet-") as folder:
        return verdict(lambda: check(arguments.vesk, arguments.page, Path(folder), arguments.write),
                       arguments.page)


if __name__ == "__main__":
    sys.exit(main())
