#!/usr/bin/env python3
"""Opens pages that `vesk report` makes in a headless Chromium and uses them as a reader does.

  report_test.py --vesk PATH    77, with a word, where there is no Chromium

The box has names and texts that try to be markup and script.
"""

import argparse
import csv
import io
import json
import os
import struct
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

import browser

SKIPPED = 77
VESK = None

HOSTILE = [
    "::disk.<script>window.hacked=1</script>_percent",
    "::disk.</script><img src=x onerror=window.hacked=2>",
    "::disk.\"'><svg onload=window.hacked=3>_bytes",
    "::cpu.{{data}}&lt;b&gt;&amp;_C",
]
PLAIN = ["::cpu.total.busy_percent", "::mem.used_bytes", "::load"]
NAMES = PLAIN + HOSTILE
HOSTILE_EVENT = "</table></script><script>window.hacked=4</script><a href='javascript:1'>x"
BEGIN = 1704067200
SAMPLES = 300


def vesk(*words, **options):
    return subprocess.run([VESK, *words], check=True, capture_output=True, timeout=60,
                          env={**os.environ, "TZ": "UTC0"}, **options).stdout


def value(number, column):
    if column == 2 and 200 <= number < 210:
        return "nan"
    if column == 0 and number >= SAMPLES - 5:
        return "99.5"
    return str((number * (column + 3)) % 17 / 8 + column)


def telemetry():
    lines = ["20240101:00:00:00," + ",".join(NAMES)]
    for number in range(SAMPLES):
        # A gap of an hour behind 250 samples.
        seconds = BEGIN + 10 * number + (3600 if number >= 250 else 0)
        moment = time.strftime("%Y%m%d:%H:%M:%S", time.gmtime(seconds))
        lines.append(",".join([moment] + [value(number, i) for i in range(len(NAMES))]))
    return "\n".join(lines) + "\n"


def single(number):
    return struct.unpack("<f", struct.pack("<f", float(number)))[0]


class ReportPage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory(prefix="vesk-report-")
        cls.base = str(Path(cls.folder.name) / "box")
        cls.file = Path(cls.folder.name) / "page.html"
        vesk("import", cls.base, "-", "--samples", "60", "--intervals", "6",
             input=telemetry().encode())
        vesk("event", cls.base, "4", HOSTILE_EVENT)
        # At least two of them in one second.
        for number in range(5):
            vesk("event", cls.base, "1", f"event {number}")
        vesk("report", cls.base, "-o", str(cls.file))
        cls.browser = browser.Browser()

    @classmethod
    def tearDownClass(cls):
        cls.browser.__exit__()
        cls.folder.cleanup()

    def setUp(self):
        self.browser.requests()
        self.browser.log("browser")
        self.browser.open(self.file.as_uri())
        self.browser.settle()

    def tearDown(self):
        self.assertEqual([entry["message"] for entry in self.browser.log("browser")], [])
        self.assertIsNone(self.browser.run("return window.hacked"))

    def run_script(self, script, *arguments):
        return self.browser.run(script, *arguments)

    def window(self):
        return self.run_script("return [shown.from, shown.to]")

    def test_asks_for_nothing(self):
        self.run_script("document.querySelector('.card').click()")
        self.browser.settle()
        asked = [one for one in self.browser.requests() if not one.startswith("data:")]
        self.assertEqual(asked, [self.file.as_uri()])

    def test_names_and_texts_stay_what_they_are(self):
        shown = self.run_script("return [...document.querySelectorAll('.card .name')]"
                                ".map(one => one.textContent)")
        self.assertCountEqual(shown, [name[2:] for name in NAMES])
        rows = self.run_script("return [...document.querySelectorAll('table.numbers tbody th')]"
                               ".map(one => one.textContent)")
        self.assertEqual(rows, [name[2:] for name in NAMES])
        events = self.run_script("return document.querySelector('table.events').textContent")
        self.assertIn(HOSTILE_EVENT, events)
        self.assertEqual(self.run_script("return document.querySelectorAll("
                                         "'img, a[href^=javascript], svg[onload]').length"), 0)
        self.assertEqual(self.run_script("return document.scripts.length"), 3)

    def test_the_policy_stops_script_that_is_not_of_the_page(self):
        self.run_script("const one = document.createElement('script');"
                        "one.textContent = 'window.hacked = 5'; document.body.append(one);")
        self.assertIsNone(self.run_script("return window.hacked"))
        messages = self.browser.log("browser")
        self.assertTrue(any("Content Security Policy" in one["message"] for one in messages))

    def test_numbers_are_those_of_the_box(self):
        told = json.loads(vesk("stats", self.base, "--json"))["sensors"]
        shown = self.run_script("return box.sensors.map(one => one.numbers)")
        for one, other in zip(told, shown):
            self.assertEqual(one["count"], other["count"])
            for key, name in (("min", "least"), ("max", "greatest"), ("first", "first"),
                              ("last", "last")):
                self.assertEqual(single(one[key]), single(other[name]), one["sensor"])
            self.assertEqual(single(one["mean"]), single(other["mean"]))
            self.assertEqual(single(one["stddev"]), single(other["deviation"]))

    def test_samples_of_the_charts_are_those_of_the_box(self):
        rows = list(csv.reader(io.StringIO(vesk("fetch", self.base, "--format", "csv").decode())))
        raw = [row for row in rows[1:] if row[1] == "raw"]
        self.assertGreater(len(raw), 100)
        shown = self.run_script(
            "return box.sensors.map(one => [...valuesOf(one).mean].slice(box.wide)"
            ".map(value => Number.isNaN(value) ? null : value))")
        for column, values in enumerate(shown):
            expected = [single(row[3 + column]) if row[3 + column] else None for row in raw]
            self.assertEqual(values, expected, NAMES[column])

    def test_a_gap_and_a_missing_reading_are_holes(self):
        holes = self.run_script("return box.holes.map(i => box.starts[i])")
        self.assertEqual(holes, [BEGIN + 2500 + 3600])
        runs = self.run_script("const one = box.sensors[2];"
                               "return runsIn(valuesOf(one), 4000).length")
        self.assertEqual(runs, 3)

    def test_the_keyboard_is_enough(self):
        self.browser.press("/")
        self.assertEqual(self.run_script("return document.activeElement.id"), "search")
        self.browser.command("Input.insertText", text="cpu BUSY")
        self.browser.settle()
        self.assertEqual(self.run_script("return document.getElementById('count').textContent"),
                         "1 of 7 sensors")
        self.assertEqual(self.run_script("return [...document.querySelectorAll("
                                         "'table.numbers tbody tr')]"
                                         ".filter(row => !row.hidden).length"), 1)
        self.browser.press("Escape")
        self.run_script("document.querySelector('.card').focus()")
        self.browser.press("Enter")
        self.assertEqual(self.run_script("return document.querySelector('#large h2').textContent"),
                         "cpu.total.busy_percent")
        self.browser.press("ArrowLeft")
        self.assertIn("99.5 %", self.run_script("return large.cursorText.textContent"))
        self.browser.press("Escape")
        self.assertTrue(self.run_script("return document.getElementById('large').hidden"))
        self.assertEqual(self.run_script("return document.activeElement.className"), "card")
        whole = self.window()
        self.browser.press("+")
        nearer = self.window()
        self.assertAlmostEqual(nearer[1] - nearer[0], (whole[1] - whole[0]) / 2)
        self.browser.press("ArrowRight", shift=True)
        self.assertGreater(self.window()[0], nearer[0])
        self.browser.press("0")
        self.assertEqual(self.window(), whole)

    def test_dragging_zooms_all_charts(self):
        self.run_script("document.querySelector('.card').scrollIntoView({block: 'center'})")
        self.browser.settle()
        left, top, width, height = self.run_script(
            "const r = document.querySelector('.card canvas').getBoundingClientRect();"
            "return [r.left, r.top, r.width, r.height]")
        whole = self.window()
        self.browser.mouse("mousePressed", left + width / 2, top + height / 2)
        self.browser.mouse("mouseMoved", left + width * 3 / 4, top + height / 2)
        self.browser.mouse("mouseReleased", left + width * 3 / 4, top + height / 2)
        self.browser.settle()
        span = whole[1] - whole[0]
        shown = self.window()
        self.assertAlmostEqual(shown[0], whole[0] + span / 2, delta=span / 50)
        self.assertAlmostEqual(shown[1], whole[0] + span * 3 / 4, delta=span / 50)
        self.assertTrue(self.run_script("return document.getElementById('large').hidden"))

    def test_the_large_chart_follows_the_window_and_leads_it(self):
        self.run_script("document.querySelector('.card').click();"
                        "showWindow(boxBegin + 100, boxBegin + 1100)")
        self.browser.settle()
        self.assertEqual(self.run_script("return large.graph.xAxisRange()"),
                         [(BEGIN + 100) * 1000, (BEGIN + 1100) * 1000])
        self.run_script("large.graph.updateOptions({dateWindow: [arguments[0], arguments[1]]})",
                        (BEGIN + 500) * 1000, (BEGIN + 900) * 1000)
        self.browser.settle()
        self.assertEqual(self.window(), [BEGIN + 500, BEGIN + 900])
        self.run_script("document.getElementById('logarithmic').click()")
        self.browser.settle()
        self.assertTrue(self.run_script("return large.graph.getOption('logscale')"))

    def test_an_event_moves_all_charts_there(self):
        self.run_script("document.querySelector('tr.gap button.at').click()")
        self.browser.settle()
        shown = self.window()
        self.assertLess(shown[1] - shown[0], 1000)
        self.assertTrue(shown[0] < BEGIN + 2490 < shown[1], shown)

    def test_events_stand_newest_first_also_within_a_second(self):
        texts = self.run_script("return [...document.querySelectorAll('table.events tbody tr')]"
                                ".map(row => row.lastElementChild.textContent)")
        self.assertEqual([text.split(" (")[0] for text in texts[:5]], [f"event {number}" for number in (4, 3, 2, 1, 0)])

    def test_no_time_is_cut_off_at_an_edge_of_the_line_of_events(self):
        # The box begins at midnight: there the label is a date.
        shown = self.run_script(
            "const context = CanvasRenderingContext2D.prototype;"
            "const old = context.fillText; const found = [];"
            "context.fillText = function (text, x, y) {"
            "  const half = this.measureText(text).width / 2;"
            "  found.push([text, x - half, x + half]); old.call(this, text, x, y); };"
            "drawTimeLine(); context.fillText = old;"
            "return [found, timeLine.canvas.getBoundingClientRect().width]")
        self.assertEqual(shown[0][0][0], "2024-01-01")
        for text, left, right in shown[0]:
            self.assertGreaterEqual(left, 0, text)
            self.assertLessEqual(right, shown[1], text)

    def test_the_table_is_sorted_by_a_click(self):
        self.run_script("document.querySelectorAll('table.numbers button.sort')[4].click()")
        self.assertEqual(self.run_script("return document.querySelector("
                                         "'table.numbers tbody th').textContent"),
                         "cpu.total.busy_percent")

    def test_a_phone_has_nothing_to_push_sideways(self):
        self.browser.command("Emulation.setDeviceMetricsOverride", width=360, height=740,
                             deviceScaleFactor=2, mobile=True)
        try:
            self.run_script("document.querySelector('.card').click()")
            self.browser.settle()
            self.assertLessEqual(self.run_script("return document.documentElement.scrollWidth"),
                                 360)
            # What happened has more room than when.
            self.assertGreater(self.run_script(
                "const row = document.querySelector('table.events tbody tr');"
                "return row.lastElementChild.offsetWidth / row.offsetWidth"), 0.45)
        finally:
            self.browser.command("Emulation.clearDeviceMetricsOverride")

    def test_dark_systems_have_a_dark_page(self):
        colour = "return getComputedStyle(document.body).backgroundColor + colours.line"
        light = self.run_script(colour)
        self.browser.command("Emulation.setEmulatedMedia",
                             features=[{"name": "prefers-color-scheme", "value": "dark"}])
        try:
            self.browser.settle()
            self.assertNotEqual(self.run_script(colour), light)
        finally:
            self.browser.command("Emulation.setEmulatedMedia", features=[])

    def test_it_is_printed_on_light_paper(self):
        self.browser.command("Emulation.setEmulatedMedia", media="print",
                             features=[{"name": "prefers-color-scheme", "value": "dark"}])
        try:
            self.run_script("window.dispatchEvent(new Event('beforeprint'))")
            self.assertEqual(self.run_script(
                "return [getComputedStyle(document.body).color, colours.line]"),
                ["rgb(22, 25, 29)", "#0b62a8"])
        finally:
            self.run_script("window.dispatchEvent(new Event('afterprint'))")
            self.browser.command("Emulation.setEmulatedMedia", media="", features=[])

    def test_it_can_be_printed(self):
        printed = self.browser.command("Page.printToPDF", printBackground=True)["data"]
        self.assertGreater(len(printed), 20000)
        self.assertFalse(self.run_script(
            "return document.documentElement.classList.contains('printing')"))
        drawn = self.run_script("return box.sensors.every(one => one.canvas.width > 0 && "
                                "one.rangeElement.textContent !== '')")
        self.assertTrue(drawn)

    def test_without_script_the_page_can_be_read(self):
        self.browser.command("Emulation.setScriptExecutionDisabled", value=True)
        try:
            self.browser.open(self.file.as_uri())
            text = self.browser.command("DOM.getDocument", depth=-1)
            node = text["root"]["nodeId"]

            def height(selector):
                found = self.browser.command("DOM.querySelector", nodeId=node, selector=selector)
                try:
                    return self.browser.command("DOM.getBoxModel",
                                                nodeId=found["nodeId"])["model"]["height"]
                except OSError:
                    return 0

            self.assertGreater(height(".verdict"), 10)
            self.assertGreater(height(".coverage-bar"), 10)
            self.assertGreater(height("#unusual .end-picture svg"), 10)
            self.assertGreater(height("table.numbers"), 100)
            self.assertGreater(height("#files"), 30)
            self.assertEqual(height("#charts"), 0)
        finally:
            self.browser.command("Emulation.setScriptExecutionDisabled", value=False)


class OtherPages(unittest.TestCase):
    def test_the_groups_to_choose_from_stand_in_the_order_of_the_charts(self):
        names = ["::v", "::a.1", "::w", "::a.2", "::x", "::b.1", "::y", "::b.2"]
        with tempfile.TemporaryDirectory(prefix="vesk-report-") as folder, \
                browser.Browser() as reader:
            base = str(Path(folder) / "box")
            head = "20240101:00:00:00," + ",".join(names) + "\n"
            vesk("import", base, "-", input=(head + "20240101:00:00:00" + ",1" * 8 + "\n").encode())
            page = Path(folder) / "page.html"
            vesk("report", base, "-o", str(page))
            reader.open(page.as_uri())
            reader.settle()
            chips = reader.run("return [...document.querySelectorAll('#groups .chip')]"
                               ".map(one => one.firstChild.textContent)")
            self.assertEqual(chips, ["a", "b", "other"])
            # Nobody knows how a box ended that was imported, which is neither good nor bad.
            self.assertEqual(reader.run("return document.getElementById('verdict').className"),
                             "verdict untold")

    def test_boxes_of_next_to_nothing_make_pages_without_a_complaint(self):
        with tempfile.TemporaryDirectory(prefix="vesk-report-") as folder, \
                browser.Browser() as reader:
            for name, lines in (("one", 1), ("two", 2)):
                base = str(Path(folder) / name)
                text = "\n".join(telemetry().split("\n")[:1 + lines]) + "\n"
                vesk("import", base, "-", input=text.encode())
                page = Path(folder) / f"{name}.html"
                vesk("report", base, "-o", str(page))
                reader.open(page.as_uri())
                reader.settle()
                reader.run("const card = document.querySelector('.card'); card.click()")
                reader.settle()
                self.assertEqual(reader.log("browser"), [], name)


def main():
    global VESK
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--vesk", required=True)
    options, rest = parser.parse_known_args()
    VESK = str(Path(options.vesk).resolve())
    program = browser.missing()
    if program:
        print(f"skipped: {program} is not installed")
        return SKIPPED
    result = unittest.main(argv=[sys.argv[0], *rest], exit=False).result
    return 0 if result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
