"""What is written about the package works: the snippets of docs/python.md, the notebook, and the
types, which mypy checks where it is installed."""

import contextlib
import importlib.util
import io
import json
import math
import os
import re
import subprocess
import sys
import unittest
import warnings
from pathlib import Path

import vesk
from boxes import BoxTest

ROOT = Path(__file__).resolve().parents[2]
HAS_PANDAS = importlib.util.find_spec("pandas") is not None
HAS_DASK = importlib.util.find_spec("distributed") is not None
BEGIN = 1700000000


def make_crashed_box(base):
    """A machine with a process that leaks memory for its last twenty minutes."""
    recorder = vesk.Recorder(base, samples=1200, intervals=20)
    recorder.sensors = ["cpu.total.busy_percent", "memory.available_MiB", "load_1",
                        "disk.sda.busy_percent"]
    who = ("host=web-3 machine_id=0123456789abcdef0123456789abcdef "
           "boot_id=0b41000d-b18d-4cf7-907d-c8679e6b6be5 kernel=6.1.0 version=1.0.0 interval=1")
    length = 7200
    for second in range(length):
        ripple = math.sin(second / 97) + math.sin(second / 13)
        leak = max(0, second - (length - 1200))
        recorder.write([20 + 5 * ripple, max(6000 + 40 * ripple - 4.9 * leak, 90 + ripple),
                        2 + ripple / 2 + leak / 150, 3 + ripple], time=BEGIN + second)
        if second % 1200 == 0:  # a recording tells in each buffer whose it is
            recorder.event(1, ("machine " if second else "start ") + who, time=BEGIN + second)
    recorder.event(3, "kernel level=err text=\"Out of memory: Killed process 4711 (leaky)\"", time=BEGIN + length - 9)
    return recorder


def cells_of(notebook):
    content = json.loads(Path(notebook).read_text(encoding="utf-8"))
    return ["".join(cell["source"]) for cell in content["cells"] if cell["cell_type"] == "code"]


@unittest.skipUnless(HAS_PANDAS, "pandas is not installed")
class Documentation(BoxTest):
    def setUp(self):
        super().setUp()
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.folder)

    def run_pieces(self, pieces):
        """Runs what is documented, in its order; returns the names that it leaves."""
        names = {"__name__": "__main__"}
        for piece in pieces:
            with self.subTest(piece[:60]):
                with contextlib.redirect_stdout(io.StringIO()):
                    exec(compile(piece, "snippet", "exec"), names)
        return names

    def test_snippets_of_the_page_work(self):
        page = (ROOT / "docs" / "python.md").read_text(encoding="utf-8")
        pieces = re.findall(r"```python\n(.*?)```", page, re.DOTALL)
        if not HAS_DASK:
            pieces = [piece for piece in pieces if "dask" not in piece]
        warnings.filterwarnings("ignore", category=DeprecationWarning, module="tornado")
        self.assertGreater(len(pieces), 8)
        names = self.run_pieces(pieces)
        self.assertEqual(len(names["frame"]), 1100)
        self.assertEqual(names["suspect"].sensor, "room.light")
        self.assertEqual(names["health"]["verdict"], "healthy")
        self.assertAlmostEqual(names["history"]["room.temp_C", "max"].max(), 21, 1)

    def test_page_tells_every_exception(self):
        page = (ROOT / "docs" / "python.md").read_text(encoding="utf-8")
        for name in vesk.__all__:
            if name.endswith(("Error", "Warning")):
                self.assertIn(f"vesk.{name}", page)

    def test_notebook_finds_the_reason_of_a_crash(self):
        recorder = make_crashed_box(self.base)
        # The machine dies: nothing is closed, and another one opens a copy of the files.
        copy = os.path.join(self.folder, "copy")
        os.mkdir(copy)
        for name in self.files():
            if name != "copy":
                Path(copy, name).write_bytes(self.read_bytes(name))
        recorder.close()
        os.environ["VESK_BOX"] = os.path.join(copy, "box")
        self.addCleanup(os.environ.pop, "VESK_BOX", None)
        names = self.run_pieces(cells_of(ROOT / "python" / "examples" / "crash.ipynb"))
        self.assertEqual(names["first"], "memory.available_MiB")
        self.assertTrue(names["cut_off"])
        self.assertLess(abs(names["began"].timestamp() - (BEGIN + 6000)), 300)
        self.assertIn("load_1", names["reason"])
        self.assertIn("Out of memory: Killed process 4711", names["reason"])

    def test_notebook_finds_no_reason_where_there_is_none(self):
        for rows in (3, 60):
            base = f"{self.base}-{rows}"
            with vesk.Recorder(base, samples=20, intervals=2) as recorder:
                for row in range(rows):
                    recorder.write({"a": row % 3, "b": None}, time=BEGIN + row)
            os.environ["VESK_BOX"] = base
            self.addCleanup(os.environ.pop, "VESK_BOX", None)
            names = self.run_pieces(cells_of(ROOT / "python" / "examples" / "crash.ipynb"))
            self.assertIn("Nothing was unusual", names["reason"])
            self.assertIn("nothing", names["reason"])

    def test_notebook_holds_no_outputs(self):
        content = json.loads((ROOT / "python" / "examples" / "crash.ipynb").read_text())
        for cell in content["cells"]:
            self.assertFalse(cell.get("outputs"))
            self.assertIsNone(cell.get("execution_count"))


class Types(BoxTest):
    def test_of_the_compiled_half_are_written_down(self):
        stub = (ROOT / "python" / "vesk" / "_vesk.pyi").read_text(encoding="utf-8")
        module = vesk._vesk
        stated = set(re.findall(r"^(?:def|class) (\w+)", stub, re.MULTILINE))
        self.assertEqual(stated, {name for name in dir(module) if not name.startswith("__")})
        methods = set(re.findall(r"^    def (\w+)", stub, re.MULTILINE)) - {"__init__"}
        self.assertEqual(
            methods, {name for name in dir(module.Recording) if not name.startswith("_")}
        )

    def test_of_everything_public_are_documented(self):
        for name in vesk.__all__:
            thing = getattr(vesk, name)
            if callable(thing):
                self.assertTrue(thing.__doc__, name)
            for member, value in vars(thing).items() if isinstance(thing, type) else ():
                if not member.startswith("_") and callable(value):
                    self.assertTrue(value.__doc__, f"{name}.{member}")

    @unittest.skipIf(importlib.util.find_spec("mypy") is None, "mypy is not installed")
    def test_are_right_and_find_mistakes(self):
        program = os.path.join(self.folder, "program.py")
        Path(program).write_text(
            "from pathlib import Path\n"
            "import vesk\n"
            "box = vesk.Box('box')\n"
            "values = box.samples_arrays(sensors=['a'], start='-1m').values\n"
            "reveal_type(values.dtype)\n"
            "text: str = box.event_list()[0].text\n"
            "vesk.Recorder('box').event(1, 2)\n"  # line 7: a number is no text
            "box.samples(sensor='a')\n"  # line 8: there is no such argument
            "import vesk.dask\n"
            "vesk.dask.from_boxes(['a', Path('b')], start='-1m', label=None).groupby('a')\n"
            "vesk.dask.from_boxes(['a'], statistic=3)\n"  # line 11: a number is no name
        )
        ran = subprocess.run(
            [sys.executable, "-m", "mypy", "--strict", "--ignore-missing-imports",
             "--cache-dir", os.environ.get("MYPY_CACHE_DIR", self.folder + "/cache"),
             str(ROOT / "python" / "vesk"), program],
            capture_output=True, text=True, env={**os.environ, "MYPYPATH": str(ROOT / "python")})
        lines = [line for line in ran.stdout.splitlines() if ": error: " in line]
        self.assertEqual([re.search(r"program.py:(\d+)", line)[1] for line in lines
                          if "program.py" in line], ["7", "8", "11"], ran.stdout)
        self.assertEqual(len(lines), 3, ran.stdout + ran.stderr)


if __name__ == "__main__":
    unittest.main()
