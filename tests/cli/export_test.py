#!/usr/bin/env python3
"""Gives exports to the programs that they are made for, and compares what these read with the box.

  export_test.py --vesk build/release/cli/vesk files        csv, json, sqlite3 and jq
  export_test.py --vesk build/release/cli/vesk prometheus   promtool, and a query of a server
  export_test.py --vesk build/release/cli/vesk victoria     a server of VictoriaMetrics
  export_test.py --vesk build/release/cli/vesk influx       a server of InfluxDB

What is in the box is known from a reader of its own, see tests/twin. Each float has to be the same to its last bit. A
program that is not installed skips the test and says so. Servers listen on the loopback only, at a
free port, and are ended by their number.
"""

import argparse
import csv
import io
import json
import math
import os
import random
import shutil
import socket
import sqlite3
import struct
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "twin"))
from vesk_format import Interval, Names, Values, read_buffer  # noqa: E402
from verdict import Failure, Skip, require, verdict  # noqa: E402

EPOCH = 1_704_067_200
START_LIMIT = 60
STATISTICS = ("count", "sum", "min", "max", "first", "last")


def stamp(seconds):
    return time.strftime("%Y%m%d:%H:%M:%S", time.gmtime(seconds))


def from_iso(text):
    return time.mktime(time.strptime(text, "%Y-%m-%dT%H:%M:%SZ"))


def single(value):
    """The nearest single-precision number, as its bits; zeros below and above 0 differ."""
    try:
        return struct.pack(">f", float(value))
    except OverflowError:
        return struct.pack(">f", math.copysign(math.inf, float(value)))


def without_sign_of_zero(series):
    """For stores that have one zero only."""
    zero = struct.pack(">f", 0.0)
    minus = struct.pack(">f", -0.0)
    return {key: {when: zero if value == minus else value for when, value in points.items()}
            for key, points in series.items()}


def without_infinities(series):
    infinite = {struct.pack(">f", math.inf), struct.pack(">f", -math.inf)}
    kept = {key: {when: value for when, value in points.items() if value not in infinite}
            for key, points in series.items()}
    return {key: points for key, points in kept.items() if points}


class Vesk:
    def __init__(self, program, folder):
        self.program = program
        self.folder = folder

    def run(self, *words, data=None):
        result = subprocess.run([self.program, *words], cwd=self.folder, input=data,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120,
                                check=False)
        require(result.returncode == 0,
                f"vesk {' '.join(words)} ended with {result.returncode}: {result.stderr.decode()}")
        return result.stdout.decode()


def any_float(chance):
    """All kinds of them: every bit pattern, and those of which formats have none."""
    kind = chance.randrange(10)
    if kind < 6:
        return struct.unpack(">f", chance.randbytes(4))[0]
    return (math.nan, math.inf, -math.inf, -0.0)[kind - 6]


def usual_float(chance):
    """What sensors deliver: a missing one now and then, and few digits."""
    return math.nan if chance.random() < 0.1 else round(chance.uniform(-50, 5000), 3)


def make_box(vesk, kinds, rows=60, seed=1):
    """A box with history and raw samples. The names try the escaping of all formats."""
    chance = random.Random(seed)
    names = ["::cpu.total", "::cpu_total", "::cpu.total.count", '::a "b" c', "::back\\slash",
             "::end\\", "::eq=ual", "::\u00e9\u4e16", "::interval.seconds"]
    lines = [stamp(EPOCH) + "," + ",".join(names)]
    for i in range(rows):
        values = (repr(kinds[column % len(kinds)](chance)) for column in range(len(names)))
        lines.append(stamp(EPOCH + 10 * i) + "," + ",".join(values))
    vesk.run("import", "box", "--samples", "16", "--intervals", "4",
             data=("\n".join(lines) + "\n").encode())
    vesk.run("event", "box", "3", 'a "text", with=all \\ of it')
    return names


def called(name):
    return name.decode() if isinstance(name, bytes) else name


def as_tag(name):
    """A backslash cannot stand at the end of a tag."""
    return name[:-1] + "?" if name.endswith("\\") else name


def samples_in(vesk):
    """By sensor and time."""
    found = {}
    for path in sorted(Path(vesk.folder).glob("box.*.cbuf.z"), key=number_of):
        names = []
        for record in read_buffer(path)[1].records:
            if isinstance(record, Names):
                names = [called(name) for name in record.sensors]
            elif isinstance(record, Values):
                for name, value in zip(names, record.values):
                    if not math.isnan(value):
                        found.setdefault(name, {})[record.time] = single(value)
    require(found, "the box has no samples")
    return found


def intervals_in(vesk):
    """By sensor and statistic, then by the end of the interval."""
    found = {}
    for path in Path(vesk.folder).glob("box.*.hbuf.z"):
        names = []
        for record in read_buffer(path)[1].records:
            if isinstance(record, Names):
                names = [called(name) for name in record.sensors]
            elif isinstance(record, Interval):
                for name, value in zip(names, record.hist):
                    for what, number in statistics_of(value):
                        found.setdefault((name, what), {})[record.end] = single(number)
    require(found, "the history is empty")
    return found


def statistics_of(value):
    if value.count == 0:
        return []
    numbers = (value.count, value.sums[0], value.minimum, value.maximum, value.first, value.last)
    return [(what, number) for what, number in zip(STATISTICS, numbers) if not math.isnan(number)]


def number_of(path):
    return int(path.name.split(".")[1])


def require_same(what, wanted, found):
    require(wanted.keys() == found.keys(),
            f"{what}: other series: {sorted(wanted.keys() ^ found.keys(), key=str)[:6]}")
    for key, points in wanted.items():
        if found[key] != points:
            wrong = [(when, points.get(when), found[key].get(when))
                     for when in sorted(points.keys() | found[key].keys())
                     if points.get(when) != found[key].get(when)]
            raise Failure(f"{what}: {key} differs at {len(wrong)} times, first {wrong[0]}")


def require_sound_deviations(vesk, deviations):
    """What is told of the spread agrees with the extremes."""
    for (name, when), value in deviations.items():
        require(value >= 0, f"the deviation of {name} at {when} is {value}")
    require(deviations, "no deviation was exported")


# Files

def check_csv(vesk):
    found = {}
    rows = csv.DictReader(io.StringIO(vesk.run("export", "box", "--format", "csv")))
    for row in rows:
        when = from_iso(row.pop("time"))
        for name, text in row.items():
            if text:
                found.setdefault(name, {})[when] = single(text)
    require_same("csv", samples_in(vesk), found)
    found = {}
    for row in csv.DictReader(io.StringIO(vesk.run("export", "box", "--format", "csv", "--table",
                                                   "intervals"))):
        end = from_iso(row["end"])
        require(int(row["seconds"]) == end - from_iso(row["start"]), f"length: {row}")
        for what in STATISTICS:
            if row[what]:
                found.setdefault((row["sensor"], what), {})[end] = single(row[what])
    require_same("csv of intervals", intervals_in(vesk), found)


def check_jsonl(vesk):
    samples = {}
    intervals = {}
    kinds = set()

    def refuse(word):
        raise Failure(f"jsonl holds {word}, which is not JSON")

    for line in vesk.run("export", "box", "--format", "jsonl").splitlines():
        row = json.loads(line, parse_constant=refuse)
        kinds.add(row["kind"])
        if row["kind"] == "sample":
            for name, value in row["values"].items():
                if value is not None:
                    samples.setdefault(name, {})[from_iso(row["time"])] = single(value)
        elif row["kind"] == "interval":
            for name, values in row["values"].items():
                for what in STATISTICS:
                    if values.get(what) is not None:
                        points = intervals.setdefault((name, what), {})
                        points[from_iso(row["end"])] = single(values[what])
    require(kinds == {"box", "sample", "interval", "event"}, f"jsonl has {kinds}")
    require_same("jsonl", without_infinities(samples_in(vesk)), samples)
    require_same("jsonl of intervals", without_infinities(intervals_in(vesk)), intervals)


def check_sqlite(vesk):
    vesk.run("export", "box", "--format", "sqlite", "-o", "box.db", "--force")
    file = sqlite3.connect(Path(vesk.folder) / "box.db")
    require(file.execute("PRAGMA integrity_check").fetchall() == [("ok",)], "integrity")
    require(not file.execute("PRAGMA foreign_key_check").fetchall(), "foreign keys")
    found = {}
    for name, when, value in file.execute(
            "SELECT name, time, value FROM samples JOIN sensors ON id = sensor"):
        found.setdefault(name, {})[when] = single(value)
    require_same("sqlite", without_sign_of_zero(samples_in(vesk)), without_sign_of_zero(found))
    found = {}
    deviations = {}
    for name, end, deviation, *values in file.execute(
            f"SELECT name, end_time, stddev, {', '.join(STATISTICS)} FROM intervals"
            " JOIN history ON history.id = history JOIN sensors ON sensors.id = sensor"):
        for what, value in zip(STATISTICS, values):
            if value is not None:
                found.setdefault((name, what), {})[end] = single(value)
        if deviation is not None:
            deviations[name, end] = deviation
    require_same("sqlite of intervals", without_sign_of_zero(intervals_in(vesk)),
                 without_sign_of_zero(found))
    require_sound_deviations(vesk, deviations)
    for view in ("sample_list", "interval_list", "event_list", "sensor_list"):
        require(file.execute(f"SELECT count(*) FROM {view}").fetchone()[0] > 0, f"{view} is empty")
    file.close()


def check_by_programs(vesk):
    """The programs that people have at hand read the same."""
    rows = sum(len(points) for points in samples_in(vesk).values())
    if shutil.which("sqlite3"):
        count = subprocess.run(["sqlite3", "box.db", "SELECT count(*) FROM sample_list"],
                               cwd=vesk.folder, stdout=subprocess.PIPE, check=True, timeout=60)
        require(int(count.stdout) == rows, f"sqlite3 counts {count.stdout} of {rows}")
    if shutil.which("jq"):
        count = subprocess.run(["jq", "-s", '[.[] | select(.kind == "sample") | .values | length]'
                                ' | add'],
                               input=vesk.run("export", "box", "--format", "jsonl").encode(),
                               stdout=subprocess.PIPE, check=True, timeout=60)
        require(int(count.stdout) == rows, f"jq counts {count.stdout} of {rows}")


def check_files(vesk):
    for kinds in ((any_float,), (usual_float,)):
        for path in Path(vesk.folder).glob("box*"):
            path.unlink()
        make_box(vesk, kinds)
        check_csv(vesk)
        check_jsonl(vesk)
        check_sqlite(vesk)
        check_by_programs(vesk)


# Stores

def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Server:
    """A program that is ended with the block in which it runs."""

    def __init__(self, folder, words, url):
        self.folder = folder
        self.words = words
        self.url = url

    def __enter__(self):
        self.log = open(Path(self.folder) / "server.log", "wb")
        self.process = subprocess.Popen(self.words, cwd=self.folder, stdout=self.log,
                                        stderr=subprocess.STDOUT)
        return self

    def wait(self, path):
        end = time.monotonic() + START_LIMIT
        while time.monotonic() < end:
            require(self.process.poll() is None,
                    f"{self.words[0]} ended: {(Path(self.folder) / 'server.log').read_text()[-800:]}")
            try:
                self.get(path)
                return
            except (urllib.error.URLError, ConnectionError):
                time.sleep(0.05)
        raise Failure(f"{self.words[0]} does not answer")

    def get(self, path, data=None):
        with urllib.request.urlopen(self.url + path, data=data, timeout=60) as answer:
            return answer.read().decode()

    def __exit__(self, *ignored):
        self.process.terminate()
        try:
            self.process.wait(timeout=20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.log.close()


def need(*programs):
    for program in programs:
        if not shutil.which(program):
            raise Skip(f"{program} is not installed")


def split_series(metrics):
    """Metrics by their labels into samples, and intervals by their statistic."""
    samples = {}
    intervals = {}
    lengths = {}
    for labels, points in metrics:
        name = labels["__name__"]
        require(labels.get("box") == "box" and labels.get("site") == "north", f"labels: {labels}")
        if "sensor" not in labels:
            require(name == "vesk_interval_seconds", f"no sensor: {labels}")
            lengths = points
            continue
        sensor = labels["sensor"]
        base = "vesk_" + "".join(c if c.isascii() and (c.isalnum() or c == "_") else "_" * len(
            c.encode()) for c in sensor[2:])
        require(name.startswith(base), f"{sensor} is called {name}")
        what = name[len(base) + 1:]
        if not what:
            samples[sensor] = points
        elif what != "stddev":
            require(what in STATISTICS, f"{sensor} is called {name}")
            intervals[sensor, what] = points
    require(lengths, "no lengths of intervals")
    return samples, intervals


def parse_labels(text):
    """{a="b", ...} as Prometheus writes it, which are the rules of Go for quotation."""
    labels = {}
    rest = text.strip("{}")
    while rest:
        key, rest = rest.split("=", 1)
        decoder = json.JSONDecoder()
        value, end = decoder.raw_decode(rest)
        labels[key.strip(", ")] = value
        rest = rest[end:]
    return labels


def check_prometheus(vesk):
    need("promtool", "prometheus")
    make_box(vesk, (any_float, usual_float))
    vesk.run("export", "box", "--format", "openmetrics", "-o", "box.om", "--label", "site=north")
    require((Path(vesk.folder) / "box.om").read_text().endswith("\n# EOF\n"), "no end")
    subprocess.run(["promtool", "tsdb", "create-blocks-from", "openmetrics", "box.om", "blocks"],
                   cwd=vesk.folder, stdout=subprocess.DEVNULL, check=True, timeout=120)
    # The tool wants the folder to look like that of a server.
    (Path(vesk.folder) / "blocks" / "wal").mkdir(parents=True)
    dump = subprocess.run(["promtool", "tsdb", "dump", "blocks"], cwd=vesk.folder, check=True,
                          stdout=subprocess.PIPE, timeout=120).stdout.decode()
    series = {}
    for line in dump.splitlines():
        labels, value, when = line.rsplit(" ", 2)
        series.setdefault(labels, {})[int(when) / 1000] = single(value)
    samples, intervals = split_series((parse_labels(labels), points)
                                      for labels, points in series.items())
    require_same("prometheus", samples_in(vesk), samples)
    require_same("prometheus, intervals", intervals_in(vesk), intervals)
    query_prometheus(vesk)


def query_prometheus(vesk):
    """A server finds the points, too."""
    port = free_port()
    (Path(vesk.folder) / "prometheus.yml").write_text("global: {}\n")
    words = ["prometheus", "--config.file=prometheus.yml", "--storage.tsdb.path=blocks",
             f"--web.listen-address=127.0.0.1:{port}", "--storage.tsdb.retention.time=100y",
             "--log.level=error"]
    with Server(vesk.folder, words, f"http://127.0.0.1:{port}") as server:
        server.wait("/-/ready")
        query = urllib.parse.urlencode({
            "query": 'vesk_cpu_total{sensor="::cpu.total"}[1h]', "time": EPOCH + 3000})
        found = json.loads(server.get("/api/v1/query?" + query))["data"]["result"]
    require(len(found) == 1, f"a query gives {len(found)} series")
    points = {when: single(text) for when, text in found[0]["values"]}
    require_same("query", {"": samples_in(vesk)["::cpu.total"]}, {"": points})


def check_victoria(vesk):
    need("victoria-metrics")
    make_box(vesk, (usual_float,))
    data = vesk.run("export", "box", "--format", "victoria", "--label", "site=north").encode()
    port = free_port()
    words = ["victoria-metrics", "-storageDataPath=store", f"-httpListenAddr=127.0.0.1:{port}",
             "-retentionPeriod=100y", "-loggerLevel=ERROR"]
    with Server(vesk.folder, words, f"http://127.0.0.1:{port}") as server:
        server.wait("/health")
        server.get("/api/v1/import", data)
        # What was sent can be asked for after a moment, or at once after this.
        server.get("/internal/force_flush")
        query = urllib.parse.urlencode({"match[]": '{__name__=~"vesk_.+"}'})
        text = server.get("/api/v1/export?" + query)
    series = []
    for line in text.splitlines():
        row = json.loads(line)
        series.append((row["metric"], {when / 1000: single(value) for when, value in
                                       zip(row["timestamps"], row["values"])}))
    samples, intervals = split_series(series)
    require_same("victoria", without_sign_of_zero(samples_in(vesk)), without_sign_of_zero(samples))
    require_same("victoria, intervals", without_sign_of_zero(intervals_in(vesk)),
                 without_sign_of_zero(intervals))


INFLUX = """reporting-disabled = true
bind-address = "127.0.0.1:{rpc}"
[meta]
  dir = "{folder}/meta"
[data]
  dir = "{folder}/data"
  wal-dir = "{folder}/wal"
  query-log-enabled = false
[http]
  bind-address = "127.0.0.1:{port}"
  log-enabled = false
[monitor]
  store-enabled = false
"""


def check_influx(vesk):
    need("influxd")
    make_box(vesk, (any_float, usual_float))
    data = vesk.run("export", "box", "--format", "influx", "--label", "site=north").encode()
    port = free_port()
    (Path(vesk.folder) / "influxdb.conf").write_text(
        INFLUX.format(folder=vesk.folder, port=port, rpc=free_port()))
    words = ["influxd", "run", "-config", "influxdb.conf"]

    with Server(vesk.folder, words, f"http://127.0.0.1:{port}") as server:
        def ask(query):
            text = server.get("/query", urllib.parse.urlencode(
                {"q": query, "db": "boxes", "epoch": "s"}).encode())
            found = json.loads(text, parse_int=float)["results"][0]
            require("error" not in found, f"{query}: {found}")
            return [dict(zip(one["columns"], row)) for one in found.get("series", ())
                    for row in one["values"]]

        server.wait("/ping")
        ask("CREATE DATABASE boxes")
        server.get("/write?db=boxes", data)
        rows = ask("SELECT * FROM vesk_sample")
        history = ask("SELECT * FROM vesk_interval")
        events = ask("SELECT * FROM vesk_event")
    samples = {}
    for row in rows:
        require(row["box"] == "box" and row["site"] == "north", f"labels: {row}")
        samples.setdefault(row["sensor"], {})[row["time"]] = single(row["value"])
    intervals = {}
    for row in history:
        for what in STATISTICS:
            if row[what] is not None:
                intervals.setdefault((row["sensor"], what), {})[row["time"]] = single(row[what])
    require_same("influx", {as_tag(name): points for name, points in
                            without_infinities(samples_in(vesk)).items()}, samples)
    require_same("influx, intervals", {(as_tag(name), what): points for (name, what), points in
                                       without_infinities(intervals_in(vesk)).items()}, intervals)
    require([row["text"] for row in events] == ['a "text", with=all \\ of it'], f"{events}")


CHECKS = {"files": check_files, "prometheus": check_prometheus, "victoria": check_victoria,
          "influx": check_influx}


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("check", choices=CHECKS)
    arguments = parser.parse_args()
    os.environ["TZ"] = "UTC0"
    time.tzset()
    with tempfile.TemporaryDirectory(prefix="vesk-export-") as folder:

        def run():
            CHECKS[arguments.check](Vesk(arguments.vesk, folder))
            print(f"{arguments.check}: the same to the last bit")

        return verdict(run)


if __name__ == "__main__":
    sys.exit(main())
