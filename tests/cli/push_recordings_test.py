#!/usr/bin/env python3
"""Recordings of several machines that push by themselves into one server, while both are killed at
random moments. In the end the engine has what the boxes have, and the intervals there tell what the
samples there do, each once.

  push_recordings_test.py --vesk build/release/cli/vesk [MACHINES [SECONDS]]

Without clickhouse-server the test is skipped and says so.
"""

import argparse
import calendar
import csv
import io
import math
import os
import random
import signal
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from engines import ClickHouse  # noqa: E402
from pushed import Desk, bits, chain_in, samples_in, single  # noqa: E402
from verdict import require, verdict  # noqa: E402

LIMIT = 120
SENSOR = "::load.1min"
# An outage is shorter than the full buffers that a box keeps.
OUTAGE = 8
SAMPLES = 20


class Recording:
    """A recording that pushes; it goes on with its box after each kill."""

    def __init__(self, desk, server, number):
        self.base = f"machine{number}"
        self.messages = desk.folder / f"{self.base}.messages"
        self.desk = desk
        self.words = [desk.program, "record", self.base, "--interval", "1s", "--samples",
                      str(SAMPLES), "--intervals", "4", "--sensors", "load,mem", "--top", "0",
                      "--no-kernel-log", "--push", server.url(), "--push-every", "1s",
                      "--push-raw", "all", "--push-label", f"box={self.base}"]
        self.kills = 0
        self.start()

    def start(self):
        with open(self.messages, "ab") as file:
            self.process = subprocess.Popen(self.words, cwd=self.desk.folder, stderr=file,
                                            stdin=subprocess.DEVNULL)

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.kills += 1

    def finish(self):
        self.process.terminate()
        code = self.process.wait(LIMIT)
        # It may have begun just now, and not yet wait for a signal.
        require(code in (0, -signal.SIGTERM), f"{self.base} ended with {code}: {self.messages.read_text()}")


def disturb(recordings, server, seconds, chance):
    """Kills recordings and the server now and then; returns how often it killed the server."""
    kills = 0
    until = time.monotonic() + seconds
    while time.monotonic() < until:
        time.sleep(chance.uniform(0, 4))
        if chance.random() < 0.2:
            server.kill()
            time.sleep(chance.uniform(0, OUTAGE))
            server.start()
            kills += 1
        else:
            one = chance.choice(recordings)
            one.kill()
            one.start()
    return kills


def push_the_rest(desk, server, base):
    """A push of the recording itself may still be at work."""
    until = time.monotonic() + LIMIT
    while True:
        text = desk.run("push", base, "--to", server.url(), "--raw", "all", "--label",
                        f"box={base}", codes=(0, 1))
        if "pushed as" in text:
            return
        require("another process" in text and time.monotonic() < until, text)
        time.sleep(0.2)


def require_box(desk, base, samples):
    """Each value that the box still has is in the engine."""
    done = subprocess.run([desk.program, "export", base, "--format", "csv"], cwd=desk.folder,
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=True)
    heading, *rows = csv.reader(io.StringIO(done.stdout))
    require(rows, f"{base}: the box has no samples")
    for column, sensor in enumerate(heading[1:], 1):
        known = set(samples.get(sensor, []))
        for row in rows:
            if row[column] != "":
                when = calendar.timegm(time.strptime(row[0], "%Y-%m-%dT%H:%M:%SZ"))
                require((when, bits(single(float(row[column])))) in known,
                        f"{base}: {sensor} of {row[0]} is missing in the engine")


def require_same_story(server, base, points):
    """The chain of intervals in the engine holds the samples there, in their order, each once."""
    at = 0
    for link in chain_in(server, base, SENSOR):
        part = points[at:at + link["count"]]
        require(part and part[0][0] == link["start"] and part[-1][0] == link["end"],
                f"{base}: behind {at} samples comes {link}")
        values = [struct.unpack("<f", value)[0] for _, value in part]
        require(math.isclose(min(values), link["min"], rel_tol=1e-6)
                and math.isclose(max(values), link["max"], rel_tol=1e-6),
                f"{base}: {link} of {values}")
        at += link["count"]
    require(at > len(points) - 4 * SAMPLES, f"{base}: the history ends behind {at} of {len(points)}")
    return at


def check(desk, machines, seconds):
    chance = random.Random()
    with ClickHouse(desk.folder / "server") as server:
        desk.run("push", "--create", "--to", server.url())
        recordings = [Recording(desk, server, number) for number in range(machines)]
        try:
            kills = disturb(recordings, server, seconds, chance)
        finally:
            for each in recordings:
                each.finish()
        values = intervals = 0
        for each in recordings:
            push_the_rest(desk, server, each.base)
            samples = samples_in(server, each.base)
            require_box(desk, each.base, samples)
            values += sum(len(points) for points in samples.values())
            intervals += require_same_story(server, each.base, samples[SENSOR])
    print(f"{machines} recordings killed {sum(each.kills for each in recordings)} times, the "
          f"server {kills} times: {values} values, and intervals of {intervals} samples")


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("machines", nargs="?", type=int, default=2)
    parser.add_argument("seconds", nargs="?", type=int, default=10)
    arguments = parser.parse_args()
    os.environ["NO_PROXY"] = os.environ["no_proxy"] = "*"
    with tempfile.TemporaryDirectory(prefix="vesk-push-") as folder:
        os.environ["XDG_STATE_HOME"] = f"{folder}/home"
        return verdict(lambda: check(Desk(arguments.vesk, folder), arguments.machines,
                                     arguments.seconds))


if __name__ == "__main__":
    sys.exit(main())
