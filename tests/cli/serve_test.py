#!/usr/bin/env python3
"""Serves a box that is written to, and asks for it as browsers and as enemies do.

  serve_test.py --vesk PATH sockets    with sockets alone
  serve_test.py --vesk PATH browser    in a headless Chromium; 77, with a word, where there is none
"""

import argparse
import csv
import io
import json
import signal
import socket
import sys
import tempfile
import threading
import time
import unittest
from pathlib import Path

import browser
from served_box import (BEGIN, NAMES, PATIENCE, Feeder, Server, Watcher, data_of, floats, read_all,
                        single, use_command, vesk, wait_until)

SKIPPED = 77
# Three times as long as a server makes its watchers wait for a page: the way to the client is in it, too.
SLOW_PAGE = 0.6


class Sockets(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix="vesk-serve-")
        self.base = str(Path(self.folder.name) / "box")
        self.feeder = Feeder(self.base, 0)
        self.feeder.feed(30)
        self.server = Server(self.base)

    def tearDown(self):
        self.server.process.kill()
        self.server.process.communicate()
        if self.feeder.process.poll() is None:
            self.feeder.end()
        self.folder.cleanup()

    def page(self):
        answer, body = self.server.ask()
        self.assertEqual(answer.status, 200)
        return data_of(body)

    def test_the_page_is_that_of_report_and_may_ask_for_news_only(self):
        answer, page = self.server.ask()
        self.assertEqual(answer.getheader("Content-Type"), "text/html; charset=utf-8")
        self.assertEqual(answer.getheader("Cache-Control"), "no-store")
        self.assertEqual(answer.getheader("X-Frame-Options"), "DENY")
        report = vesk("report", self.base).decode()
        self.assertNotIn("connect-src", report)
        follows = data_of(page)["follows"]
        for own in ("connect-src 'self'; ", f'"follows":"{follows}",'):
            self.assertEqual(page.count(own), 1)
            page = page.replace(own, "")
        made = "Made by <code>vesk {}</code>"
        self.assertEqual(page.replace(made.format("serve"), made.format("report")), report)

    def test_page_and_stream_together_hold_each_sample_once(self):
        data = self.page()
        shown = floats(data["sensors"][0]["values"])[2 * data["wide"] + data["wide"]:]
        seen = [int(value) for value in shown]
        first = seen[0]
        watcher = Watcher(self.server, data["follows"])
        for turn in range(6):
            self.feeder.feed(5)
            if turn in (2, 4):
                number = self.feeder.end(kill=True)
                self.feeder = Feeder(self.base, number)
            while seen[-1] + 1 < self.feeder.number:
                seconds, values = watcher.sample()
                seen.append(int(values["::number"]))
                self.assertEqual(seconds, BEGIN + seen[-1])
                self.assertEqual(values["::half_percent"], seen[-1] / 2)
            if turn == 3:
                # The connection is lost and comes back.
                last = watcher.last
                watcher.close()
                self.feeder.feed(3)
                watcher = Watcher(self.server, "nothing", f"Last-Event-ID: {last}\r\n")
        watcher.close()
        self.assertEqual(seen, list(range(first, self.feeder.number)))
        rows = list(csv.DictReader(io.StringIO(
            vesk("fetch", self.base, "--format", "csv").decode())))
        raw = [int(float(row["::number"])) for row in rows if row["kind"] == "raw"]
        self.assertGreater(len(raw), 4)
        self.assertEqual(raw, seen[-len(raw):])

    def test_watchers_go_on_while_a_page_is_made_that_takes_long(self):
        with tempfile.TemporaryDirectory(prefix="vesk-serve-") as folder:
            feeder, server, page, seconds = self.serve_slow_page(Path(folder))
            watcher = Watcher(server, data_of(page)["follows"])
            feeder.feed(1)
            watcher.sample()
            # After a while in which the server rests, a page is made anew; it takes as long as wanted.
            time.sleep(9 * seconds + 0.5)
            answers = []
            reader = threading.Thread(target=lambda: answers.append(server.ask()[1]))
            with server.processes_beside_stopped() as stopped:
                reader.start()
                wait_until(lambda: stopped, "no process is begun")
                feeder.feed(1)
                watcher.sample()
                self.assertTrue(reader.is_alive(), "the page was not made beside the server")
            reader.join()
            first = data_of(page)["sensors"][0]["numbers"]["count"]
            self.assertGreater(data_of(answers[0])["sensors"][0]["numbers"]["count"], first)
            watcher.close()
            self.assertEqual(server.end(), (0, ""))
            feeder.end()

    def serve_slow_page(self, folder):
        """Serves a box whose page takes the server longer than it would let watchers wait, on this
        machine."""
        for sensors in (100, 200, 500, 1000, 3000):
            base = str(folder / f"box{sensors}")
            names = NAMES + [f"::s{number}" for number in range(sensors)]
            feeder = Feeder(base, 0, names, samples=8000)
            for _ in range(8):
                feeder.feed(500)
            server = Server(base)
            begin = time.monotonic()
            page = server.ask()[1]
            seconds = time.monotonic() - begin
            if seconds > SLOW_PAGE:
                return feeder, server, page, seconds
            self.assertEqual(server.end(), (0, ""))
            feeder.end()
        return self.fail("no page is slow enough")

    def test_events_and_how_the_box_stands_are_told(self):
        watcher = Watcher(self.server, self.page()["follows"])
        watcher.until_state(lambda state: state["recorded"] and state["whole"])
        number = self.feeder.end()
        text = "two\nlines </script> ü"
        vesk("event", self.base, "4", text)
        found = json.loads(watcher.until("event")["data"])
        self.assertEqual((found["type"], found["text"]), (4, "two?lines </script> ü"))
        watcher.until_state(lambda state: not state["recorded"])
        self.feeder = Feeder(self.base, number)
        self.feeder.feed(1)
        watcher.until_state(lambda state: state["recorded"])
        watcher.close()

    def test_a_box_that_goes_away_is_told_and_loaded_anew_when_it_is_back(self):
        number = self.feeder.end()
        watcher = Watcher(self.server, self.page()["follows"])
        home = Path(self.folder.name)
        away = home / "away"
        away.mkdir()
        files = [path for path in home.iterdir() if path.is_file()]
        for path in files:
            path.rename(away / path.name)
        watcher.until_state(lambda state: state["problem"])
        wait_until(lambda: self.server.ask()[0].status == 503, "a page of no box is shown")
        self.assertIn("cannot be shown now", self.server.ask()[1])
        for path in files:
            (away / path.name).rename(path)
        watcher.until("reload")
        with self.assertRaises(EOFError):
            watcher.message()
        wait_until(lambda: self.server.ask()[0].status == 200, "the box is not shown again")
        self.feeder = Feeder(self.base, number)

    def test_damage_is_told_and_a_repair_too(self):
        self.feeder.end()
        newest = max(Path(self.folder.name).glob("box.*.cbuf.z"))
        whole = newest.read_bytes()
        newest.write_bytes(whole + b"\x1f\x8b torn")
        answer, page = self.server.ask()
        self.assertEqual(answer.status, 200)
        self.assertIn('<div id="health" class="bad">', page)
        data_of(page)
        vesk("repair", self.base)
        wait_until(lambda: '<div id="health" class="good">' in self.server.ask()[1],
                   "the repair is not seen")

    def test_nothing_else_is_there(self):
        for path in ("/index.html", "/events/", "/..", "/../box.state", "//", "/%2e%2e/etc/passwd",
                     "/box.state", "/events%00", "/favicon.ico"):
            self.assertEqual(self.server.ask(path)[0].status, 404, path)
        self.assertEqual(self.server.ask("/?anything")[0].status, 200)

    def test_only_reading_is_allowed(self):
        for method in ("POST", "PUT", "DELETE", "OPTIONS", "PATCH"):
            answer, _ = self.server.ask(method=method)
            self.assertEqual(answer.status, 405, method)
            self.assertEqual(answer.getheader("Allow"), "GET, HEAD")
        answer, body = self.server.ask(method="HEAD")
        self.assertEqual((answer.status, body), (200, ""))
        self.assertGreater(int(answer.getheader("Content-Length")), 100000)
        self.assertEqual(self.server.ask("/events", "HEAD")[1], "")
        found = self.server.raw(b"POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 200000\r\n"
                                b"\r\n" + bytes(200000))
        self.assertTrue(found.startswith(b"HTTP/1.1 405 "), found[:40])

    def test_requests_under_a_foreign_name_are_refused(self):
        for host in ("evil.example", f"evil.example:{self.server.port}", "localhost.evil.example",
                     "192.0.2.1", ""):
            answer, body = self.server.ask(headers={"Host": host})
            self.assertEqual(answer.status, 421, host)
            self.assertNotIn("number", body)
            self.assertEqual(self.server.ask("/events", headers={"Host": host})[0].status, 421)
        for host in ("localhost", "LOCALHOST:1", "127.0.0.1", "[::1]:8080"):
            self.assertEqual(self.server.ask(method="HEAD", headers={"Host": host})[0].status, 200)
        self.assertEqual(self.server.ask(
            "/events", headers={"Sec-Fetch-Site": "cross-site"})[0].status, 403)

    def test_hostile_heads_get_an_answer_or_nothing_and_the_server_goes_on(self):
        heads = [
            (b"\r\n\r\n", b"400"), (b"GET\r\n\r\n", b"400"), (b"GET / HTTP/9.9\r\n\r\n", b"505"),
            (b"\x16\x03\x01\x00\xa5\x01\r\n\r\n", b"400"), (b"GET / HTTP/1.1\r\n\r\n", b"400"),
            (b"GET / HTTP/1.1\r\nHost: localhost\r\nHost: localhost\r\n\r\n", b"400"),
            (b"GET / HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n",
             b"413"),
            (b"GET /" + b"a" * 5000 + b" HTTP/1.1\r\nHost: localhost\r\n\r\n", b"414"),
            (b"A" * 100000, b"414"),
            (b"GET / HTTP/1.1\r\n" + b"X: y\r\n" * 20000, b"431"),
            (b"GET / HTTP/1.1\r\nHost: localhost\r\nX: " + b"\0" * 10 + b"\r\n\r\n", b"400"),
            (b"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n" * 3, b"200"),
        ]
        for head, status in heads:
            found = self.server.raw(head)
            self.assertTrue(found.startswith(b"HTTP/1.1 " + status), (head[:60], found[:60]))
            self.assertEqual(found.count(b"HTTP/1.1 "), 1)
        for head in (b"", b"G", b"GET / HTTP/1.1\r\nHost: localho"):
            with self.server.connect() as client:
                client.sendall(head)
                client.shutdown(socket.SHUT_WR)
                self.assertEqual(read_all(client), b"")
        self.assertEqual(self.server.ask()[0].status, 200)

    def test_slow_and_silent_clients_do_not_keep_others_out(self):
        clients = [self.server.connect() for _ in range(200)]
        for client in clients[::2]:
            client.sendall(b"GET / HTTP/1.1\r\n")
        begin = time.monotonic()
        self.assertEqual(self.server.ask()[0].status, 200)
        self.assertLess(time.monotonic() - begin, 9)
        # They are ended when they do not get on.
        clients[0].settimeout(PATIENCE)
        read_all(clients[-2])
        self.assertEqual(read_all(clients[-1]), b"")
        for client in clients:
            client.close()

    def test_watchers_are_bounded_and_leave_room_for_others(self):
        follows = self.page()["follows"]
        watchers = [Watcher(self.server, follows) for _ in range(32)]
        self.assertTrue(all(" 200 " in one.head for one in watchers))
        self.assertEqual(self.server.ask(f"/events?after={follows}")[0].status, 503)
        self.assertEqual(self.server.ask()[0].status, 200)
        self.feeder.feed(2)
        for one in watchers:
            self.assertEqual(one.sample()[0], BEGIN + self.feeder.number - 2)
            one.close()
        wait_until(lambda: " 200 " in Watcher(self.server, follows).head, "no place gets free")

    def test_a_watcher_that_reads_nothing_costs_no_memory(self):
        watcher = self.server.connect()
        follows = self.page()["follows"]
        watcher.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        watcher.sendall(f"GET /events?after={follows} HTTP/1.1\r\nHost: localhost\r\n\r\n".encode())
        self.feeder.feed(8)
        before = self.server.memory()
        for _ in range(25):
            self.feeder.feed(80)
        self.server.ask(method="HEAD")
        self.assertLess(self.server.memory() - before, 8000)
        watcher.close()

    def test_it_ends_cleanly_with_watchers(self):
        for how in (signal.SIGTERM, signal.SIGINT):
            server = Server(self.base)
            watcher = Watcher(server, data_of(server.ask()[1])["follows"])
            watcher.until("state")
            self.assertEqual(server.end(how), (0, ""))
            with self.assertRaises((EOFError, ConnectionResetError)):
                while True:
                    watcher.message()

    def test_other_addresses_come_with_a_warning(self):
        server = Server(self.base, "--host", "box.example", address="0.0.0.0:0")
        server.host = "127.0.0.1"
        for host, status in (("192.0.2.7", 200), ("Box.Example:80", 200), ("other.example", 421)):
            self.assertEqual(server.ask(method="HEAD", headers={"Host": host})[0].status, status)
        code, messages = server.end()
        self.assertEqual(code, 0)
        self.assertIn("reads the whole box", messages)
        if socket.has_ipv6 and Path("/proc/net/if_inet6").exists():
            server = Server(self.base, address="[::1]:0")
            self.assertEqual(server.ask(method="HEAD")[0].status, 200)
            self.assertEqual(server.end(), (0, ""))

    def test_ten_browsers_cost_little_more_than_one(self):
        follows = self.page()["follows"]
        page = self.server.ask()[1]
        before = self.server.processor_seconds()
        for _ in range(50):
            self.assertEqual(self.server.ask()[1], page)
        watchers = [Watcher(self.server, follows) for _ in range(10)]
        self.feeder.feed(6)
        for one in watchers:
            for _ in range(6):
                one.sample()
            one.close()
        # Fifty pages take ten times as long where each of them is made.
        self.assertLess(self.server.processor_seconds() - before, 1.5)

    def test_nothing_is_written(self):
        self.feeder.end()
        files = {path.name: path.read_bytes() for path in Path(self.folder.name).iterdir()}
        watcher = Watcher(self.server, self.page()["follows"])
        watcher.until("state")
        watcher.close()
        self.server.end()
        self.assertEqual({path.name: path.read_bytes()
                          for path in Path(self.folder.name).iterdir()}, files)


class InBrowser(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.browser = browser.Browser()

    @classmethod
    def tearDownClass(cls):
        cls.browser.__exit__()

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix="vesk-serve-")
        self.base = str(Path(self.folder.name) / "box")
        self.feeder = Feeder(self.base, 0)
        self.feeder.feed(21)
        self.server = Server(self.base)
        self.browser.log("browser")
        self.browser.requests()

    def tearDown(self):
        self.browser.open("about:blank")
        self.server.process.kill()
        self.server.process.communicate()
        if self.feeder.process.poll() is None:
            self.feeder.end()
        self.folder.cleanup()

    def run_script(self, script):
        return self.browser.run("return " + script)

    def open(self):
        self.browser.open(self.server.url)
        self.browser.settle()
        self.wait("live.isConnected")

    def wait(self, script):
        wait_until(lambda: self.run_script(script), f"never true: {script}")

    def assert_quiet(self):
        self.assertEqual([entry["message"] for entry in self.browser.log("browser")], [])

    def wait_for_newest(self):
        self.wait(f"columnStarts[columnCount - 1] === {BEGIN + self.feeder.number - 1}")

    def assert_same_as_fetch(self):
        rows = list(csv.DictReader(io.StringIO(
            vesk("fetch", self.base, "--format", "csv").decode())))
        raw = [row for row in rows if row["kind"] == "raw"]
        self.assertGreater(len(raw), 4)
        for number, name in enumerate(NAMES):
            shown = self.run_script(
                f"[...valuesOf(box.sensors[{number}]).mean].slice(0, columnCount)"
                ".map(value => Number.isNaN(value) ? null : value)")
            expected = [single(row[name]) if row[name] else None for row in raw]
            self.assertEqual(shown[-len(raw):], expected, name)

    def test_the_charts_grow_through_rotations_and_kills(self):
        self.open()
        before = self.run_script("columnCount")
        begin = self.feeder.number
        self.feeder.feed(13)
        self.wait_for_newest()
        self.feeder = Feeder(self.base, self.feeder.end(kill=True))
        self.feeder.feed(6)
        self.wait_for_newest()
        self.assertEqual(self.run_script("columnCount"), before + self.feeder.number - begin)
        self.assertEqual(self.run_script("[shown.to, boxEnd]"),
                         [BEGIN + self.feeder.number - 1] * 2)
        times = self.run_script("columnStarts.slice(box.wide, columnCount)")
        self.assertEqual(times, list(range(times[0], BEGIN + self.feeder.number)))
        self.assert_same_as_fetch()
        self.wait("document.querySelector('.card .value').textContent === "
                  f"'{self.feeder.number - 1}'")
        asked = [one for one in self.browser.requests() if one.startswith("http")]
        self.assertTrue(all(one == self.server.url or "/events?after=" in one for one in asked))
        self.assert_quiet()

    def test_numbers_events_and_the_large_chart_follow(self):
        self.open()
        self.browser.run("document.querySelector('.card').click();"
                         "document.getElementById('numbers').scrollIntoView()")
        self.feeder.feed(7)
        self.wait_for_newest()
        self.browser.settle()
        rows = csv.DictReader(io.StringIO(vesk("stats", self.base, "--format", "csv").decode()))
        shown = self.run_script("box.sensors.map(one => one.numbers)")
        for row, one in zip(rows, shown):
            self.assertEqual(one["count"], int(row["count"]))
            for key, other in (("least", "min"), ("greatest", "max"), ("last", "last")):
                self.assertEqual(single(one[key]), single(row[other]))
            self.assertAlmostEqual(one["mean"], float(row["mean"]), places=5)
            self.assertAlmostEqual(one["deviation"], float(row["stddev"]), places=4)
        self.wait("document.querySelector('table.numbers tbody td').textContent === "
                  f"'{self.feeder.number - 1}'")
        self.assertEqual(self.run_script("large.graph.getValue(large.graph.numRows() - 1, 0)"),
                         (BEGIN + self.feeder.number - 1) * 1000)
        number = self.feeder.end()
        vesk("event", self.base, "5", "<img src=x onerror=window.hacked=1>")
        self.wait("document.querySelector('table.events tbody td:last-child') !== null")
        self.assertEqual(self.run_script(
            "document.querySelector('table.events tbody td:last-child').textContent"),
            "<img src=x onerror=window.hacked=1>")
        self.wait("!live.state.recorded")
        self.assertIn("Nobody records", self.run_script("live.text.textContent"))
        self.feeder = Feeder(self.base, number)
        self.feeder.feed(1)
        self.wait("live.state.recorded")
        self.assertIsNone(self.run_script("window.hacked"))
        self.assert_quiet()

    def test_a_lost_connection_is_told_and_comes_back(self):
        self.open()
        address = f"127.0.0.1:{self.server.port}"
        self.browser.run("document.getElementById('search').value = 'number';"
                         "document.getElementById('search').dispatchEvent(new Event('input'));"
                         "document.querySelector('#groups .chip').click()")
        pressed = ("[...document.querySelectorAll('#groups .chip[aria-pressed=true]')]"
                   ".map(one => one.textContent)")
        self.assertEqual(len(self.run_script(pressed)), 1)
        chosen = self.run_script(pressed)
        self.server.end()
        self.wait("!live.isConnected")
        self.assertIn("Connection lost", self.run_script("live.text.textContent"))
        self.feeder.feed(3)
        self.server = Server(self.base, address=address)
        # Another server: the page is loaded anew, and looks as before.
        self.wait("live.isConnected && come.length === 0")
        self.wait_for_newest()
        self.assertEqual(self.run_script("document.getElementById('count').textContent"),
                         "1 of 3 sensors")
        self.assertEqual(self.run_script(pressed), chosen)
        self.assert_same_as_fetch()

    def test_new_sensors_are_shown(self):
        self.open()
        number = self.feeder.end()
        self.feeder = Feeder(self.base, number, NAMES + ["::new"])
        self.feeder.feed(2)
        self.wait("box.sensors.length === 4 && live.isConnected")
        self.wait_for_newest()
        self.assert_quiet()

    def test_a_box_that_goes_away_is_told_on_the_page(self):
        self.open()
        self.feeder.end()
        home = Path(self.folder.name)
        away = home / "away"
        away.mkdir()
        files = [path for path in home.iterdir() if path.is_file()]
        for path in files:
            path.rename(away / path.name)
        self.wait("live.state.problem !== ''")
        self.assertIn("cannot be read", self.run_script("live.text.textContent"))
        for path in files:
            (away / path.name).rename(path)
        self.wait("live.isConnected && live.state.problem === ''")
        self.assert_same_as_fetch()


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--vesk", required=True)
    parser.add_argument("part", choices=["sockets", "browser"])
    options, rest = parser.parse_known_args()
    use_command(options.vesk)
    if options.part == "browser" and browser.missing():
        print(f"skipped: {browser.missing()} is not installed")
        return SKIPPED
    case = Sockets if options.part == "sockets" else InBrowser
    result = unittest.TextTestRunner(verbosity=2).run(
        unittest.TestLoader().loadTestsFromName(rest[0], case) if rest
        else unittest.TestLoader().loadTestsFromTestCase(case))
    return 0 if result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
