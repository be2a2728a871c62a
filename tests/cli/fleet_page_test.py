#!/usr/bin/env python3
"""Runs what the page about many machines shows: each command against a server on the loopback, and
each question on boxes whose answers are known.

  fleet_page_test.py --vesk build/release/cli/vesk --page docs/fleet.md [--show]

A command is an indented line that begins with "vesk", a question is a block of SQL. The host
fleet.example is the server of the test, metrics.example a VictoriaMetrics, and /srv/boxes a folder of
boxes. Without one of these servers the test is skipped and says so. The answers on the page are those
of fleet_answers_test.py.
"""

import argparse
import os
import re
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from engines import ClickHouse, VictoriaMetrics  # noqa: E402
from fleet_boxes import blocks  # noqa: E402
from pushed import EPOCH, Desk, stamp  # noqa: E402
from verdict import require, verdict  # noqa: E402

MACHINES = 12
ROWS = 900
STEP = 10
# The firmware of these makes the load higher; each third machine has a load in its last hour.
NEW = range(6, MACHINES)
LOADED = range(0, MACHINES, 3)


def telemetry(machine):
    last = EPOCH + 100_000 * machine
    yield stamp(last - STEP * (ROWS - 1)) + ",::load_1,::mem.free_bytes,::temp_C\n"
    for row in range(ROWS):
        load = 1 + machine / 100 + (0.5 if machine in NEW else 0)
        load += 5 if machine in LOADED and row > ROWS - 100 else 0
        when = last - STEP * (ROWS - 1 - row)
        yield f"{stamp(when)},{load / 100 + (row % 7) / 1e4},{1e9 + row % 13},{40 + machine % 2}\n"


def make_boxes(desk):
    for machine in range(MACHINES):
        folder = desk.folder / "boxes" / f"m{machine}"
        folder.mkdir(parents=True)
        desk.run("import", f"{folder}/box", "--utc", "--samples", "120", "--intervals", "12",
                 data="".join(telemetry(machine)).encode())
        for kind in ("3", "3") if machine in NEW else ("1",):
            desk.run("event", f"{folder}/box", kind, f"of machine {machine}")
    desk.run("import", "box", "--utc", data="".join(telemetry(0)).encode())


def commands(page):
    outside = re.sub(r"^```.*?^```", "", page, flags=re.MULTILINE | re.DOTALL)
    return re.findall(r"^    (vesk .*)$", outside, re.MULTILINE)


def push_with_firmware(desk, server):
    for machine in range(MACHINES):
        desk.run("push", f"boxes/m{machine}/box", "--to", server.url(), "--state",
                 str(desk.state), "--label", f"box=m{machine}/box", "--label",
                 "firmware=7.2" if machine in NEW else "firmware=7.1")


def require_answers(answers):
    loaded, compared, shifted, events, spread = answers
    require({row[0] for row in loaded} == {f"m{machine}/box" for machine in LOADED},
            f"the boxes with a high load: {loaded}")
    require([row[:2] for row in compared] == [["7.1", "6"], ["7.2", "6"]], f"groups: {compared}")
    medians = [float(row[2].strip("[]").split(",")[1]) for row in compared]
    require(abs(medians[1] - medians[0] - 0.005) < 0.002, f"the medians of the load: {medians}")
    require(shifted[0][0] == "::load_1", f"the sensors that differ: {shifted}")
    require(events == [["7.1", "1", "6", "6"], ["7.2", "3", "12", "6"]], f"events: {events}")
    require(spread[0][0] == str(MACHINES), f"the percentiles of machines: {spread}")


def try_page(desk, server, store, page, show):
    make_boxes(desk)
    found = commands(page)
    require(len(found) >= 3, f"{len(found)} commands on the page")
    environment = {**os.environ, "HOME": str(desk.folder),
                   "XDG_STATE_HOME": str(desk.folder / "home")}
    for command in found:
        if command.startswith("vesk record"):
            command += " --for 1s"
        words = command.replace("fleet.example", f"127.0.0.1:{server.http}")
        words = words.replace("metrics.example:8428", f"127.0.0.1:{store.port}")
        words = words.replace("/srv/boxes", "boxes").split()[1:]
        text = desk.run(*words, env=environment)
        if show:
            print(f"--- {command}\n{text}")
    for table in ("samples", "intervals", "events", "boxes"):
        server.ask(f"truncate table fleet.{table}")
    push_with_firmware(desk, server)
    answers = []
    for question in blocks(page, "sql"):
        answers.append(server.ask(question))
        if show:
            print(f"--- {question}" + "\n".join("\t".join(row) for row in answers[-1]))
    require_answers(answers)
    return f"{len(found)} commands and {len(answers)} questions"


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("--page", required=True, type=Path)
    parser.add_argument("--show", action="store_true")
    arguments = parser.parse_args()
    os.environ["NO_PROXY"] = os.environ["no_proxy"] = "*"
    with tempfile.TemporaryDirectory(prefix="vesk-fleet-") as folder:
        desk = Desk(arguments.vesk, folder)

        def run():
            with ClickHouse(desk.folder / "server") as server, \
                    VictoriaMetrics(desk.folder / "metrics") as store:
                print(try_page(desk, server, store, arguments.page.read_text(), arguments.show))

        return verdict(run, arguments.page)


if __name__ == "__main__":
    sys.exit(main())
