#!/usr/bin/env python3
"""Draws what a dashboard shows of a fleet: pushes boxes into Prometheus on the loopback, as the page
about many machines makes them, and takes the picture of its page for graphs in a headless Chromium.

  fleet_picture.py --vesk build/release/cli/vesk --page docs/fleet.md [--picture FILE.png]

Without --picture it is drawn and looked at all the same: each machine has its line, and the picture is
of a size that belongs on a page. Without Prometheus, Chromium or the telemetry it is skipped and says
so.
"""

import argparse
import base64
import os
import struct
import sys
import tempfile
import time
import urllib.parse
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
import browser  # noqa: E402
from engines import Prometheus  # noqa: E402
from fleet_boxes import bring_telemetry, make_boxes  # noqa: E402
from pushed import stamp  # noqa: E402
from verdict import Skip, require, verdict  # noqa: E402

MACHINES = range(30, 40)
ROWS = 1186
STEP = 60
DRAWN_LIMIT = 60
LARGEST = 150_000
WIDTH = 1100


def push_boxes(page, folder, vesk, store, end):
    """Only some of the machines, with buffers in which all of their samples stay. They end at @p end,
    because Prometheus takes nothing of a past that is much older than its newest value."""
    (folder / "now").write_text("".join(f"{stamp(end - STEP * row)}\n"
                                        for row in reversed(range(ROWS))))
    make_boxes(page, folder, vesk, [
        ("cut -d, -f1 part00 >times", "mv now times"),
        ("seq -w 0 39", f"seq {MACHINES[0]} {MACHINES[-1]}"),
        ("--samples 120 --intervals 12", "--samples 2400 --intervals 12"),
        ("clickhouse://fleet.example/fleet --create", f"{store.url()} --raw all")])


def wait_until_drawn(page):
    until = time.monotonic() + DRAWN_LIMIT
    lines = []
    while len(lines) < len(MACHINES):
        lines = page.run("return [...document.querySelectorAll('.legend .line')]"
                         ".map(line => line.innerText.trim())")
        require(time.monotonic() < until, f"the graph has the lines {lines}")
        time.sleep(0.1)
    names = {f"m{machine}" for machine in MACHINES}
    require({name for name in names for line in lines if f'"{name}"' in line} == names
            and len(lines) == len(names), f"the graph has the lines {lines}")
    curves = page.run("return document.querySelectorAll('.rickshaw_graph svg path').length")
    require(curves >= len(names), f"{curves} curves for {len(names)} machines")


def take_picture(page):
    page.settle()
    height = page.run("return document.querySelector('.legend').getBoundingClientRect().bottom")
    clip = {"x": 0, "y": 0, "width": WIDTH, "height": height + 10, "scale": 1}
    answer = page.command("Page.captureScreenshot", format="png", clip=clip,
                          captureBeyondViewport=True)
    return base64.b64decode(answer["data"])


def draw(store, end):
    graph = {"g0.expr": "max by (box) (vesk_cpu_r)", "g0.tab": "0", "g0.range_input": "20h",
             "g0.end_input": time.strftime("%Y-%m-%d %H:%M", time.gmtime(end)),
             "g0.step_input": f"{STEP}"}
    with browser.Browser() as page:
        page.command("Emulation.setDeviceMetricsOverride", width=WIDTH, height=800,
                     deviceScaleFactor=1, mobile=False)
        page.open(f"http://127.0.0.1:{store.port}/classic/graph?" + urllib.parse.urlencode(graph))
        wait_until_drawn(page)
        return take_picture(page)


def require_small(picture):
    require(picture.startswith(b"\x89PNG"), "the picture is no PNG")
    width, height = struct.unpack_from(">II", picture, 16)
    require(width == WIDTH and 300 < height < 1200, f"the picture has {width} x {height} points")
    require(len(picture) < LARGEST, f"the picture has {len(picture)} bytes")


def check(arguments, folder):
    missing = browser.missing()
    if missing:
        raise Skip(f"{missing} is not installed")
    with Prometheus(folder / "store", window="48h") as store:
        bring_telemetry(folder)
        end = int(time.time()) // 3600 * 3600
        push_boxes(arguments.page.read_text(), folder, arguments.vesk, store, end)
        picture = draw(store, end)
    require_small(picture)
    if arguments.picture:
        arguments.picture.write_bytes(picture)
    print(f"{len(MACHINES)} machines in a picture of {len(picture)} bytes")


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("--page", required=True, type=Path)
    parser.add_argument("--picture", type=Path)
    arguments = parser.parse_args()
    os.environ["NO_PROXY"] = os.environ["no_proxy"] = "*"
    with tempfile.TemporaryDirectory(prefix="vesk-fleet-") as folder:
        return verdict(lambda: check(arguments, Path(folder)))


if __name__ == "__main__":
    sys.exit(main())
