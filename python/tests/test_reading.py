"""Reading boxes: tables, events, facts; each beside what the command says of the same box."""

import csv
import datetime
import io
import json
import os
import shutil
import signal
import subprocess
import sys
import threading
import time
import unittest
from pathlib import Path

import numpy

import vesk
from boxes import BEGIN, SENSORS, BoxTest, command, equal, fill, value

try:
    import pandas
except ImportError:
    pandas = None

needs_pandas = unittest.skipIf(pandas is None, "pandas is not installed")
UTC = datetime.timezone.utc


def expected(first, last):
    rows = [
        [numpy.nan if value(row, column) is None else value(row, column) for column in range(5)]
        for row in range(first, last)
    ]
    return numpy.array(rows, dtype=numpy.float32)


class Samples(BoxTest):
    def test_are_what_was_written(self):
        fill(self.base)
        found = vesk.Box(self.base).samples_arrays()
        self.assertEqual(found.sensors, SENSORS)
        self.assertEqual(found.values.dtype, numpy.float32)
        self.assertTrue(equal(found.values, expected(24, 40)))
        self.assertEqual(
            found.times.astype(numpy.int64).tolist(), list(range(BEGIN + 24, BEGIN + 40))
        )

    @needs_pandas
    def test_are_a_frame_with_times_in_utc(self):
        fill(self.base)
        frame = vesk.Box(self.base).samples()
        self.assertEqual(list(frame.columns), SENSORS)
        self.assertEqual(str(frame.index.tz), "UTC")
        self.assertEqual(frame.index[0], pandas.Timestamp(BEGIN + 24, unit="s", tz="UTC"))
        self.assertTrue((frame.dtypes == numpy.float32).all())
        self.assertTrue(equal(frame.to_numpy(), expected(24, 40)))

    def test_are_those_that_the_command_prints(self):
        fill(self.base, rows=21)
        text = command("dump", self.base, "--utc").stdout.splitlines()
        rows = [line.split(",")[1:] for line in text[1:] if line]
        self.assertEqual(text[0].split(",")[1:], SENSORS)
        wanted = numpy.array(rows, dtype=numpy.float32)
        self.assertTrue(equal(vesk.Box(self.base).samples_arrays().values, wanted))

    @needs_pandas
    def test_are_not_copied_on_their_way_into_a_frame(self):
        fill(self.base)
        box = vesk.Box(self.base)
        arrays = box.samples_arrays()
        self.assertFalse(arrays.values.flags.owndata)
        box._samples = lambda *span: arrays
        self.assertTrue(numpy.shares_memory(box.samples().to_numpy(), arrays.values))

    def test_have_nan_where_a_sensor_was_not_there(self):
        with vesk.Recorder(self.base) as recorder:
            recorder.write({"b": 1, "a": 2}, time=BEGIN)
            recorder.write({"c": 3, "a": 4}, time=BEGIN + 1)
            recorder.write({"b": 5, "a": 6}, time=BEGIN + 2)
        found = vesk.Box(self.base).samples_arrays()
        nan = numpy.nan
        self.assertEqual(found.sensors, ["b", "a", "c"])
        wanted = numpy.array([[1, 2, nan], [nan, 4, 3], [5, 6, nan]], dtype=numpy.float32)
        self.assertTrue(equal(found.values, wanted))

    def test_keep_infinities_and_the_smallest_numbers(self):
        values = [numpy.inf, -numpy.inf, 1e-45, -0.0, 3.4028235e38]
        with vesk.Recorder(self.base) as recorder:
            recorder.sensors = ["s"]
            for i, each in enumerate(values):
                recorder.write([each], time=BEGIN + i)
        found = vesk.Box(self.base).samples_arrays().values[:, 0]
        self.assertEqual(found.tobytes(), numpy.array(values, dtype=numpy.float32).tobytes())

    def test_of_an_empty_box_are_none(self):
        vesk.Recorder(self.base).close()
        found = vesk.Box(self.base).samples_arrays()
        self.assertEqual((found.sensors, found.values.shape), ([], (0, 0)))

    @needs_pandas
    def test_of_an_empty_box_are_frames_without_rows(self):
        vesk.Recorder(self.base).close()
        box = vesk.Box(self.base)
        for frame in (box.samples(), box.history(), box.intervals(), box.events()):
            self.assertEqual(len(frame), 0)
            self.assertEqual(str(frame.index.tz), "UTC")

    def test_are_read_while_a_recorder_writes(self):
        with vesk.Recorder(self.base) as recorder:
            for row in range(5):
                recorder.write({"a": row}, time=BEGIN + row)
                found = vesk.Box(self.base).samples_arrays()
                self.assertEqual(found.values[:, 0].tolist(), list(range(row + 1)))

    def test_of_a_box_that_was_moved_are_read_where_it_is(self):
        fill(self.base)
        other = self.folder + "/elsewhere"
        os.mkdir(other)
        for name in self.files():
            if name != "elsewhere":
                shutil.move(os.path.join(self.folder, name), other)
        self.assertEqual(len(vesk.Box(other + "/box").samples_arrays().times), 16)

    def test_of_one_buffer_are_read(self):
        fill(self.base, rows=12)
        self.assertEqual(len(vesk.Box(self.base + ".1.cbuf.z").samples_arrays().times), 8)

    def test_of_a_box_named_by_its_state_file_or_a_path_are_read(self):
        fill(self.base, rows=12)
        for name in (self.base + ".state", Path(self.base), os.fsencode(self.base)):
            self.assertEqual(len(vesk.Box(name).samples_arrays().times), 12)


class Choice(BoxTest):
    def setUp(self):
        super().setUp()
        fill(self.base)
        self.box = vesk.Box(self.base)

    def chosen(self, sensors):
        return self.box.samples_arrays(sensors=sensors).sensors

    def test_of_sensors_is_that_of_the_command(self):
        for patterns in (["*a"], ["*", "!*eta"], ["!load_1"], ["load_?"], ["beta", "zeta"]):
            words = [word for pattern in patterns for word in ("--sensor", pattern)]
            text = command("fetch", self.base, "--format", "csv", *words).stdout
            self.assertEqual(self.chosen(patterns), next(csv.reader(io.StringIO(text)))[3:])

    def test_keeps_the_order_of_the_machine_whatever_is_asked_first(self):
        self.assertEqual(self.chosen(["beta", "zeta"]), ["zeta", "beta"])

    def test_takes_the_exact_name_of_a_sensor_whatever_it_holds(self):
        self.assertEqual(self.chosen("::m[0]"), ["::m[0]"])
        self.assertEqual(self.chosen(SENSORS), SENSORS)

    def test_gives_the_values_of_what_was_chosen(self):
        found = self.box.samples_arrays(sensors=["beta", "zeta"]).values
        self.assertTrue(equal(found, expected(24, 40)[:, [0, 3]]))

    def test_that_fits_nothing_is_refused_with_a_suggestion(self):
        with self.assertRaisesRegex(ValueError, r"^sensors betta: .*did you mean 'beta'"):
            self.chosen("betta")

    def test_of_no_or_of_wrong_patterns_is_refused(self):
        for patterns, error in (([], ValueError), ([1], TypeError), (3, TypeError),
                                (b"beta", TypeError), ([None], TypeError), (["!*"], ValueError)):
            with self.subTest(patterns), self.assertRaises(error):
                self.chosen(patterns)

    def test_by_hostile_patterns_ends_in_time(self):
        for pattern in ("*" * 5000, "\0", "\ud800", "[" * 999, "*a" * 2000, "\x1b[2J"):
            with self.subTest(pattern[:9]):
                try:
                    self.chosen(pattern)
                except ValueError as reason:
                    self.assertNotIn("\x1b", str(reason))


class Spans(BoxTest):
    def setUp(self):
        super().setUp()
        fill(self.base)
        self.box = vesk.Box(self.base)

    def rows(self, **span):
        times = self.box.samples_arrays(**span).times.astype(numpy.int64) - BEGIN
        return (int(times[0]), int(times[-1])) if len(times) else None

    def test_hold_both_of_their_ends(self):
        self.assertEqual(self.rows(start=BEGIN + 30, end=BEGIN + 35), (30, 35))
        self.assertEqual(self.rows(start=BEGIN + 30.1, end=BEGIN + 35.9), (31, 35))
        self.assertIsNone(self.rows(start=BEGIN + 35, end=BEGIN + 30))

    def test_are_understood_in_every_form(self):
        moment = datetime.datetime.fromtimestamp(BEGIN + 30, UTC)
        east = moment.astimezone(datetime.timezone(datetime.timedelta(hours=5, minutes=30)))
        forms = [moment, moment.replace(tzinfo=None), east, east.isoformat(), str(BEGIN + 30),
                 f"@{BEGIN + 30}", f"{moment:%Y-%m-%d %H:%M:%S}", f"{moment:%Y%m%d:%H:%M:%S}",
                 f"{moment:%Y-%m-%dT%H:%M:%SZ}", numpy.datetime64(BEGIN + 30, "s"),
                 numpy.datetime64((BEGIN + 30) * 10**9, "ns"), numpy.int32(BEGIN + 30), "-9s",
                 datetime.timedelta(seconds=-9)]
        if pandas is not None:
            forms += [pandas.Timestamp(moment), pandas.Timedelta(-9, "s")]
        for form in forms:
            with self.subTest(repr(form)):
                self.assertEqual(self.rows(start=form), (30, 39))

    def test_do_not_depend_on_the_zone_of_the_process(self):
        self.addCleanup(time.tzset)
        self.addCleanup(os.environ.pop, "TZ", None)
        os.environ["TZ"] = "Pacific/Auckland"
        time.tzset()
        self.test_are_understood_in_every_form()

    def test_end_at_a_distance_from_the_end(self):
        self.assertEqual(self.rows(end="-5s"), (24, 34))
        self.assertEqual(self.rows(start="-5s", end="-1s"), (34, 38))

    def test_that_are_none_are_refused(self):
        for form, error in (("yesterday", ValueError), ("", ValueError), (float("nan"), ValueError),
                            (float("inf"), ValueError), (1e300, ValueError), ([], TypeError),
                            (10**30, ValueError), (numpy.datetime64("NaT"), ValueError),
                            ("-", ValueError), ("-1y", ValueError), ("-" + "9" * 30, ValueError),
                            ("9" * 400, ValueError), (True, TypeError), (b"1", TypeError),
                            ("2024-13-01", ValueError), ("20241399:00:00:00", ValueError),
                            (datetime.timedelta(1), ValueError), ("-\ud800", ValueError),
                            ("-1s\0", ValueError), (1j, TypeError), (numpy.nan, ValueError)):
            with self.subTest(repr(form)[:20]), self.assertRaises(error):
                self.rows(start=form)
        if pandas is not None:
            with self.assertRaises(ValueError):
                self.rows(end=pandas.NaT)


class History(BoxTest):
    def test_has_the_order_of_the_raw_samples(self):
        fill(self.base)
        self.assertEqual(vesk.Box(self.base).history_arrays().sensors, SENSORS)

    def test_is_what_the_command_prints(self):
        fill(self.base)
        text = command("dump", self.base, "--history", "--utc").stdout
        found = vesk.Box(self.base).history_arrays()
        starts = {str(when): row for row, when in enumerate(found.starts)}
        rows = 0
        for line in csv.DictReader(io.StringIO(text)):
            moment = datetime.datetime.strptime(line["start"], "%Y%m%d:%H:%M:%S")
            row = found.values[starts[moment.isoformat()], found.sensors.index(line["sensor"])]
            for statistic in ("count", "min", "max", "mean", "first", "last"):
                self.assertEqual(row[statistic], numpy.float32(line[statistic]), statistic)
            rows += 1
        self.assertEqual(rows, 4 * len(SENSORS))

    @needs_pandas
    def test_is_a_frame_of_sensors_and_statistics(self):
        fill(self.base)
        box = vesk.Box(self.base)
        frame = box.history()
        arrays = box.history_arrays()
        self.assertEqual(frame.columns.names, ["sensor", "statistic"])
        self.assertEqual(
            list(frame.columns), [(s, t) for s in SENSORS for t in vesk.STATISTICS]
        )
        for column, sensor in enumerate(SENSORS):
            for statistic in vesk.STATISTICS:
                with self.subTest((sensor, statistic)):
                    wanted = arrays.values[statistic][:, column]
                    self.assertTrue(equal(frame[sensor, statistic].to_numpy(), wanted))
                    self.assertEqual(frame[sensor, statistic].dtype, wanted.dtype)
        self.assertEqual(frame.index.name, "start")

    def test_has_the_moments_of_the_samples(self):
        samples = numpy.array([1, 2, 2, 3, 9, 4, 4, 1], dtype=numpy.float64)
        with vesk.Recorder(self.base, samples=16, intervals=2) as recorder:
            recorder.sensors = ["s"]
            for row in range(50):
                recorder.write([samples[row % 8]], time=BEGIN + row)
        found = vesk.Box(self.base).history_arrays().values[0, 0]
        distances = samples - samples.mean()
        deviation = samples.std()
        wanted = {"count": 8, "min": 1, "max": 9, "first": 1, "last": 1, "mean": samples.mean(),
                  "stddev": deviation, "skewness": (distances**3).mean() / deviation**3,
                  "kurtosis": (distances**4).mean() / deviation**4}
        for statistic, number in wanted.items():
            self.assertAlmostEqual(float(found[statistic]), float(number), 3, statistic)

    @needs_pandas
    def test_tells_the_ends_and_the_events_of_its_intervals(self):
        fill(self.base)
        table = vesk.Box(self.base).intervals()
        self.assertEqual(
            [(each.timestamp() - BEGIN) for each in table["end"]], [7.0, 15.0, 19.0, 23.0]
        )
        self.assertEqual(table["type1"].tolist(), [1, 0, 1, 0])

    @needs_pandas
    def test_holds_intervals_that_a_span_touches(self):
        fill(self.base)
        box = vesk.Box(self.base)
        self.assertEqual(len(box.history(start=BEGIN + 15, end=BEGIN + 16)), 2)
        self.assertEqual(list(box.history(sensors="beta").columns.levels[0]), ["beta"])


class Events(BoxTest):
    def test_are_told_with_those_that_wait(self):
        with vesk.Recorder(self.base, samples=2, intervals=2) as recorder:
            recorder.write({"a": 1}, time=BEGIN)
            self.assertTrue(recorder.event(2, "während", time=BEGIN))
            recorder.write({"a": 1}, time=BEGIN + 1)
            self.assertFalse(recorder.event(3, "full", time=BEGIN + 2))
            self.assertEqual(recorder.waiting_events, 1)
        self.assertEqual(
            vesk.Box(self.base).event_list(),
            [(BEGIN, 2, "während", False), (BEGIN + 2, 3, "full", True)],
        )
        self.assertEqual(vesk.Box(self.base).event_list(end=BEGIN)[-1].text, "während")

    @needs_pandas
    def test_are_a_frame_that_a_pattern_chooses_from(self):
        fill(self.base)
        box = vesk.Box(self.base)
        self.assertEqual(box.events()["text"].tolist(), ["row 25", "row 35"])
        self.assertEqual(box.events(text="*35")["type"].tolist(), [1])
        self.assertEqual(len(box.events(text="nothing")), 0)


class Facts(BoxTest):
    def test_are_those_of_the_command(self):
        fill(self.base)
        told = json.loads(command("info", "--json", self.base).stdout)
        facts = vesk.Box(self.base).info()
        self.assertEqual(facts["samples"], told["raw"]["samples"])
        self.assertEqual(facts["intervals"], told["history"]["intervals"])
        self.assertEqual(facts["events"], told["raw"]["events"])
        self.assertEqual(facts["raw_span"], tuple(told["raw"]["span"].values()))
        self.assertEqual(facts["state"]["stage"], told["state"]["stage"])
        self.assertEqual(facts["sensors"], told["sensors"])
        self.assertEqual([file["path"] for file in facts["files"]],
                         [file["path"] for file in told["files"]])
        self.assertFalse(facts["damaged"])

    def test_tell_whether_a_box_is_healthy(self):
        fill(self.base)
        self.assertEqual(vesk.Box(self.base).check()["verdict"], "healthy")
        self.write_bytes("box.7.cbuf.z", self.read_bytes("box.7.cbuf.z")[:-9])
        found = vesk.Box(self.base).check()
        told = json.loads(command("check", "--json", self.base, check=False).stdout)
        self.assertEqual(found["verdict"], "repairable")
        self.assertEqual(found["repair"], told["repair"]["steps"])

    def test_tell_who_writes(self):
        with vesk.Recorder(self.base) as recorder:
            recorder.write({"a": 1})
            feeder = subprocess.run(
                [sys.executable, "-c", f"import vesk; print(vesk.Box({self.base!r}).info()['writer'])"],
                check=True, capture_output=True, text=True)
        self.assertEqual(int(feeder.stdout), os.getpid())

    def test_tell_what_was_unusual(self):
        with vesk.Recorder(self.base, samples=600, intervals=20) as recorder:
            recorder.sensors = ["quiet", "loud"]
            for row in range(2000):
                swing = row * 37 % 11
                recorder.write([swing, swing + (500 if row > 1990 else 0)], time=BEGIN + row)
        first, second = vesk.Box(self.base).suspects()
        self.assertEqual((first.sensor, first.level, second.sensor), ("loud", "unusual", "quiet"))
        self.assertGreater(first.score, 0.3)
        self.assertIn("rose", first.sentence)
        for last, error in ((-1, ValueError), (True, TypeError), ("x", ValueError),
                            (1.5, TypeError), (10**30, ValueError)):
            with self.subTest(last), self.assertRaises(error):
                vesk.Box(self.base).suspects(last=last)


class Tiers(BoxTest):
    """BASE.1m, a box beside the box with one row for each minute."""

    def setUp(self):
        super().setUp()
        fill(self.base)
        self.tier = self.base + ".1m"
        with vesk.Recorder(self.tier, samples=4, intervals=2) as recorder:
            for row in range(6):
                recorder.write({"::tier.1m.samples_count": 60, "zeta": row}, time=BEGIN + 60 * row)

    def test_are_boxes_of_their_own(self):
        self.assertEqual(vesk.Box(self.base).info()["samples"], 16)
        self.assertEqual(vesk.Box(self.tier).info()["samples"], 6)
        values = vesk.Box(self.tier).samples_arrays(sensors="zeta").values
        self.assertEqual(values[:, 0].tolist(), [0, 1, 2, 3, 4, 5])

    def test_are_named_and_checked_with_their_box(self):
        box = vesk.Box(self.base)
        self.assertEqual(box.info()["tiers"], [self.tier])
        self.assertEqual(box.check()["tiers"],
                         [{"name": self.tier, "verdict": "healthy", "what": "healthy"}])
        os.unlink(self.tier + ".state")
        self.assertEqual(box.check()["tiers"][0]["verdict"], "repairable")
        self.assertEqual(box.check()["verdict"], "healthy")
        self.assertEqual(vesk.Box(self.tier).check()["tiers"], [])
        self.assertEqual(vesk.Box(self.tier).info()["tiers"], [])

    def test_count_where_the_command_ranks_sensors(self):
        told = json.loads(command("suspects", "--json", self.base).stdout)
        self.assertEqual([one.sensor for one in vesk.Box(self.base).suspects()],
                         [one["sensor"] for one in told["sensors"]])


class Names(BoxTest):
    def test_that_are_no_boxes_are_refused(self):
        os.mkfifo(self.base + ".state")
        os.symlink("/dev/zero", self.folder + "/link.state")
        for name, error in (("", ValueError), ("a\0b", ValueError), (3, TypeError),
                            (None, TypeError), (self.base, vesk.UnreadableError),
                            (self.folder + "/none", vesk.UnreadableError),
                            (self.folder, vesk.UnreadableError), ("/dev/zero", vesk.UnreadableError),
                            (self.folder + "/link", vesk.UnreadableError),
                            ("x" * 100000, vesk.Error), ("\x1b[2J", vesk.UnreadableError)):
            with self.subTest(str(name)[:30]), self.assertRaises(error) as caught:
                vesk.Box(name)
            self.assertNotIn("\x1b", str(caught.exception))

    def test_of_a_box_that_is_deleted_meanwhile_are_refused(self):
        fill(self.base)
        box = vesk.Box(self.base)
        shutil.rmtree(self.folder)
        for call in (box.samples_arrays, box.history_arrays, box.event_list, box.info, box.check,
                     box.suspects):
            self.assertRaises(vesk.UnreadableError, call)

    def test_texts_of_codes_are_those_of_the_library(self):
        self.assertEqual(vesk.error_text(0), "no error")
        self.assertEqual(vesk.error_text(-40), "a file cannot be opened")
        self.assertEqual(vesk.error_text(12345), vesk.error_text(1))


class Threads(BoxTest):
    def test_read_at_the_same_time(self):
        fill(self.base)
        wanted = vesk.Box(self.base).samples_arrays().values
        failures = []

        def read():
            for _ in range(20):
                if not equal(vesk.Box(self.base).samples_arrays().values, wanted):
                    failures.append("differs")

        threads = [threading.Thread(target=read) for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(failures, [])

    def test_that_read_do_not_stop_a_process_that_is_forked_off(self):
        fill(self.base)
        box = vesk.Box(self.base)
        end = threading.Event()

        def read():
            while not end.is_set():
                box.samples_arrays()

        readers = [threading.Thread(target=read) for _ in range(2)]
        for reader in readers:
            reader.start()
        try:
            for _ in range(20):
                child = os.fork()
                if child == 0:
                    signal.alarm(60)  # ends a child that waits for ever
                    os._exit(0 if len(vesk.Box(self.base).samples_arrays().times) == 16 else 1)
                self.assertEqual(os.waitpid(child, 0)[1], 0)
        finally:
            end.set()
            for reader in readers:
                reader.join()

    def test_go_on_while_another_one_reads(self):
        with vesk.Recorder(self.base, samples=40000, intervals=2) as recorder:
            recorder.sensors = [f"s{i}" for i in range(20)]
            recorder.write_many(
                BEGIN + numpy.arange(40000), numpy.zeros((40000, 20), dtype=numpy.float32)
            )
        box = vesk.Box(self.base)
        # A call that kept the interpreter would let no other thread run before its end.
        self.addCleanup(sys.setswitchinterval, sys.getswitchinterval())
        sys.setswitchinterval(1000)
        begun, done = threading.Event(), threading.Event()

        def read():
            begun.set()
            box.samples_arrays()
            done.set()

        for _ in range(50):  # on a busy machine this thread may come too late
            begun.clear()
            done.clear()
            reader = threading.Thread(target=read)
            reader.start()
            begun.wait()
            in_time = not done.is_set()
            reader.join()
            if in_time:
                return
        self.fail("no other thread ran while a box was read")


class WithoutPandas(BoxTest):
    def test_arrays_are_read_and_frames_are_refused_with_a_hint(self):
        fill(self.base)
        script = (
            "import sys; sys.modules['pandas'] = None\n"
            "import vesk; box = vesk.Box(sys.argv[1])\n"
            "print(box.samples_arrays().values.shape, len(box.event_list()))\n"
            "for call in (box.samples, box.history, box.events, box.intervals):\n"
            "    try: call()\n"
            "    except ImportError as reason: print(reason)\n"
        )
        lines = subprocess.run([sys.executable, "-c", script, self.base], check=True,
                               capture_output=True, text=True).stdout.splitlines()
        self.assertEqual(lines[0], "(16, 5) 2")
        self.assertEqual(len([line for line in lines[1:] if "samples_arrays()" in line]), 4)


if __name__ == "__main__":
    unittest.main()
