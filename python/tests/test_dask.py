"""Many boxes as one DataFrame of Dask: the same numbers as of the boxes one by one, also computed by
the workers of a cluster, with what is readable of damaged ones."""

import gzip
import importlib.util
import os
import shutil
import subprocess
import sys
import time
import unittest
import warnings

import numpy

import vesk
import vesk.dask
from boxes import BEGIN, BoxTest, command

HAS_DASK = all(importlib.util.find_spec(name) for name in ("pandas", "dask"))
HAS_CLUSTER = HAS_DASK and importlib.util.find_spec("distributed") is not None
BOXES = 200
ROWS = 150


def recorded_telemetry(folder):
    """Names and values of a machine that was recorded, or made up without the recording."""
    text = os.path.join(os.environ.get("VESK_TEST_DATA", ""), "smd-machine-2-8.kelt.gz")
    if not os.path.exists(text):
        chance = numpy.random.default_rng(1)
        return [f"s{i}" for i in range(8)], chance.normal(size=(2 * ROWS, 8)).cumsum(axis=0)
    # The first lines of it are enough.
    short = os.path.join(folder, "telemetry.kelt.gz")
    with gzip.open(text, "rt") as source, gzip.open(short, "wt", compresslevel=1) as cut:
        for _, line in zip(range(2 * ROWS), source):
            cut.write(line)
    command("import", os.path.join(folder, "recorded"), short)
    samples = vesk.Box(os.path.join(folder, "recorded")).samples_arrays()
    return samples.sensors, samples.values


def make_boxes(folder):
    """A box for each of many machines, with pieces of one recording that begin elsewhere each."""
    names, values = recorded_telemetry(folder)
    chance = numpy.random.default_rng(2)
    paths = []
    for number in range(BOXES):
        rows = numpy.sort(chance.choice(len(values), size=min(ROWS, len(values)), replace=False))
        paths.append(os.path.join(folder, f"machine-{number}"))
        with vesk.Recorder(paths[-1], samples=60, intervals=4) as recorder:
            recorder.sensors = names
            recorder.write_many(BEGIN + numpy.arange(len(rows)), values[rows] * (1 + number / BOXES))
    return names, paths


def cut(path):
    """Takes half of each file away."""
    folder, base = os.path.split(path)
    for name in os.listdir(folder):
        if name.startswith(base + "."):
            os.truncate(os.path.join(folder, name), os.path.getsize(os.path.join(folder, name)) // 2)


class Absence(BoxTest):
    def test_of_dask_is_told(self):
        script = ("import sys\n"
                  "sys.modules['dask'] = None\n"
                  "import vesk.dask\n"
                  "try: vesk.dask.from_boxes(['box'])\n"
                  "except ImportError as reason: print(reason)\n")
        ran = subprocess.run([sys.executable, "-c", script], check=True, capture_output=True, text=True)
        self.assertIn("install python3-dask", ran.stdout)


@unittest.skipUnless(HAS_DASK, "dask or pandas is not installed")
class Tables(BoxTest):
    def setUp(self):
        super().setUp()
        warnings.filterwarnings("ignore", category=DeprecationWarning)
        self.paths = [os.path.join(self.folder, f"box-{number}") for number in range(3)]
        for number, path in enumerate(self.paths):
            with vesk.Recorder(path, samples=8, intervals=2) as recorder:
                for row in range(40):
                    own = {f"only.{number % 2}": row, "!odd[0]": row}
                    recorder.write({"a": row + number, **own}, time=BEGIN + row)

    def computed(self, *paths, **options):
        """The table and the texts of the warnings."""
        with warnings.catch_warnings(record=True) as told:
            warnings.simplefilter("always")
            table = vesk.dask.from_boxes(paths or self.paths, **options).compute(scheduler="sync")
        texts = [str(one.message) for one in told if issubclass(one.category, vesk.DamageWarning)]
        return table, texts

    def test_hold_the_samples_of_every_box(self):
        table, _ = self.computed()
        self.assertEqual(list(table.columns), ["box", "a", "only.0", "!odd[0]", "only.1"])
        self.assertEqual(table.index.name, "time")
        self.assertEqual(str(table.index.dtype), "datetime64[ns, UTC]")
        for path in self.paths:
            own = vesk.Box(path).samples()
            mine = table[table["box"] == path].drop(columns="box")
            self.assertTrue(mine[own.columns].equals(own.rename_axis(columns=None)))
            self.assertTrue(mine.drop(columns=own.columns).isna().all(axis=None))

    def test_have_the_types_that_they_announce(self):
        lazy = vesk.dask.from_boxes(self.paths, label="machine")
        computed = lazy.compute(scheduler="sync")
        self.assertEqual(dict(lazy.dtypes), dict(computed.dtypes))
        self.assertEqual(lazy.index.dtype, computed.index.dtype)
        self.assertEqual(set(map(str, lazy.dtypes)), {"object", "float32"})
        self.assertEqual(lazy.npartitions, 3)

    def test_hold_the_chosen_span_and_sensors(self):
        table, _ = self.computed(sensors=["only.*"], start="-2s", label=None)
        self.assertEqual(list(table.columns), ["only.0", "only.1"])
        self.assertEqual(table["only.1"].dropna().tolist(), [37, 38, 39])
        self.assertEqual(len(table), 9)

    def test_hold_a_statistic_of_the_history(self):
        table, _ = self.computed(statistic="max", sensors="a")
        for path in self.paths:
            wanted = vesk.Box(path).history_arrays(sensors="a").values["max"][:, 0]
            self.assertEqual(table[table["box"] == path]["a"].tolist(), wanted.tolist())
        self.assertEqual(self.computed(statistic="count", sensors="a")[0]["a"].dtype, "float32")

    def test_take_given_names_without_asking_the_boxes(self):
        table, told = self.computed(columns=["only.1", "nowhere", "!odd[0]"])
        self.assertEqual(told, [])
        self.assertEqual(list(table.columns), ["box", "only.1", "nowhere", "!odd[0]"])
        self.assertEqual(int(table["nowhere"].count()), 0)
        self.assertEqual(int(table["only.1"].count()), len(table) // 3)
        self.assertEqual(int(table["!odd[0]"].count()), len(table))
        lazy = vesk.dask.from_boxes([os.path.join(self.folder, "nothing")], columns=["a"])
        self.assertEqual(list(lazy.columns), ["box", "a"])

    def test_of_fewer_columns_read_fewer(self):
        lazy = vesk.dask.from_boxes(self.paths)
        self.assertEqual(lazy["a"].max().compute(scheduler="sync"), 41)
        self.assertEqual(sorted(set(lazy["box"].compute(scheduler="sync"))), self.paths)
        reader = vesk.dask._Reader(["box", "a", "b"], "box", None, (0, False, 1 << 40, False), "warn")
        self.assertEqual(list(reader.project_columns(["a"])(self.paths[0]).columns), ["a"])

    def test_of_damaged_boxes_hold_what_is_readable(self):
        whole = self.computed(sensors="a")[0]
        cut(self.paths[1])
        nothing = os.path.join(self.folder, "nothing")
        table, told = self.computed(*self.paths, nothing, sensors="a")
        rows = table["box"].value_counts()
        self.assertEqual(set(rows.index), set(self.paths))
        self.assertLess(rows[self.paths[1]], whole["box"].value_counts()[self.paths[1]])
        for path, other in ((self.paths[0], "box-0"), (self.paths[2], "box-2")):
            self.assertTrue(table[table["box"] == path].equals(whole[whole["box"] == path]), other)
        self.assertEqual([text.split(":")[0] for text in told], [self.paths[1] + ".state", nothing])
        with self.assertRaisesRegex(vesk.UnreadableError, "nothing"):
            self.computed(*self.paths, nothing, sensors="a", errors="raise")

    def test_refuse_what_they_cannot_take(self):
        lazy = vesk.dask.from_boxes
        self.assertRaisesRegex(TypeError, "list of boxes", lazy, self.paths[0])
        self.assertRaisesRegex(ValueError, "no box", lazy, [])
        self.assertRaisesRegex(ValueError, "is empty", lazy, [""])
        self.assertRaisesRegex(ValueError, "none of the 3 boxes", lazy, self.paths, sensors="z*")
        self.assertRaisesRegex(ValueError, "there is count, min", lazy, self.paths, statistic="median")
        self.assertRaisesRegex(ValueError, "there is warn, raise", lazy, self.paths, errors="ignore")
        self.assertRaisesRegex(ValueError, "a is a sensor", lazy, self.paths, label="a")
        self.assertRaisesRegex(ValueError, "no patterns", lazy, self.paths, sensors="a", columns=["a"])
        self.assertRaisesRegex(TypeError, "list of names", lazy, self.paths, columns="a")
        self.assertRaisesRegex(ValueError, "no time", lazy, self.paths, start="yesterday")


@unittest.skipUnless(HAS_CLUSTER, "distributed is not installed")
class Cluster(BoxTest):
    def setUp(self):
        super().setUp()
        warnings.simplefilter("ignore")
        from distributed import Client, LocalCluster

        self.names, self.paths = make_boxes(self.folder)
        cluster = LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address="127.0.0.1:0")
        self.addCleanup(cluster.close)
        self.client = Client(cluster)
        self.addCleanup(self.client.close)

    def test_computes_the_statistics_of_many_boxes(self):
        frame = vesk.dask.from_boxes(self.paths)
        greatest = frame.groupby("box").max().compute()
        mean = frame[self.names[0]].astype("float64").mean().compute()
        directly = [vesk.Box(path).samples_arrays() for path in self.paths]
        self.assertEqual(len(greatest), BOXES)
        for path, samples in zip(self.paths, directly):
            self.assertEqual(samples.sensors, self.names)
            self.assertEqual(greatest.loc[path].tolist(), samples.values.max(axis=0).tolist())
        values = numpy.concatenate([samples.values[:, 0] for samples in directly])
        self.assertAlmostEqual(mean, values.mean(dtype=numpy.float64), 9)

    def test_tells_its_client_of_damage(self):
        cut(self.paths[7])
        with warnings.catch_warnings(record=True) as told:
            warnings.simplefilter("always")
            frame = vesk.dask.from_boxes(self.paths[:20], columns=self.names)
            boxes = frame["box"].unique().compute()
            deadline = time.monotonic() + 60
            while not [one for one in told if self.paths[7] in str(one.message)]:
                self.assertLess(time.monotonic(), deadline, "no warning reached the client")
                time.sleep(0.01)
        damage = [one for one in told if issubclass(one.category, vesk.DamageWarning)]
        self.assertEqual({str(one.message).split(":")[0] for one in damage},
                         {self.paths[7] + ".state"})
        self.assertGreaterEqual(len(boxes), 19)


@unittest.skipUnless(HAS_CLUSTER and shutil.which("dask-worker"), "distributed is not installed")
class Machines(BoxTest):
    def start(self, *words):
        process = subprocess.Popen([*words, "--no-dashboard"], stderr=subprocess.DEVNULL, cwd=self.folder)
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)

    def test_that_join_a_scheduler_read_boxes(self):
        warnings.simplefilter("ignore")
        from distributed import Client

        paths = [os.path.join(self.folder, f"box-{number}") for number in range(4)]
        for number, path in enumerate(paths):
            with vesk.Recorder(path) as recorder:
                recorder.write({"a": number}, time=BEGIN)
        place = os.path.join(self.folder, "scheduler.json")
        self.start("dask-scheduler", "--host", "127.0.0.1", "--port", "0", "--scheduler-file", place)
        self.start("dask-worker", "--scheduler-file", place, "--nworkers", "1")
        deadline = time.monotonic() + 120
        while not os.path.exists(place):
            self.assertLess(time.monotonic(), deadline, "the scheduler does not start")
            time.sleep(0.01)
        with Client(scheduler_file=place) as client:
            client.wait_for_workers(1, timeout=120)
            table = vesk.dask.from_boxes(paths).compute()
        self.assertEqual(table["a"].tolist(), [0, 1, 2, 3])


if __name__ == "__main__":
    unittest.main()
