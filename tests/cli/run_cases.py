#!/usr/bin/env python3
"""Runs the command-line cases.

A case is a folder below cases/VERB/ with a shell script `cmd` and the files `exit_code`, `stdout` and
`stderr` with what it is to end with and print; a file that is not there means 0 or nothing. The
script runs in an empty folder of its own, with the command first in PATH and

  CASE      the folder of the case
  TOOLS     the folder of this runner
  TZ        UTC0
  LC_ALL    C

A case that cannot run here prints the reason and ends with 77: it is skipped, and says so.

  run_cases.py --vesk build/release/cli/vesk            all cases
  run_cases.py --vesk build/release/cli/vesk import_*   some
  run_cases.py --vesk build/release/cli/vesk --rewrite  what they print now becomes what is expected
"""

import argparse
import difflib
import fnmatch
import os
import shlex
import subprocess
import sys
import tempfile
from pathlib import Path

TOOLS = Path(__file__).resolve().parent
CASES = TOOLS / "cases"
SKIPPED = 77
TIME_LIMIT = 240


def expected(case):
    def text(name):
        path = case / name
        return path.read_bytes() if path.exists() else b""

    code = text("exit_code").decode().strip()
    return {"exit_code": code or "0", "stdout": text("stdout"), "stderr": text("stderr")}


def run(case, vesk):
    with tempfile.TemporaryDirectory(prefix="vesk-case-") as folder:
        environment = {
            name: value
            for name, value in os.environ.items()
            if name in ("HOME", "VESK_TEST_DATA", "LD_LIBRARY_PATH", "ASAN_OPTIONS",
                        "UBSAN_OPTIONS", "LSAN_OPTIONS")
        }
        environment.update({
            "PATH": os.pathsep.join([str(vesk.parent), os.environ.get("PATH", "/usr/bin:/bin")]),
            "CASE": str(case),
            "TOOLS": str(TOOLS),
            "PYTHON": sys.executable,
            "TZ": "UTC0",
            "LC_ALL": "C",
        })
        result = subprocess.run(["sh", str(case / "cmd")], cwd=folder, env=environment,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, timeout=TIME_LIMIT, check=False)
    return {"exit_code": str(result.returncode), "stdout": result.stdout, "stderr": result.stderr}


def rewrite(case, found):
    for name, empty in (("exit_code", "0"), ("stdout", b""), ("stderr", b"")):
        path = case / name
        if found[name] == empty:
            path.unlink(missing_ok=True)
        elif name == "exit_code":
            path.write_text(found[name] + "\n")
        else:
            path.write_bytes(found[name])


def differences(wanted, found):
    lines = []
    if wanted["exit_code"] != found["exit_code"]:
        lines.append(f"exit code {found['exit_code']} instead of {wanted['exit_code']}")
    for name in ("stdout", "stderr"):
        if wanted[name] != found[name]:
            lines += difflib.unified_diff(
                wanted[name].decode(errors="replace").splitlines(),
                found[name].decode(errors="replace").splitlines(),
                f"{name} expected", f"{name} found", lineterm="")
    return lines


def check(case, arguments):
    found = run(case, arguments.vesk)
    if found["exit_code"] == str(SKIPPED):
        print(f"SKIP {case.name}: {found['stdout'].decode(errors='replace').strip()}")
        return SKIPPED
    if arguments.rewrite:
        rewrite(case, found)
        print(f"WROTE {case.name}")
        return 0
    lines = differences(expected(case), found)
    if not lines:
        print(f"ok   {case.name}")
        return 0
    again = shlex.join([sys.argv[0], "--vesk", str(arguments.vesk), case.name])
    print(f"FAIL {case.name}", *lines, f"repeat: {again}", sep="\n     ")
    return 1


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: Path(text).resolve(),
                        help="the command to test")
    parser.add_argument("--rewrite", action="store_true",
                        help="write the expected files anew")
    parser.add_argument("cases", nargs="*", default=["*"], help="names or patterns")
    arguments = parser.parse_args()
    chosen = [path.parent for path in sorted(CASES.glob("*/*/cmd"))
              if any(fnmatch.fnmatch(path.parent.name, pattern) for pattern in arguments.cases)]
    if not chosen:
        parser.error("no such case")
    results = [check(case, arguments) for case in chosen]
    if 1 in results:
        return 1
    return SKIPPED if all(result == SKIPPED for result in results) else 0


if __name__ == "__main__":
    sys.exit(main())
