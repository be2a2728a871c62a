"""Writing boxes: what is stored, what is refused, and who may write."""

import datetime
import gc
import os
import signal
import subprocess
import sys
import threading
import time
import unittest
import warnings

import numpy

import vesk

try:
    import pandas
except ImportError:
    pandas = None
from boxes import BEGIN, COMMAND, BoxTest, command, fill


class Writing(BoxTest):
    def stored(self):
        return vesk.Box(self.base).samples_arrays().values.tolist()

    def test_takes_mappings_sequences_and_arrays(self):
        with vesk.Recorder(self.base) as recorder:
            recorder.write({"b": 1, "a": 2.5}, time=BEGIN)
            recorder.write({"a": 4, "b": 3}, time=BEGIN + 1)
            recorder.write([5, 6], time=BEGIN + 2)
            recorder.write((7, True), time=BEGIN + 3)
            recorder.write(numpy.array([9, 10], dtype=numpy.int8), time=BEGIN + 4)
            recorder.write(numpy.arange(4.0)[::2], time=BEGIN + 5)
            self.assertEqual(recorder.written, 6)
        self.assertEqual(self.stored(), [[1, 2.5], [3, 4], [5, 6], [7, 1], [9, 10], [0, 2]])

    def test_stamps_with_the_time_of_now(self):
        before = int(time.time())
        with vesk.Recorder(self.base) as recorder:
            recorder.write({"a": 1})
        stored = int(vesk.Box(self.base).samples_arrays().times.astype(numpy.int64)[0])
        self.assertTrue(before <= stored <= int(time.time()))

    def test_makes_boxes_that_the_command_finds_healthy(self):
        fill(self.base, rows=100)
        self.assertIn("healthy", command("check", self.base).stdout)

    def test_goes_on_where_a_box_ended(self):
        fill(self.base, rows=3)
        with vesk.Recorder(self.base) as recorder:
            recorder.write({"zeta": 9}, time=BEGIN + 9)
        self.assertEqual(len(self.stored()), 4)

    def test_of_many_samples_ends_with_the_first_that_is_refused(self):
        with vesk.Recorder(self.base) as recorder:
            recorder.sensors = ["a", "b"]
            recorder.write_many([BEGIN, BEGIN + 1], [[1, 2], [3, None]])
            times = numpy.array([BEGIN + 2, 0, BEGIN + 3])
            with self.assertRaisesRegex(ValueError, "^time 0: "):
                recorder.write_many(times, numpy.ones((3, 2)))
            self.assertEqual(recorder.written, 3)
            moment = numpy.array([BEGIN + 3], dtype="datetime64[s]")
            recorder.write_many(moment, numpy.zeros((1, 2), dtype=numpy.float32))
            recorder.write_many([datetime.datetime.fromtimestamp(BEGIN + 4, datetime.timezone.utc)],
                                [[5, 6]])
        self.assertEqual(len(self.stored()), 5)

    @unittest.skipIf(pandas is None, "pandas is not installed")
    def test_of_a_frame_gives_the_frame_back(self):
        fill(self.base)
        frame = vesk.Box(self.base).samples()
        other = self.folder + "/other"
        with vesk.Recorder(other) as recorder:
            recorder.write_many(frame.index, frame)
            recorder.write(pandas.Series({"zeta": 1, "alpha": None}), time=BEGIN + 99)
        found = vesk.Box(other).samples()
        pandas.testing.assert_frame_equal(found.iloc[:-1], frame)
        self.assertEqual(found.iloc[-1].dropna().to_dict(), {"zeta": 1})

    def test_takes_masked_values_as_missing(self):
        with vesk.Recorder(self.base) as recorder:
            recorder.sensors = ["a", "b"]
            recorder.write(numpy.ma.array([1, 2], mask=[True, False]), time=BEGIN)
        self.assertEqual(str(self.stored()), "[[nan, 2.0]]")

    def test_of_nothing_writes_nothing(self):
        with vesk.Recorder(self.base) as recorder:
            recorder.sensors = ["a"]
            recorder.write_many([], numpy.zeros((0, 1)))
            self.assertEqual(recorder.written, 0)

    def test_by_several_threads_keeps_all(self):
        with vesk.Recorder(self.base, samples=1000) as recorder:
            recorder.sensors = ["a"]

            def write():
                for _ in range(50):
                    recorder.write([1], time=BEGIN)
                    recorder.event(1, "e", time=BEGIN)

            threads = [threading.Thread(target=write) for _ in range(4)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
        box = vesk.Box(self.base)
        self.assertEqual((len(self.stored()), len(box.event_list())), (200, 200))
        self.assertEqual(box.check()["verdict"], "healthy")

    def test_syncs_as_it_is_asked_to(self):
        for policy in ("never", "vector", "end", "1s"):
            with vesk.Recorder(self.base, sync=policy) as recorder:
                recorder.write({"a": 1})
                recorder.sync()
        self.assertEqual(len(self.stored()), 4)


class Refusals(BoxTest):
    """After each of them the recorder can be used on, and the box is as it was."""

    def setUp(self):
        super().setUp()
        self.recorder = vesk.Recorder(self.base, samples=4, intervals=2)
        self.addCleanup(self.recorder.close)

    def refuse(self, error, call, *words, **named):
        with self.subTest(repr((words, named))[:60]):
            with self.assertRaises(error) as caught:
                call(*words, **named)
            self.assertNotIn("\x1b", str(caught.exception))
            self.recorder.write({"a": 1, "b": 2}, time=BEGIN)

    def tearDown(self):
        written = self.recorder.written
        self.recorder.close()
        box = vesk.Box(self.base)
        counts = box.history_arrays().values["count"]
        kept = int(counts[:, 0].sum() if counts.size else 0) + len(box.samples_arrays().times)
        self.assertEqual(kept, written)
        self.assertEqual(box.check()["verdict"], "healthy")

    def test_of_values(self):
        write = self.recorder.write
        self.refuse(ValueError, write, [1, 2])  # no sensors are named yet
        for values, error in (([1], ValueError), ([1, 2, 3], ValueError), ([], ValueError),
                              ([[1, 2]], ValueError), (["1", "2"], TypeError), (1, ValueError),
                              ([1, 2j], TypeError), ([1, "x"], TypeError), (None, ValueError),
                              ([1, object()], TypeError), ({}, ValueError), ("ab", TypeError),
                              ([1, [2]], (ValueError, TypeError)), (b"ab", TypeError),
                              (numpy.zeros((2, 1)), ValueError),
                              (numpy.array(["a", "b"]), TypeError),
                              (numpy.zeros(2, dtype="M8[s]"), TypeError)):
            self.refuse(error, write, values)
        self.refuse(OverflowError, write, [10**400, 1])

    def test_of_sensors(self):
        write = self.recorder.write
        for name, error in (("", ValueError), ("a" * 10001, ValueError), ("a\0b", ValueError),
                            (1, TypeError), (b"a", TypeError), (None, TypeError),
                            ("\ud800", ValueError), ("\x1b[2J" + "a" * 10001, ValueError)):
            self.refuse(error, write, {name: 1})
            self.refuse(error, write, {"b": 0, name: 1})
        self.refuse(ValueError, write, {f"s{i}": i for i in range(10001)})

        def name(sensors):
            self.recorder.sensors = sensors

        for sensors, error in ((["a", "a"], ValueError), ([], ValueError), ("ab", TypeError),
                               (None, TypeError), (3, TypeError), ([["a"]], TypeError)):
            self.refuse(error, name, sensors)

    def test_of_more_sensors_than_a_box_holds(self):
        with vesk.Recorder(self.folder + "/other") as recorder:
            for part in range(4):
                recorder.write({f"{part} {i}": 1 for i in range(2500)}, time=BEGIN + part)
            with self.assertRaisesRegex(ValueError, "no room for 'one more'"):
                recorder.write({"one more": 1}, time=BEGIN)
            recorder.write({"0 1": 1}, time=BEGIN)
        self.assertEqual(vesk.Box(self.folder + "/other").samples_arrays().values.shape, (5, 10000))

    def test_of_times(self):
        write = self.recorder.write
        for moment, error in ((0, ValueError), (float("nan"), ValueError), (2**31, ValueError),
                              (float("inf"), ValueError), (-(2**31) - 1, ValueError),
                              (1e30, ValueError), (10**30, ValueError), ("x", ValueError),
                              (b"1", TypeError), ([1], TypeError), (True, TypeError),
                              (numpy.datetime64("NaT"), ValueError), (1j, TypeError),
                              (datetime.datetime(2040, 1, 1), ValueError),
                              (datetime.datetime(1970, 1, 1), ValueError), ("-1s", ValueError)):
            self.refuse(error, write, {"a": 1, "b": 2}, time=moment)
            self.refuse(error, self.recorder.event, 1, "text", time=moment)
        many = self.recorder.write_many
        for times, error in (([0], ValueError), ([float("nan")], ValueError), (["x"], ValueError),
                             ([BEGIN, BEGIN], ValueError), ([None], TypeError), (5, ValueError),
                             (numpy.array(["NaT"], dtype="M8[s]"), ValueError),
                             (numpy.array([2**63], dtype=numpy.uint64), ValueError),
                             ([[BEGIN]], ValueError), ([10**30], ValueError)):
            self.refuse(error, many, times, [[1, 2]])
        for values, error in (([1, 2], ValueError), ([[1]], ValueError), ([["x", "y"]], TypeError),
                              ([[[1, 2]]], ValueError), (None, ValueError)):
            self.refuse(error, many, [BEGIN], values)

    def test_of_events(self):
        event = self.recorder.event
        for kind, text, error in ((0, "t", ValueError), (6, "t", ValueError), (-1, "t", ValueError),
                                  (2**40, "t", ValueError), (1.0, "t", TypeError),
                                  ("1", "t", TypeError), (True, "t", TypeError),
                                  (None, "t", TypeError), (1, "", ValueError), (1, None, TypeError),
                                  (1, "a\0b", ValueError), (1, "x" * 10001, ValueError),
                                  (1, "\ud800", ValueError), (1, b"t", TypeError)):
            self.refuse(error, event, kind, text)

    def test_of_what_is_closed(self):
        self.recorder.write({"a": 1})
        self.recorder.close()
        self.recorder.close()
        self.assertTrue(self.recorder.closed)
        for call in (lambda: self.recorder.write({"a": 1}), lambda: self.recorder.write([1]),
                     lambda: self.recorder.write_many([BEGIN], [[1]]),
                     lambda: self.recorder.event(1, "t"), self.recorder.sync,
                     lambda: setattr(self.recorder, "sensors", ["b"])):
            with self.assertRaisesRegex(ValueError, "^the recorder is closed$"):
                call()


class Starting(BoxTest):
    def test_refuses_sizes_that_no_box_has(self):
        for sizes, error in (({"samples": 3}, ValueError), ({"samples": 0}, ValueError),
                             ({"samples": -2}, ValueError), ({"samples": 2**40}, ValueError),
                             ({"samples": 2.0}, TypeError), ({"samples": True}, TypeError),
                             ({"samples": "8"}, TypeError), ({"intervals": 3}, ValueError),
                             ({"samples": 8, "intervals": 6}, ValueError),
                             ({"samples": 200000, "intervals": 100000}, ValueError),
                             ({"sync": "often"}, ValueError), ({"sync": None}, TypeError)):
            with self.subTest(sizes), self.assertRaises(error) as caught:
                vesk.Recorder(self.base, **sizes)
            self.assertNotIn("--", str(caught.exception))
            self.assertEqual(self.files(), [])

    def test_refuses_other_sizes_than_the_box_has(self):
        fill(self.base, samples=8)
        before = {name: self.read_bytes(name) for name in self.files()}
        with self.assertRaisesRegex(ValueError, "samples 8"):
            vesk.Recorder(self.base, samples=10)
        self.assertEqual({name: self.read_bytes(name) for name in self.files()}, before)

    def test_refuses_names_that_no_box_can_have(self):
        for name, error in (("", ValueError), ("a\0b", ValueError), (None, TypeError),
                            (self.folder + "/none/box", vesk.Error), ("x" * 5000, vesk.Error),
                            (self.folder + "/" + "x" * 250, vesk.Error)):
            with self.subTest(str(name)[:20]), self.assertRaises(error):
                vesk.Recorder(name)

    def test_makes_no_box_where_it_shall_not(self):
        with self.assertRaises(vesk.UnreadableError):
            vesk.Recorder(self.base, create=False)
        self.assertEqual(self.files(), [])

    def test_neither_follows_nor_waits_for_what_is_no_file(self):
        os.mkfifo(self.base + ".state")
        self.assertRaises(vesk.Error, vesk.Recorder, self.base)
        os.unlink(self.base + ".state")
        other = os.path.join(self.folder, "other")
        self.write_bytes("other", b"precious")
        os.symlink(other, self.base + ".1.cbuf.z")
        self.assertRaises(vesk.Error, vesk.Recorder, self.base)
        self.assertEqual(self.read_bytes("other"), b"precious")

    def test_recovers_what_a_kill_left_with_a_warning(self):
        fill(self.base, rows=12)
        name = "box.2.cbuf.z"
        self.write_bytes(name, self.read_bytes(name)[:-5])
        with self.assertWarnsRegex(vesk.RecorderWarning, "recovered"):
            recorder = vesk.Recorder(self.base)
        recorder.close()
        self.assertEqual(vesk.Box(self.base).check()["verdict"], "healthy")
        self.assertEqual(len(vesk.Box(self.base).samples_arrays().times), 11)

    def test_tells_nothing_on_standard_error_but_by_warnings(self):
        fill(self.base, rows=12)
        self.write_bytes("box.2.cbuf.z", self.read_bytes("box.2.cbuf.z")[:-5])
        script = (
            "import sys, warnings; warnings.simplefilter('ignore'); import vesk\n"
            "vesk.Box(sys.argv[1]).samples_arrays()\n"
            "vesk.Recorder(sys.argv[1]).close()\n"
        )
        ran = subprocess.run([sys.executable, "-c", script, self.base], capture_output=True)
        self.assertEqual((ran.returncode, ran.stderr), (0, b""))

    def test_keeps_every_sample_of_a_process_that_is_killed(self):
        script = (
            "import sys, vesk\n"
            "with vesk.Recorder(sys.argv[1], samples=8, intervals=2) as r:\n"
            "    for i in range(1, 10**6):\n"
            "        r.write({'a': i}, time=i); print(i, flush=True)\n"
        )
        writer = subprocess.Popen([sys.executable, "-c", script, self.base], stdout=subprocess.PIPE)
        for _ in range(53):
            line = writer.stdout.readline()
        writer.send_signal(signal.SIGKILL)
        last = int((line + writer.stdout.read()).split()[-1])
        writer.stdout.close()
        writer.wait()
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            vesk.Recorder(self.base).close()
        self.assertGreaterEqual(vesk.Box(self.base).samples_arrays().values[-1, 0], last)


class Locking(BoxTest):
    def test_refuses_a_second_recorder_of_this_process(self):
        with vesk.Recorder(self.base) as recorder:
            with self.assertRaisesRegex(vesk.BoxInUseError, str(os.getpid())):
                vesk.Recorder(self.base)
            recorder.write({"a": 1})
        vesk.Recorder(self.base).close()

    def test_refuses_the_command_and_is_refused_by_it(self):
        with vesk.Recorder(self.base) as recorder:
            recorder.write({"a": 1}, time=BEGIN)
            ran = command("import", self.base, input="20240101:00:00:00,::a\n20240101:00:00:01,1\n",
                          check=False)
            self.assertEqual(ran.returncode, 1)
            self.assertIn(f"process {os.getpid()} is writing", ran.stderr)
        feeder = subprocess.Popen([COMMAND, "import", self.base], stdin=subprocess.PIPE, text=True)
        feeder.stdin.write("20240101:00:00:00,::a\n20240101:00:00:01,1\n")
        feeder.stdin.flush()
        try:
            for _ in range(3000):
                try:
                    vesk.Recorder(self.base).close()
                except vesk.BoxInUseError as reason:
                    self.assertIn(str(feeder.pid), str(reason))
                    break
                time.sleep(0.01)
            else:
                self.fail("the recorder was not refused")
        finally:
            feeder.stdin.close()
            feeder.wait()

    def test_is_left_to_the_parent_by_a_child(self):
        recorder = vesk.Recorder(self.base)
        recorder.write({"a": 1}, time=BEGIN)
        child = os.fork()
        if child == 0:
            status = 1
            try:
                recorder.write({"a": 2}, time=BEGIN)
            except ValueError as reason:
                status = 0 if "belongs to process" in str(reason) else 2
            recorder.close()
            del recorder
            gc.collect()
            os._exit(status)
        self.assertEqual(os.waitpid(child, 0)[1], 0)
        self.assertRaises(vesk.BoxInUseError, vesk.Recorder, self.base)
        recorder.write({"a": 3}, time=BEGIN + 1)
        recorder.close()
        self.assertEqual(vesk.Box(self.base).samples_arrays().values.tolist(), [[1], [3]])

    def test_ends_with_a_recorder_that_is_forgotten(self):
        recorder = vesk.Recorder(self.base)
        with self.assertWarns(ResourceWarning):
            del recorder
            gc.collect()
        vesk.Recorder(self.base).close()

    def test_ends_with_an_exception_in_the_block(self):
        with self.assertRaises(KeyError), vesk.Recorder(self.base):
            raise KeyError
        vesk.Recorder(self.base).close()


class Extremes(BoxTest):
    """What a box takes, past several rotations, though it is unusual."""

    def written(self, rows, samples=4, intervals=2):
        with vesk.Recorder(self.base, samples=samples, intervals=intervals) as recorder:
            for moment, values in rows:
                recorder.write(values, time=moment)
        box = vesk.Box(self.base)
        self.assertEqual(box.check()["verdict"], "healthy")
        box.suspects()
        return box

    def test_of_size_are_taken(self):
        box = self.written([(1, {"a": 1})], samples=2**32 - 2, intervals=2)
        self.assertEqual(box.info()["state"]["samples"], 2**32 - 2)

    def test_of_names_are_taken(self):
        names = {chr(97 + number % 26) * 9990 + str(number): number for number in range(100)}
        box = self.written([(row, names) for row in range(1, 20)])
        self.assertEqual(box.samples_arrays().sensors, list(names))
        self.assertEqual(box.history_arrays().sensors, list(names))

    def test_of_time_are_taken(self):
        times = [2**31 - 1 - row for row in range(20)] + [-(2**31) + row for row in range(20)]
        box = self.written([(moment, {"a": 1}) for moment in times])
        kept = box.samples_arrays().times.astype(numpy.int64).tolist()
        self.assertEqual(kept, times[-len(kept):])

    def test_of_value_are_taken(self):
        values = {"a": float("inf"), "b": -float("inf"), "c": 3e38, "d": 1e-45, "e": None}
        box = self.written([(row, values) for row in range(1, 20)])
        found = box.history_arrays().values
        summed = 19 - len(box.samples_arrays().times)
        self.assertEqual(found["count"].sum(axis=0).tolist(), [summed] * 4 + [0])
        wanted = numpy.array([numpy.inf, -numpy.inf, 3e38, 1e-45], dtype=numpy.float32)
        for statistic in ("min", "mean", "max", "first", "last"):
            self.assertEqual(found[statistic][0, :4].tolist(), wanted.tolist(), statistic)


class Disks(BoxTest):
    def test_that_are_full_raise_and_keep_what_was_written(self):
        script = (
            "import sys, resource, vesk\n"
            "r = vesk.Recorder(sys.argv[1])\n"
            "r.write({'a': 0}, time=1)\n"
            "resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096))\n"
            "try:\n"
            "    for i in range(1000): r.write({'a': i}, time=i + 2)\n"
            "except vesk.StorageError as reason: print(r.written, reason)\n"
            "r.close()\n"
        )
        ran = subprocess.run([sys.executable, "-W", "ignore", "-c", script, self.base], check=True,
                             capture_output=True, text=True)
        written = int(ran.stdout.split()[0])
        self.assertIn(vesk.error_text(-41), ran.stdout)
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            self.assertGreaterEqual(len(vesk.Box(self.base).samples_arrays().times), written)

    def test_whose_folder_is_gone_raise(self):
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            with vesk.Recorder(self.base, samples=4, intervals=2) as recorder:
                recorder.write({"a": 1}, time=BEGIN)
                subprocess.run(["rm", "-r", self.folder], check=True)
                for row in range(9):
                    self.assertRaises(vesk.Error, recorder.write, {"a": 1}, time=BEGIN + row)
                    self.assertRaises(vesk.Error, recorder.event, 1, "e", time=BEGIN + row)


if __name__ == "__main__":
    unittest.main()
