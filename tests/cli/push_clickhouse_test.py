#!/usr/bin/env python3
"""Pushes boxes into servers of ClickHouse and compares what is there with what was recorded.

  push_clickhouse_test.py --vesk build/release/cli/vesk CASE [TIMES]

  first     a first push, a second one, and one without its cursor
  live      the recorder makes its files take turns meanwhile
  gap       no push for many turns, then intervals that the engine has a part of
  kills     the push is killed at random moments, TIMES times, and loses its cursor now and then
  clock     the clock steps back while the box is recorded
  restart   the server is killed while it is pushed to, and comes back
  refused   what a server refuses for good is told at once
  shards    three shards, one of which is away for a while
  queue     a shard is away and questions are answered without it, while its rows wait in a queue

Without clickhouse-server the test is skipped and says so.
"""

import argparse
import os
import random
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from engines import ClickHouse, free_ports  # noqa: E402
from pushed import (  # noqa: E402
    EPOCH, Desk, Recorder, Telemetry, require_chain, require_samples, require_whole)
from verdict import Failure, require, verdict  # noqa: E402

KILLS = 8


def rows_of(server, table):
    return server.number(f"select count() from fleet.{table}")


def check_first(desk, _times):
    telemetry = Telemetry(1)
    rows = [telemetry.row() for _ in range(2000)]
    desk.import_rows("box", rows)
    kept = rows[-80:]
    for text in ("one", "two", "two", 'odd "\t\\ text'):
        desk.run("event", "box", "3", text)
    with ClickHouse(desk.folder / "server") as server:
        desk.push("box", server.url(), "--create", "--label", "site=north", "--label",
                  "firmware=7.1")
        first = {table: rows_of(server, table) for table in ("samples", "intervals", "events")}
        covered = require_chain(server, "box", rows)
        require_samples(server, "box", rows[covered:])
        require(len(kept) < len(rows) - covered + 64, "the box keeps more than it can")
        texts = [row[0] for row in server.ask("select text from fleet.events order by time, "
                                              "file, ordinal format TabSeparatedRaw")]
        require(texts[:3] == ["one", "two", "two"] and len(server.ask(
            "select text from fleet.events where text = 'odd \"\\t\\\\ text'")) == 1,
            f"events: {texts}")
        require(server.ask("select box, site, firmware, toUInt32(last) from fleet.boxes")
                == [["box", "north", "7.1", str(rows[-1][0])]], "the row of the box")
        # Again, without its cursor, and with a torn one: nothing new is sent.
        text = desk.push("box", server.url(), "--label", "site=north", "--label", "firmware=7.1")
        require("0 sample values, 0 interval rows and 0 events" in text, text)
        desk.forget()
        text = desk.push("box", server.url(), "--label", "site=north", "--label", "firmware=7.1")
        require("0 sample values, 0 interval rows and 0 events" in text, text)
        cursor = next(desk.state.glob("*.cursor"))
        cursor.write_bytes(cursor.read_bytes()[:-9])
        text = desk.push("box", server.url())
        require("0 sample values, 0 interval rows and 0 events" in text, text)
        # All of it once more has the same keys.
        desk.push("box", server.url(), "--again")
        for table, count in first.items():
            server.ask(f"optimize table fleet.{table} final")
            require(rows_of(server, table) == count, f"{table}: {rows_of(server, table)} rows "
                    f"instead of {count}")
    check_choice(desk, rows)


def check_choice(desk, rows):
    """Raw samples by choice."""
    with ClickHouse(desk.folder / "other") as server:
        for name, raw, wanted in (("none", "none", 0), ("last", "last:100s", 11)):
            desk.push("box", server.url(), "--create", raw=raw, name=name)
            found = server.number(f"select uniqExact(time) from fleet.samples where box = '{name}'")
            require(found == wanted, f"--raw {raw}: samples of {found} times instead of {wanted}")
            require_chain(server, name, rows)


def with_recorder(desk, server, telemetry, work, samples=64):
    """Calls @p work, which pushes, beside a recording; pushes the rest and compares."""
    recorder = Recorder(desk, "box", telemetry, samples)
    recorder.start()
    recorder.wait_for(1)
    desk.push("box", server.url(), "--create")
    work(recorder)
    recorder.finish()
    desk.push("box", server.url())
    covered = require_whole(server, "box", telemetry.rows)
    require(covered >= len(telemetry.rows) - 3 * samples,
            f"the history ends behind {covered} of {len(telemetry.rows)} samples")
    print(f"{len(telemetry.rows)} samples in {len(telemetry.rows) // samples} buffers, "
          f"{rows_of(server, 'samples')} values and {rows_of(server, 'intervals')} interval rows "
          "in the engine before it has merged what came twice")


def push_beside(desk, recorder, server, *more, codes=(0,)):
    known = recorder.in_the_box()
    text = desk.push("box", server.url(), *more, codes=codes)
    recorder.has_pushed(known)
    return text


def check_live(desk, times):
    with ClickHouse(desk.folder / "server") as server:
        def work(recorder):
            for _ in range(times or 40):
                push_beside(desk, recorder, server)
        with_recorder(desk, server, Telemetry(2), work)


def check_gap(desk, _times):
    telemetry = Telemetry(3)
    rows = [telemetry.row() for _ in range(500)]
    desk.import_rows("box", rows)
    with ClickHouse(desk.folder / "server") as server:
        desk.push("box", server.url(), "--create", raw="none")
        covered = require_chain(server, "box", rows)
        for count in (64, 640, 3000, 5):
            more = [telemetry.row() for _ in range(count)]
            desk.import_rows("box", more)
            desk.push("box", server.url(), raw="none")
            now = require_chain(server, "box", telemetry.rows)
            require(now >= covered and now > len(telemetry.rows) - 192,
                    f"the history ends behind {now} of {len(telemetry.rows)} samples")
            covered = now
        straddling = server.number("select count() from fleet.intervals where toUInt32(known) > 0")
        require(straddling > 0, "no interval lies on both sides of what was known")


def check_kills(desk, times):
    chance = random.Random(4)
    times = times or KILLS

    def damage_cursors():
        kind = chance.randrange(4)
        for cursor in desk.state.glob("*.cursor"):
            if kind == 0:
                cursor.unlink()
            elif kind == 1:
                cursor.write_bytes(cursor.read_bytes()[:chance.randrange(100)])

    with ClickHouse(desk.folder / "server") as server:
        def work(recorder):
            killed = 0
            while killed < times:
                begin = time.monotonic()
                push_beside(desk, recorder, server)
                usual = time.monotonic() - begin
                words = [desk.program, *desk.push_words("box", server.url())]
                push = subprocess.Popen(words, cwd=desk.folder, stdout=subprocess.DEVNULL)
                time.sleep(chance.uniform(0, 1.2 * usual))
                push.kill()
                killed += 1 if push.wait() != 0 else 0
                damage_cursors()
        with_recorder(desk, server, Telemetry(4), work)


def check_clock(desk, _times):
    telemetry = Telemetry(5)
    with ClickHouse(desk.folder / "server") as server:
        create = ["--create"]
        for back in (0, 300, 5000, 0, 40):
            telemetry.next -= back
            for _ in range(5):
                rows = [telemetry.row() for _ in range(50)]
                desk.import_rows("box", rows)
                desk.push("box", server.url(), *create)
                create = []
                if back == 5000:
                    desk.forget()
        require_whole(server, "box", telemetry.rows)


def check_restart(desk, _times):
    chance = random.Random(6)
    server = ClickHouse(desk.folder / "server")
    with server:
        def work(recorder):
            for _ in range(4):
                known = recorder.in_the_box()
                push = subprocess.Popen([desk.program, *desk.push_words(
                    "box", server.url(), "--retry-for", "3m")], cwd=desk.folder)
                time.sleep(chance.uniform(0, 0.05))
                server.kill()
                server.start()
                require(push.wait(240) == 0, "the push did not outlast the restart")
                recorder.has_pushed(known)
        with_recorder(desk, server, Telemetry(6), work)
    # Nobody there: it is told, and the box can be recorded to and pushed later.
    begin = time.monotonic()
    text = desk.push("box", server.url(), "--again", "--retry-for", "2s", codes=(1,))
    require("connect" in text and time.monotonic() - begin >= 2, text)


def check_refused(desk, _times):
    telemetry = Telemetry(7)
    desk.import_rows("box", [telemetry.row() for _ in range(200)])
    secret = desk.folder / "secret"
    with ClickHouse(desk.folder / "server") as server:
        begin = time.monotonic()
        text = desk.push("box", server.url(), "--retry-for", "1h", codes=(1,))
        require("doesn't exist" in text, text)
        user = server.url().replace("://", "://pusher@")
        text = desk.push("box", user, "--create", "--retry-for", "1h", codes=(1,))
        require("Password" in text or "password" in text, text)
        require(time.monotonic() - begin < 600, "it was tried again and again")
        # The password comes from a file that nobody else may read, or from the environment.
        secret.write_text("user pusher\npassword secret of a test\n")
        secret.chmod(0o644)
        text = desk.push("box", server.url(), "--credentials", str(secret), codes=(1,))
        require("chmod 600" in text and "secret of" not in text, text)
        secret.chmod(0o600)
        desk.push("box", server.url(), "--create", "--credentials", str(secret))
        desk.push("box", user, "--again",
                  env={**os.environ, "VESK_PUSH_PASSWORD": "secret of a test"})
        require_samples(server, "box", telemetry.rows[require_chain(server, "box",
                                                                    telemetry.rows):])
        # A table of another shape.
        server.ask("create database other")
        server.ask("create table other.intervals (x String) engine = Log")
        text = desk.push("box", server.url("other"), "--create", "--retry-for", "1h", codes=(1,))
        require("refuses" in text, text)
        # A folder with a good and a bad box: the good one arrives.
        (desk.folder / "many").mkdir()
        desk.import_rows("many/good", telemetry.rows)
        (desk.folder / "many" / "bad.1.cbuf.z").write_text("nothing of a box")
        text = desk.run("push", "--all", "many", "--to", server.url(), "--state", str(desk.state),
                        codes=(3,))
        require("1 of 2 boxes" in text, text)
        require(server.number("select count() from fleet.boxes where box = 'good'") == 1, "good")


def check_shards(desk, _times):
    boxes = [f"box{number}" for number in range(9)]
    telemetries = {box: Telemetry(10 + number) for number, box in enumerate(boxes)}
    ports = [free_ports(3) for _ in range(3)]
    shards = [ClickHouse(desk.folder / f"shard{number}", mine, [each[1] for each in ports])
              for number, mine in enumerate(ports)]

    def record(count):
        for box in boxes:
            desk.import_rows(box, [telemetries[box].row() for _ in range(count)], samples=512,
                             intervals=16)

    def push_all(*more, codes=(0,)):
        for box in boxes:
            desk.push(box, shards[0].url(), "--retry-for", "1s", *more, codes=codes)

    try:
        for shard in shards:
            shard.start()
            desk.run("push", "--create", "--cluster", "fleet", "--to", shard.url())
        record(700)
        push_all()
        record(300)
        shards[2].kill()
        # What goes to the shard that is away waits on the first one, or is pushed later.
        push_all(codes=(0, 1))
        record(300)
        push_all(codes=(0, 1))
        shards[2].start()
        until = time.monotonic() + 120
        while True:
            push_all()
            try:
                for box in boxes:
                    require_samples_and_chain(shards[0], box, telemetries[box].rows)
                break
            except Failure:
                if time.monotonic() > until:
                    raise
                time.sleep(0.5)
        spread = [shard.number("select uniqExact(box) from fleet.boxes_local") for shard in shards]
        require(sum(spread) == len(boxes) and min(spread) > 0, f"boxes on the shards: {spread}")
    finally:
        for shard in shards:
            shard.stop()


def check_queue(desk, _times):
    boxes = [f"box{number}" for number in range(6)]
    telemetries = {box: Telemetry(30 + number) for number, box in enumerate(boxes)}
    ports = [free_ports(3) for _ in range(2)]
    near, far = (ClickHouse(desk.folder / f"shard{number}", mine, [each[1] for each in ports],
                            skips=True) for number, mine in enumerate(ports))

    def record_and_push(count):
        for box in boxes:
            desk.import_rows(box, [telemetries[box].row() for _ in range(count)])
            desk.push(box, near.url())

    try:
        for shard in (near, far):
            shard.start()
            desk.run("push", "--create", "--cluster", "fleet", "--to", shard.url())
        record_and_push(100)
        far.stop()
        # Each time the buffers take turns, which merges intervals that only the queue knows.
        for _ in range(5):
            record_and_push(64)
        seen = near.number("select uniqExact(box) from fleet.intervals")
        require(0 < seen < len(boxes), f"{seen} boxes are seen while a shard is away")
        require(waiting_in_queues(near), "nothing waits for the shard that is away")
        far.start()
        wait_for_whole(near, telemetries)
    finally:
        near.stop()
        far.stop()


def waiting_in_queues(server):
    """Files of rows that the server has taken and not delivered to another one yet."""
    database = server.folder / "data" / "data" / "fleet"
    return [each for table in ("samples", "intervals", "events", "boxes")
            for each in (database / table).rglob("*.bin")]


def wait_for_whole(server, telemetries):
    """Queues take their time after a shard has come back."""
    until = time.monotonic() + 120
    while waiting_in_queues(server):
        require(time.monotonic() < until, f"{waiting_in_queues(server)} are never delivered")
        time.sleep(0.2)
    for box, telemetry in telemetries.items():
        covered = require_whole(server, box, telemetry.rows)
        require(covered > len(telemetry.rows) - 192,
                f"{box}: the history ends behind {covered} of {len(telemetry.rows)}")


def require_samples_and_chain(server, box, rows):
    require_chain(server, box, rows)
    require_samples(server, box, rows)


CASES = {"first": check_first, "live": check_live, "gap": check_gap, "kills": check_kills,
         "clock": check_clock, "restart": check_restart, "refused": check_refused,
         "shards": check_shards, "queue": check_queue}


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("case", choices=CASES)
    parser.add_argument("times", nargs="?", type=int, default=0)
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="vesk-push-") as folder:
        os.environ["NO_PROXY"] = os.environ["no_proxy"] = "*"

        def run():
            CASES[arguments.case](Desk(arguments.vesk, folder), arguments.times)
            print(f"{arguments.case}: the engine has what the boxes have")

        return verdict(run, arguments.case)


if __name__ == "__main__":
    sys.exit(main())
