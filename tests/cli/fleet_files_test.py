#!/usr/bin/env python3
"""Asks files without an engine, as the page about many machines does it, and compares the answers with
those that the page prints, and with what the boxes hold.

  fleet_files_test.py --vesk build/release/cli/vesk --page docs/fleet.md dask|duckdb [--write]

With --write the page gets the answers. Without Dask or DuckDB, or without the telemetry in the folder
that VESK_TEST_DATA names, the test is skipped and says so.
"""

import argparse
import csv
import io
import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from fleet_boxes import bring_telemetry, make_boxes, run_shell  # noqa: E402
from verdict import Skip, require, verdict  # noqa: E402

MACHINES = 40
SENSOR = "::load_1"
RECIPE = r"^```{language}\n((?:(?!^```).)*?{word}(?:(?!^```).)*)^```\n\n```text\n(.*?)^```"


class Recipe:
    """A piece of the page that has @p word in it, with the answer that is printed behind it."""

    def __init__(self, page, language, word):
        self.found = re.search(RECIPE.format(language=language, word=word), page,
                               re.MULTILINE | re.DOTALL)
        require(self.found, f"no recipe with {word} on the page")
        self.text = self.found[1]
        self.answer = self.found[2]

    def with_answer(self, page, answer):
        begin, end = self.found.span(2)
        return page[:begin] + answer + page[end:]


def rows_of(desk_folder, vesk, machine, *words):
    done = subprocess.run([vesk, *words[:1], f"boxes/{machine}/box", *words[1:]], cwd=desk_folder,
                          stdout=subprocess.PIPE, text=True, check=True)
    return list(csv.DictReader(io.StringIO(done.stdout)))


def greatest(folder, vesk, value_of):
    """The five machines with the greatest values, as the command reads their boxes."""
    values = {}
    for number in range(MACHINES):
        machine = f"m{number:02}"
        values[machine] = value_of(machine)
    return sorted(values.items(), key=lambda pair: -pair[1])[:5]


def run_dask(recipe, folder, vesk):
    package = Path(vesk).parent.parent / "python"
    if not list(package.glob("vesk/_vesk*.so")):
        raise Skip("the package for Python is not built")
    python = next((each for each in ("/usr/bin/python3", sys.executable) if subprocess.run(
        [each, "-c", "import distributed, dask.dataframe"], stderr=subprocess.DEVNULL,
        check=False).returncode == 0), None)
    if python is None:
        raise Skip("Dask is not installed")
    (folder / "recipe.py").write_text(recipe.text)
    answer = run_shell(f"PYTHONPATH='{package}' '{python}' recipe.py", folder, vesk)

    def of_last_hour(machine):
        rows = rows_of(folder, vesk, machine, "fetch", "--format", "csv", "--last", "1h")
        return max(float(row[SENSOR]) for row in rows)

    found = [line.split() for line in answer.splitlines()[1:]]
    for (machine, value), (path, text) in zip(greatest(folder, vesk, of_last_hour), found):
        require(machine in path and abs(float(text) - value) < 1e-4,
                f"the box of {machine} has {value}, Dask says {path} {text}")
    require(len(found) == 5, answer)
    return answer


def run_duckdb(recipe, folder, vesk):
    answer = run_shell(recipe.text, folder, vesk)

    def of_history(machine):
        rows = rows_of(folder, vesk, machine, "export", "--format", "csv", "--table", "intervals")
        return max(float(row["max"]) for row in rows if row["sensor"] == SENSOR)

    found = list(csv.reader(io.StringIO(answer)))[1:]
    for (machine, value), row in zip(greatest(folder, vesk, of_history), found):
        require(machine == row[0] and abs(float(row[1]) - value) < 1e-4,
                f"the box of {machine} has {value}, DuckDB says {row}")
    require(len(found) == 5, answer)
    require((folder / "intervals.parquet").read_bytes().startswith(b"PAR1"), "no Parquet")
    return answer


CASES = {"dask": (run_dask, "python", "LocalCluster"), "duckdb": (run_duckdb, "sh", "duckdb")}


def check(arguments, folder):
    page = arguments.page.read_text()
    run, language, word = CASES[arguments.case]
    recipe = Recipe(page, language, word)
    # Before the boxes are made, which takes its time.
    if arguments.case == "duckdb" and shutil.which("duckdb") is None:
        raise Skip("duckdb is not installed")
    bring_telemetry(folder)
    make_boxes(page, folder, arguments.vesk, [('    vesk push "boxes', '    : "boxes')])
    answer = run(recipe, folder, arguments.vesk)
    if arguments.write:
        arguments.page.write_text(recipe.with_answer(page, answer))
    else:
        require(answer == recipe.answer,
                f"the page has\n{recipe.answer}\nthe answer is\n{answer}")
    print(f"{arguments.case}: the answer is that of the page")


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("--page", required=True, type=Path)
    parser.add_argument("case", choices=CASES)
    parser.add_argument("--write", action="store_true")
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="vesk-fleet-") as folder:
        return verdict(lambda: check(arguments, Path(folder)), arguments.case)


if __name__ == "__main__":
    sys.exit(main())
