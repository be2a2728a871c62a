#!/usr/bin/env python3
"""A recording that pushes: the engine gets its samples under the labels that were told, and whatever
happens to the engine, the recording goes on and says so once.

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
from engines import ClickHouse  # noqa: E402
from pushed import Desk  # noqa: E402
from verdict import require, verdict  # noqa: E402

LIMIT = 120
# Of the user "pusher" of these servers.
PASSWORD = "secret of a test"


def wait_for(what, holds):
    until = time.monotonic() + LIMIT
    while not holds():
        require(time.monotonic() < until, f"{what}: in vain")
        time.sleep(0.2)


def secret_file(desk):
    path = desk.folder / "secret"
    path.write_text(f"user pusher\npassword {PASSWORD}\n")
    path.chmod(0o600)
    return path


def samples_in_box(desk):
    text = desk.run("fetch", "box", "--format", "csv")
    return len(text.splitlines()) - 1


def check(desk):
    messages = desk.folder / "messages"
    environment = {**os.environ, "XDG_STATE_HOME": str(desk.folder / "home")}
    secret = secret_file(desk)
    with ClickHouse(desk.folder / "server") as server:
        desk.run("push", "--create", "--to", server.url())
        # Samples of the past are in the box; with the usual --push-raw they would stay there.
        desk.run("import", "box", "--utc", data=b"20240101:00:00:00,::old\n20240101:00:00:00,7\n")
        with open(messages, "wb") as file:
            recording = subprocess.Popen(
                [desk.program, "record", "box", "--interval", "1s", "--push", server.url(),
                 "--push-every", "1s", "--push-raw", "all", "--push-credentials", str(secret),
                 "--push-label", "box=a name", "--push-label", "site=it's north"],
                cwd=desk.folder, env=environment, stderr=file, stdin=subprocess.DEVNULL)
        try:
            times = "select uniqExact(time) from fleet.samples"
            wait_for("the engine gets samples", lambda: server.number(times) >= 4)
            require(server.ask("select distinct box, site from fleet.boxes") ==
                    [["a name", "it\\'s north"]], server.ask("select * from fleet.boxes"))
            require(server.number("select count() from fleet.samples where sensor = '::old'") == 1,
                    "a sample of the past")
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
    require(text.count("a push has failed") == 1 and PASSWORD not in text, text)


def lone_command(desk, name):
    """A copy of the command in a folder without vesk-push, and what it needs to run."""
    folder = desk.folder / name
    folder.mkdir()
    (folder / "vesk").write_bytes(Path(desk.program).read_bytes())
    (folder / "vesk").chmod(0o755)
    library = Path(desk.program).parent.parent / "src"
    return folder, {**os.environ, "LD_LIBRARY_PATH": str(library)}


def command_with_witness(desk, name):
    """The same with a program in the place of vesk-push that leaves its words."""
    folder, environment = lone_command(desk, name)
    (folder / "vesk-push").write_text("#!/bin/sh\nfor word; do printf '%s\\n' \"$word\"; done >words\n"
                                      "nice >>words; cat /proc/self/oom_score_adj >>words\n"
                                      "touch done\n")
    (folder / "vesk-push").chmod(0o755)
    return folder, environment


def check_words(desk):
    """vesk-push gets what was told, and no more of the machine than it should."""
    folder, environment = command_with_witness(desk, "words")
    words = ["--push", "clickhouses://h/d", "--push-every", "1s", "--push-raw", "none",
             "--push-credentials", str(secret_file(desk)), "--push-ca-file", "vesk",
             "--push-label", "box=a 'quoted' $name", "--push-label", "site=--"]
    recording = subprocess.Popen([str(folder / "vesk"), "record", "box", *words], cwd=folder,
                                 env=environment, stderr=subprocess.DEVNULL)
    try:
        wait_for("a push", (folder / "done").exists)
    finally:
        recording.send_signal(signal.SIGINT)
        recording.wait(LIMIT)
    *found, niceness, first_to_die = (folder / "words").read_text().splitlines()
    wanted = {"--to=clickhouses://h/d", "--raw=none", f"--credentials={secret_file(desk)}",
              "--ca-file=vesk", "--label=box=a 'quoted' $name", "--label=site=--", "--quiet",
              "--retry-for=15s"}
    require(set(found[:-2]) == wanted and found[-2:] == ["--", "box"], f"{found}")
    require((int(niceness), int(first_to_die)) == (10, 500), f"{niceness}, {first_to_die}")


def check_reload(desk):
    """Where and what is pushed stays as it is while a recording goes on, and it says so."""
    folder, environment = command_with_witness(desk, "reload")
    options = folder / "options"
    messages = folder / "messages"
    secret = secret_file(desk)
    options.write_text("push clickhouses://h/d\npush-every 1s\npush-raw none\npush-label site=one\n"
                       f"push-credentials {secret}\npush-ca-file vesk\n")
    with open(messages, "wb") as file:
        recording = subprocess.Popen(
            [str(folder / "vesk"), "record", "box", "--config", str(options)], cwd=folder,
            env=environment, stderr=file, stdin=subprocess.DEVNULL)
    try:
        wait_for("a push", (folder / "done").exists)
        before = (folder / "words").read_text()
        options.write_text("push clickhouses://other/d\npush-every 2s\npush-raw all\n"
                           "push-label site=two\n")
        recording.send_signal(signal.SIGHUP)
        wait_for("the options are read again", lambda: b"was read again" in messages.read_bytes())
        (folder / "done").unlink()
        wait_for("another push", (folder / "done").exists)
    finally:
        recording.send_signal(signal.SIGINT)
        code = recording.wait(LIMIT)
    text = messages.read_text()
    require(code == 0 and "--push, --push-every, --push-raw, --push-label, --push-credentials, "
            "--push-ca-file cannot change while it records" in text, f"{code}: {text}")
    require((folder / "words").read_text() == before, (folder / "words").read_text())


def check_missing_program(desk):
    """Of an installation without vesk-push."""
    lone, environment = lone_command(desk, "lone")
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

        def run():
            check_missing_program(desk)
            check_words(desk)
            check_reload(desk)
            check(desk)
            print("the recording went on")

        return verdict(run)


if __name__ == "__main__":
    sys.exit(main())
