#!/usr/bin/env python3
"""A recording that pushes: the engine gets its samples, and whatever happens to the engine, the
recording goes on and says so once.

  push_record_test.py --vesk build/release/cli/vesk

Without clickhouse-server the test is skipped and says so.
"""

import argparse
import os
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from engines import ClickHouse, Failure, Skip, require  # noqa: E402
from pushed import Desk  # noqa: E402

SKIPPED = 77
LIMIT = 120


def wait_for(what, holds):
    until = time.monotonic() + LIMIT
    while not holds():
        require(time.monotonic() < until, f"{what}: in vain")
        time.sleep(0.2)


def samples_in_box(desk):
    text = desk.run("fetch", "box", "--format", "csv")
    return len(text.splitlines()) - 1


def check(desk):
    messages = desk.folder / "messages"
    environment = {**os.environ, "XDG_STATE_HOME": str(desk.folder / "home")}
    with ClickHouse(desk.folder / "server") as server:
        desk.run("push", "--create", "--to", server.url())
        with open(messages, "wb") as file:
            recording = subprocess.Popen(
                [desk.program, "record", "box", "--interval", "1s", "--push", server.url(),
                 "--push-every", "1s"],
                cwd=desk.folder, env=environment, stderr=file, stdin=subprocess.DEVNULL)
        try:
            times = "select uniqExact(time) from fleet.samples"
            wait_for("the engine gets samples", lambda: server.number(times) >= 3)
            server.kill()
            wait_for("the failure is told", lambda: b"a push has failed" in messages.read_bytes())
            before = samples_in_box(desk)
            wait_for("the recording goes on", lambda: samples_in_box(desk) >= before + 3)
            server.start()
            wait_for("the engine gets the rest", lambda: server.number(times) > before)
            wait_for("that is told", lambda: b"pushes succeed again" in messages.read_bytes())
        finally:
            recording.send_signal(signal.SIGINT)
            code = recording.wait(LIMIT)
    text = messages.read_text()
    require(code == 0, f"the recording ended with {code}: {text}")
    require(text.count("a push has failed") == 1, text)


def check_missing_program(desk):
    """Of an installation without vesk-push."""
    lone = desk.folder / "lone"
    lone.mkdir()
    library = Path(desk.program).parent.parent / "src"
    (lone / "vesk").write_bytes(Path(desk.program).read_bytes())
    (lone / "vesk").chmod(0o755)
    environment = {**os.environ, "LD_LIBRARY_PATH": str(library)}
    done = subprocess.run([str(lone / "vesk"), "record", "other", "--for", "1s", "--push",
                           "clickhouse://127.0.0.1/x"], cwd=desk.folder, env=environment,
                          stderr=subprocess.PIPE, timeout=LIMIT, check=False)
    require(done.returncode == 0 and b"install the package vesk-push" in done.stderr,
            f"{done.returncode}: {done.stderr.decode()}")


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    arguments = parser.parse_args()
    os.environ["NO_PROXY"] = os.environ["no_proxy"] = "*"
    with tempfile.TemporaryDirectory(prefix="vesk-push-") as folder:
        desk = Desk(arguments.vesk, folder)
        try:
            check_missing_program(desk)
            check(desk)
        except Skip as reason:
            print(f"skipped: {reason}")
            return SKIPPED
        except Failure as reason:
            print(reason)
            return 1
    print("the recording went on")
    return 0


if __name__ == "__main__":
    sys.exit(main())
