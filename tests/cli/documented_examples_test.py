#!/usr/bin/env python3
"""Runs the examples of the manual, of the page about exports and of the help of each verb, and
compares the options in the synopsis of the manual with those in the help.

  documented_examples_test.py --vesk build/release/cli/vesk --docs docs [--show]

An example is an indented line that begins with "vesk", with the lines that go on behind a '|' at
their end. It has to end with 0 in a folder that holds what it names: boxes of four days that end
now, and the files that are imported. What needs another machine or a server is left out, and what
would go on for ever gets SIGINT. --show prints what each example prints.
"""

import argparse
import math
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

# Other machines, servers and places, programs of the reader, and what prints nothing for ever.
ELSEWHERE = re.compile(r"-n 0|\bssh\b|/var/lib|\bcurl\b|promtool|my-sensors|systemctl|pidof|\bserve\b|\bpush\b")
# A recording, an estimate or a look at the machine samples in real time.
SLOW = re.compile(r"^vesk (record|estimate|sensors)\b")
ENDLESS = re.compile(r"^vesk tail -f\b")
# Words that stand for something.
SYNOPSIS = re.compile(r"\b(BASE|VERB|NEW|TYPE|SENSOR)\b|\[-|\bA \[B\]|, vesk")
SENSORS = ("cpu.total.busy_percent", "cpu.0.busy_percent", "load.1min", "mem.used_bytes",
           "mem.free_bytes", "disk.busy_percent")
DAYS = 4
STEP = 60


def examples(text):
    lines = text.splitlines()
    for at, line in enumerate(lines):
        found = re.match(r"(?:    |  )(vesk .*)$", line)
        if found is None:
            continue
        # Behind some blanks the help of all verbs tells what an example does.
        command = re.sub(r"^(vesk \S.*?) {3,}\S.*$", r"\1", found.group(1))
        while command.endswith("|"):
            at += 1
            command += "\n" + lines[at]
        if not SYNOPSIS.search(command):
            yield command


def samples(first, last):
    """Telemetry with a change in its last hour."""
    yield "%s,%s\n" % (stamp(first), ",".join("::" + name for name in SENSORS))
    for moment in range(first, last, STEP):
        wave = math.sin(moment / 5000)
        values = [20 + 9 * wave, 30 + 9 * wave, 1 + wave / 2, 1e9 + 1e8 * wave, 2e9 - 1e8 * wave,
                  5 + 2 * wave + (90 if last - moment < 3600 else 0)]
        yield stamp(moment) + "," + ",".join("%.6g" % value for value in values) + "\n"


def stamp(moment):
    return time.strftime("%Y%m%d:%H:%M:%S", time.gmtime(moment))


class Desk:
    """A folder with what the examples name."""

    def __init__(self, vesk, folder):
        self.folder = Path(folder)
        # A box must stay where it was made.
        self.here = self.folder / "here"
        self.kept = self.folder / "kept"
        self.here.mkdir()
        self.environment = {**os.environ, "TZ": "UTC0", "LC_ALL": "C.UTF-8", "COLUMNS": "80",
                            "PATH": f"{Path(vesk).parent}{os.pathsep}{os.environ['PATH']}"}
        now = int(time.time()) // STEP * STEP
        text = "".join(samples(now - DAYS * 86400, now))
        self.run("vesk import box --samples 720 --intervals 60", text)
        self.run("vesk event box 3 'Out of memory: killed process 1'")
        for name in ("old", "healthy", "broken", "monday", "tuesday"):
            self.run(f"vesk import {name} --samples 720 --intervals 60", text)
        (self.here / "day.kelt").write_text("".join(samples(now + 60, now + 86400)))
        self.run("gzip < day.kelt > telemetry.kelt.gz; cp day.kelt data.kelt")
        self.run("cp day.kelt month-of-minutes.kelt")
        self.run("vesk import other day.kelt; vesk fetch other --format csv > measurements.csv")
        shutil.copytree(self.here, self.kept)

    def run(self, command, text=""):
        return subprocess.run(["sh", "-c", command], cwd=self.here, input=text.encode(), timeout=60,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              env=self.environment, check=False)

    def try_one(self, command):
        """The exit code and what was printed."""
        shutil.rmtree(self.here, ignore_errors=True)
        shutil.copytree(self.kept, self.here)
        if re.search(r"box\.3\.cbuf\.z", command):
            newest = max(self.here.glob("box.*.cbuf.z"), key=lambda path: path.stat().st_mtime)
            newest.rename(self.here / "box.3.cbuf.z")
        if "import box" in command and "<" in command:
            for path in self.here.glob("box.*"):
                path.unlink()
        if ENDLESS.match(command):
            return self.interrupt(command)
        done = self.run(command)
        return done.returncode, done.stdout.decode()

    def interrupt(self, command):
        process = subprocess.Popen(["sh", "-c", "exec " + command], cwd=self.here,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                   env=self.environment)
        line = process.stdout.readline()
        process.send_signal(signal.SIGINT)
        rest = process.communicate(timeout=60)[0]
        return process.returncode, (line + rest).decode()


def texts_of(vesk, docs):
    yield "command.md", (docs / "command.md").read_text()
    yield "export.md", (docs / "export.md").read_text()
    yield "suspects.md", (docs / "suspects.md").read_text()
    whole = subprocess.run([vesk, "--help"], stdout=subprocess.PIPE, check=True).stdout.decode()
    yield "vesk --help", whole
    for verb in re.findall(r"^  ([a-z]+) {3,}[A-Z]", whole, re.MULTILINE):
        yield f"vesk {verb} --help", subprocess.run(
            [vesk, verb, "--help"], stdout=subprocess.PIPE, check=True).stdout.decode()


# Options that the manual has in another form, or for which it has a word.
OTHERWISE = {("plot", "--sensor"), ("export", "--output"), ("report", "--output"),
             ("tail", "--follow"), ("tail", "--rows")}


def options_that_differ(texts):
    """Those that the synopsis of the manual has and the help of the verb has not, or the reverse."""
    synopsis = texts["command.md"].split("\n\n")[1]
    shared = re.search(r"\((plot, .*?): (.*)\)", synopsis)
    blocks = re.split(r"^    vesk (\w+) ", synopsis.replace(shared[0], ""), flags=re.MULTILINE)
    told = {}
    for verb, text in zip(blocks[1::2], blocks[2::2]):
        text = text.split("\n    vesk -")[0]
        text += shared[2] if verb in shared[1].split(", ") else ""
        told.setdefault(verb, set()).update(re.findall(r"--[a-z][a-z-]*", text))
    for where, text in texts.items():
        verb = re.fullmatch(r"vesk (\w+) --help", where)
        if verb is not None:
            listed = text.split("Options:")[1].split("\n\n")[0]
            known = set(re.findall(r"^  (?:-\w,)?(--[a-z-]+)", listed, re.MULTILINE)) - {"--help"}
            for option in sorted(known ^ told.get(verb[1], set())):
                if (verb[1], option) not in OTHERWISE:
                    only = "help" if option in known else "synopsis"
                    yield f"{verb[1]}: {option} is in the {only} only"


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("--docs", required=True, type=Path)
    parser.add_argument("--show", action="store_true")
    arguments = parser.parse_args()
    tried = {}
    failed = 0
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    with tempfile.TemporaryDirectory(prefix="vesk-examples-", dir=memory) as folder:
        desk = Desk(arguments.vesk, folder)
        for where, text in texts_of(arguments.vesk, arguments.docs):
            for command in examples(text):
                programs = re.findall(r"\|\s*(\w+)", command)
                missing = [name for name in programs if shutil.which(name) is None]
                missing = [name for name in missing if name != "vesk"]
                if command in tried or missing or ELSEWHERE.search(command) \
                        or SLOW.match(command):
                    continue
                tried[command] = where
                code, printed = desk.try_one(command)
                if arguments.show:
                    print(f"--- {where}: {command}\n{printed}")
                if code != 0:
                    failed += 1
                    print(f"{where}: {command}\n    ends with {code}: {printed.strip()[-400:]}")
    for text in options_that_differ(dict(texts_of(arguments.vesk, arguments.docs))):
        failed += 1
        print(text)
    print(f"{len(tried)} examples, {failed} failed")
    return 1 if failed or len(tried) < 50 else 0


if __name__ == "__main__":
    sys.exit(main())
