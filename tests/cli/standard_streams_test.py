#!/usr/bin/env python3
"""What every verb does when it cannot print.

Every verb is called with standard output and standard error closed, on a full device and on a pipe
that nobody reads, in all combinations. It must end with the exit code that its manual states: 1 where
it has something to print and standard output does not take it, its usual one otherwise. It must not
abort, and what it would print must never get into a file of the box.

  standard_streams_test.py --vesk build/release/cli/vesk
"""

import argparse
import os
import subprocess
import sys
import tempfile
from pathlib import Path

STREAMS = ("open", "closed", "full", "unread")
TELEMETRY = b"20240101:00:00:00,::a\n" + b"".join(
    b"20240101:00:00:%02d,%d\n" % (second, second) for second in range(1, 7))


def healthy(vesk, folder):
    subprocess.run([vesk, "import", "box", "--samples", "4", "--intervals", "2"], input=TELEMETRY,
                   cwd=folder, check=True)


def torn(vesk, folder):
    healthy(vesk, folder)
    with open(folder / "box.2.cbuf.z", "ab") as file:
        file.write(b"\x78\x9c\x00")


def nothing(_vesk, _folder):
    pass


# What is there before, the words, the exit code, and whether anything goes to standard output.
CALLS = [
    (nothing, ["--help"], 0, True),
    (nothing, ["--version"], 0, True),
    (nothing, ["help", "record"], 0, True),
    (nothing, [], 2, False),
    (nothing, ["explode"], 2, False),
    (nothing, ["import", "--nonsense"], 2, False),
    (nothing, ["record", "box", "--for", "1s", "--samples", "4", "--intervals", "2"], 0, False),
    (nothing, ["record", "box", "--for", "1h", "--interval", "2h"], 2, False),
    (nothing, ["record", "missing/box"], 1, False),
    (nothing, ["import", "box", "text"], 0, False),
    (nothing, ["import", "box", "missing"], 1, False),
    (nothing, ["import", "box", "bad"], 1, False),
    (torn, ["import", "box", "text"], 0, False),
    (healthy, ["event", "box", "1", "x"], 0, False),
    (nothing, ["event", "box", "1", "x"], 4, False),
    (healthy, ["dump", "box"], 0, True),
    (healthy, ["dump", "--history", "box.1.cbuf.z"], 2, False),
    (torn, ["dump", "box"], 3, True),
    (nothing, ["dump", "box"], 4, False),
    (healthy, ["info", "box"], 0, True),
    (healthy, ["info", "--json", "box"], 0, True),
    (nothing, ["info", "box"], 4, False),
    (nothing, ["sensors", "--groups"], 0, True),
    (nothing, ["sensors", "--groups", "--json"], 0, True),
    (nothing, ["sensors", "--sensors", "nonsense"], 2, False),
    (healthy, ["show", "box"], 0, True),
    (torn, ["show", "--json", "box"], 3, True),
    (healthy, ["suspects", "box"], 0, True),
    (torn, ["suspects", "--json", "box"], 3, True),
    (nothing, ["suspects", "box"], 4, False),
    (healthy, ["stats", "box"], 0, True),
    (healthy, ["fetch", "box"], 0, True),
    (torn, ["fetch", "--format", "csv", "box"], 3, True),
    (healthy, ["events", "--json", "box"], 0, True),
    (healthy, ["diff", "box", "box"], 0, True),
    (healthy, ["tail", "box"], 0, True),
    (healthy, ["plot", "box", "a"], 0, True),
    (healthy, ["plot", "box", "a", "--svg", "-"], 0, True),
    (healthy, ["export", "--format", "jsonl", "box"], 0, True),
    (healthy, ["push", "box"], 2, False),
    (healthy, ["report", "box"], 0, True),
    (healthy, ["check", "box"], 0, True),
    (torn, ["check", "box"], 3, True),
    (torn, ["check", "--json", "box"], 3, True),
    (healthy, ["repair", "box"], 0, True),
    (torn, ["repair", "--dry-run", "box"], 3, True),
    (torn, ["repair", "box"], 0, True),
    (nothing, ["repair", "box"], 4, False),
]


def stream(kind, fd):
    """Puts descriptor @p fd of this process into the state of @p kind."""
    if kind == "closed":
        os.close(fd)
        return
    if kind == "full":
        other = os.open("/dev/full", os.O_WRONLY)
    elif kind == "unread":
        reader, other = os.pipe()
        os.close(reader)
    else:
        return
    os.dup2(other, fd)
    os.close(other)


def call(vesk, folder, words, output, error):
    def before():
        # Python ignores it, and a child would inherit that.
        import signal
        signal.signal(signal.SIGPIPE, signal.SIG_DFL)
        stream(output, 1)
        stream(error, 2)
    return subprocess.run([vesk, *words], cwd=folder, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60,
                          preexec_fn=before, check=False)


def problems(vesk, setup, words, code, prints, output, error):
    with tempfile.TemporaryDirectory(prefix="vesk-streams-") as name:
        folder = Path(name)
        (folder / "text").write_bytes(TELEMETRY)
        (folder / "bad").write_bytes(TELEMETRY + b"no telemetry\n")
        setup(vesk, folder)
        result = call(vesk, folder, words, output, error)
        wanted = 1 if prints and output != "open" else code
        if result.returncode != wanted:
            yield f"ended with {result.returncode} instead of {wanted}"
        if error == "open" and wanted == 1 and prints and b"standard output: " not in result.stderr:
            yield f"does not say what failed: {result.stderr!r}"
        for path in folder.iterdir():
            if path.name not in ("text", "bad") and b"vesk:" in path.read_bytes():
                yield f"a message got into {path.name}"


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("--every", type=int, default=1, metavar="K",
                        help="only one of K calls; all streams occur when K is odd")
    arguments = parser.parse_args()
    os.environ["TZ"] = "UTC0"
    failed = 0
    calls = 0
    place = 0
    for setup, words, code, prints in CALLS:
        for output in STREAMS:
            for error in STREAMS:
                # One recording takes a second; what it prints is the same everywhere.
                if words[:1] == ["record"] and code == 0 and output != error:
                    continue
                place += 1
                if place % arguments.every != 0:
                    continue
                calls += 1
                for problem in problems(arguments.vesk, setup, words, code, prints, output, error):
                    failed += 1
                    print(f"vesk {' '.join(words)} ({setup.__name__}), output {output}, "
                          f"error {error}: {problem}")
    print(f"{calls} calls, {failed} problems")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
