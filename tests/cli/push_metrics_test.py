#!/usr/bin/env python3
"""Pushes boxes into stores of metrics by remote write, and compares what is there with what was
recorded.

  push_metrics_test.py --vesk build/release/cli/vesk victoria|prometheus CASE

  first     a first push, a second one, and one without its cursor
  live      the recorder makes its files take turns meanwhile, pushes are killed
  restart   the server is killed right behind a push, and loses what it has not stored
  old       (prometheus) what is too old for the store is left out and told, the rest arrives
  agent     (victoria) an agent before the store, which is away meanwhile; the agent cannot be asked

A server that is not installed skips the test and says so.
"""

import argparse
import json
import math
import os
import random
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from engines import MetricAgent, Prometheus, VictoriaMetrics  # noqa: E402
from pushed import SENSORS, Desk, Recorder, Telemetry, bits  # noqa: E402
from verdict import Failure, require, verdict  # noqa: E402

SEEN_LIMIT = 60
ROWS = 1500


class UsualTelemetry(Telemetry):
    """What sensors deliver: stores of decimals keep few digits."""

    def value(self):
        return math.nan if self.chance.random() < 0.1 else round(self.chance.uniform(-50, 5000), 2)


def telemetry_until_now(seed, step=2):
    now = int(time.time())
    return UsualTelemetry(seed, step=step, first=now - 2 * 3600 - ROWS * step)


def points_of(store, box, metric, sensor=None):
    """By time: the value, of the whole of a box that has been recorded within some hours."""
    words = f'box="{box}"' + (f',sensor="{sensor}"' if sensor else "")
    series = store.query(f"{metric}{{{words}}}[12h]")
    require(len(series) <= 1, f"{metric} of {box} is {len(series)} series")
    points = [] if not series else series[0][1]
    require(len({when for when, _ in points}) == len(points), f"{metric}: a time comes twice")
    return dict(points)


def metric_of(sensor):
    return "vesk_" + "".join(chr(byte) if chr(byte).isalnum() and byte < 128 else "_"
                             for byte in sensor.removeprefix("::").encode())


def require_samples(store, box, rows):
    """Each value that was recorded is there, and nothing else."""
    for column, sensor in enumerate(SENSORS):
        wanted = {1000 * when: bits(values[column]) for when, values in rows
                  if not math.isnan(values[column])}
        found = {when: bits(value)
                 for when, value in points_of(store, box, metric_of(sensor), sensor).items()}
        if wanted != found:
            missing = sorted(wanted.keys() - found.keys())
            strange = sorted(found.keys() - wanted.keys())
            raise Failure(f"{box}: {sensor}: {len(found)} values instead of {len(wanted)}, missing "
                          f"{missing[:3]}, strange {strange[:3]}")


def require_chain(store, box, rows):
    """The intervals hold the first samples, each once. Returns how many they hold."""
    name = metric_of(SENSORS[0])
    numbers = {what: points_of(store, box, f"{name}_{what}", SENSORS[0])
               for what in ("count", "min", "max", "first", "last")}
    at = 0
    for when, count in sorted(numbers["count"].items()):
        part = rows[at:at + int(count)]
        require(part and 1000 * part[-1][0] == when,
                f"{box}: behind {at} samples come {count} that end at {when}")
        values = [values[0] for _, values in part]
        for what, number in (("min", min(values)), ("max", max(values)), ("first", values[0]),
                             ("last", values[-1])):
            require(bits(numbers[what].get(when, math.nan)) == bits(number),
                    f"{box}: {what} of the interval that ends at {when}")
        at += len(part)
    lengths = points_of(store, box, "vesk_interval_seconds")
    require(lengths.keys() == numbers["count"].keys(), f"{box}: the lengths of intervals")
    return at


def wait_for(look):
    """A store shows what it has taken after a moment."""
    until = time.monotonic() + SEEN_LIMIT
    while True:
        try:
            return look()
        except Failure:
            if time.monotonic() > until:
                raise
            time.sleep(0.2)


def check_first(desk, store):
    telemetry = telemetry_until_now(1)
    rows = [telemetry.row() for _ in range(ROWS)]
    desk.import_rows("box", rows)
    for kind in ("3", "3", "1"):
        desk.run("event", "box", kind, "text")
    with store:
        desk.push("box", store.url(), "--create", "--label", "site=north")

        def look():
            covered = require_chain(store, "box", rows)
            require_samples(store, "box", rows[covered:])
            require(covered > ROWS - 192, f"the history ends behind {covered}")
            require(len(store.query('last_over_time(vesk_push_position{box="box"}[1h])')) == 3,
                    "the position of the push")

        wait_for(look)
        require(store.query('sum(count_over_time(vesk_interval_seconds{site="north"}[12h]))'),
                "the label site")
        text = desk.push("box", store.url(), "--label", "site=north")
        require("0 sample values, 0 interval rows and 0 events" in text, text)
        desk.forget()
        text = desk.push("box", store.url(), "--label", "site=north")
        require("0 sample values, 0 interval rows and 0 events" in text, text)
        desk.push("box", store.url(), "--again", "--label", "site=north")
        wait_for(look)
        types = {labels["type"]: points[0][1] for labels, points in store.query(
            'max_over_time(vesk_events{box="box"}[1h])')}
        require(types.keys() == {"1", "3"}, f"events: {types}")


def check_live(desk, store):
    telemetry = telemetry_until_now(2, step=1)
    chance = random.Random(2)
    with store:
        recorder = Recorder(desk, "box", telemetry, samples=256)
        recorder.start()
        for _ in range(10):
            known = recorder.in_the_box()
            push = subprocess.Popen([desk.program, *desk.push_words("box", store.url())],
                                    cwd=desk.folder, stdout=subprocess.DEVNULL)
            time.sleep(chance.uniform(0, 0.05))
            push.kill()
            push.wait()
            desk.push("box", store.url())
            recorder.has_pushed(known)
        recorder.finish()
        desk.push("box", store.url())
        wait_for(lambda: require_samples(store, "box", telemetry.rows))


def check_restart(desk, store):
    telemetry = telemetry_until_now(3)
    with store:
        for _ in range(3):
            rows = [telemetry.row() for _ in range(40)]
            desk.import_rows("box", rows, samples=256)
            desk.push("box", store.url())
            store.kill()
            store.start()
        wait_for(lambda: store.query("vector(1)"))
        desk.push("box", store.url())
        wait_for(lambda: require_samples(store, "box", telemetry.rows))


def check_old(desk, store):
    """The store takes two hours back, the box reaches farther."""
    telemetry = UsualTelemetry(4, step=10, first=int(time.time()) - 6 * 3600)
    rows = [telemetry.row() for _ in range(6 * 360)]
    desk.import_rows("box", rows, samples=4096)
    desk.import_rows("other", rows[-2:])
    with store:
        # A store that has nothing yet takes whatever is the first.
        desk.push("other", store.url())
        text = desk.push("box", store.url(), "--json")
        require("left out" in text, text)
        told = json.loads(text[text.index("{"):])
        values = sum(not math.isnan(value) for _, row in rows for value in row)
        require(told["left_out"] > 0 and told["samples"] + told["left_out"] == values,
                f"{values} values were recorded; told: {text}")
        series = points_of(store, "box", metric_of(SENSORS[0]), SENSORS[0])
        newest = {1000 * when for when, _ in rows[-300:]}
        require(newest <= series.keys(), f"{len(newest - series.keys())} of the newest are missing")
        require(len(series) < len(rows), "nothing was too old")


def check_agent(desk, store):
    telemetry = telemetry_until_now(5)
    agent = MetricAgent(desk.folder / "agent", store)

    def record_and_push(count):
        desk.import_rows("box", [telemetry.row() for _ in range(count)])
        return desk.push("box", agent.url())

    with agent:
        text = record_and_push(100)
        require("cannot be asked" in text, text)
        # The buffers take turns between the pushes, which merge the intervals of before.
        for _ in range(6):
            text = record_and_push(64)
            require("cannot be asked" not in text, text)
        text = desk.push("box", agent.url())
        require("0 sample values, 0 interval rows and 0 events" in text, text)
        agent.stop()
        agent.start()
        record_and_push(64)
        with store:
            record_and_push(64)

            def look():
                covered = require_chain(store, "box", telemetry.rows)
                require(covered > len(telemetry.rows) - 192,
                        f"the history ends behind {covered} of {len(telemetry.rows)}")
                require_samples(store, "box", telemetry.rows)

            wait_for(look)


STORES = {"victoria": VictoriaMetrics, "prometheus": Prometheus}
CASES = {"first": check_first, "live": check_live, "restart": check_restart, "old": check_old, "agent": check_agent}


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("store", choices=STORES)
    parser.add_argument("case", choices=CASES)
    arguments = parser.parse_args()
    os.environ["NO_PROXY"] = os.environ["no_proxy"] = "*"
    with tempfile.TemporaryDirectory(prefix="vesk-push-") as folder:

        def run():
            words = {"window": "2h"} if arguments.case == "old" else {}
            store = STORES[arguments.store](Path(folder) / "server", **words)
            CASES[arguments.case](Desk(arguments.vesk, folder), store)
            print(f"{arguments.store} {arguments.case}: the store has what the boxes have")

        return verdict(run, f"{arguments.store} {arguments.case}")


if __name__ == "__main__":
    sys.exit(main())
