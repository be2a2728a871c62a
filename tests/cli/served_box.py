"""A box that is recorded while it is served, and those who ask the server: what the tests of
`vesk serve` share.

An import feeds the box sample by sample, the server is asked by single requests, and watchers read
its stream of events.
"""

import base64
import contextlib
import http.client
import json
import os
import re
import signal
import socket
import struct
import subprocess
import threading
import time
from pathlib import Path

PATIENCE = 60
BEGIN = 1704067200
# A sanitizer that keeps what was freed from being used again would grow with every page.
ENVIRONMENT = {**os.environ, "TZ": "UTC0", "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") +
               ":quarantine_size_mb=1:thread_local_quarantine_size_kb=64"}
NAMES = ["::number", "::half_percent", "::<script>_bytes"]
COMMAND = None


def use_command(path):
    """Says which program is tested, before anything else is called."""
    global COMMAND
    COMMAND = str(Path(path).resolve())


def vesk(*words, **options):
    return subprocess.run([COMMAND, *words], check=True, capture_output=True, timeout=PATIENCE,
                          env=ENVIRONMENT, **options).stdout


def single(number):
    return struct.unpack("<f", struct.pack("<f", float(number)))[0]


def wait_until(what, text):
    end = time.monotonic() + PATIENCE
    while not what():
        if time.monotonic() > end:
            raise AssertionError(text)
        time.sleep(0.02)


class Feeder:
    """An import that is fed sample by sample, and tells what is in the box."""

    def __init__(self, base, first, names=None, samples=8):
        self.number = first
        self.names = names or NAMES
        reading, writing = os.pipe()
        self.process = subprocess.Popen(
            [COMMAND, "import", base, "--samples", str(samples), "--intervals", "2", "--sync", "never",
             "--acknowledge", str(writing)], stdin=subprocess.PIPE, stderr=subprocess.DEVNULL,
            pass_fds=[writing], env=ENVIRONMENT)
        os.close(writing)
        self.acknowledged = os.fdopen(reading)
        self._write(f"{self.stamp()}," + ",".join(self.names) + "\n")

    def stamp(self):
        return time.strftime("%Y%m%d:%H:%M:%S", time.gmtime(BEGIN + self.number))

    def _write(self, text):
        self.process.stdin.write(text.encode())
        self.process.stdin.flush()

    def feed(self, count):
        """Returns when all of them are in the box."""
        for _ in range(count):
            values = [self.number, self.number / 2, "nan" if self.number % 5 == 0 else 2048]
            values += [1] * (len(self.names) - len(values))
            self._write(f"{self.stamp()}," + ",".join(map(str, values)) + "\n")
            self.number += 1
        for _ in range(count):
            if not self.acknowledged.readline():
                raise AssertionError("the import ended")

    def end(self, kill=False):
        if kill:
            self.process.kill()
        self.process.stdin.close()
        self.process.wait(PATIENCE)
        self.acknowledged.close()
        return self.number


class Server:
    def __init__(self, base, *words, address="127.0.0.1:0"):
        self.process = subprocess.Popen(
            [COMMAND, "serve", base, "--listen", address, *words], stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, text=True, env=ENVIRONMENT)
        self.url = self.process.stdout.readline().strip()
        if not self.url:
            raise AssertionError(self.process.communicate()[1])
        self.host, port = re.fullmatch(r"http://(.*):(\d+)/", self.url).groups()
        self.host = self.host.strip("[]")
        self.port = int(port)

    def ask(self, path="/", method="GET", headers=None):
        connection = http.client.HTTPConnection(self.host, self.port, timeout=PATIENCE)
        connection.request(method, path, headers=headers or {})
        answer = connection.getresponse()
        body = answer.read()
        connection.close()
        return answer, body.decode()

    def connect(self):
        return socket.create_connection((self.host, self.port), timeout=PATIENCE)

    def raw(self, request):
        with self.connect() as client:
            client.sendall(request)
            return read_all(client)

    def processor_seconds(self):
        fields = Path(f"/proc/{self.process.pid}/stat").read_text().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def memory(self):
        status = Path(f"/proc/{self.process.pid}/status").read_text()
        return int(re.search(r"VmRSS:\s*(\d+)", status).group(1))

    @contextlib.contextmanager
    def processes_beside_stopped(self):
        """Stops each process that the server begins, and lets them go on at the end."""
        children = Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children")
        stopped = set()
        at_end = threading.Event()

        def stop_all():
            while not at_end.wait(0.002):
                for number in set(map(int, children.read_text().split())) - stopped:
                    os.kill(number, signal.SIGSTOP)
                    stopped.add(number)

        stopper = threading.Thread(target=stop_all)
        stopper.start()
        try:
            yield stopped
        finally:
            at_end.set()
            stopper.join()
            for number in stopped:
                os.kill(number, signal.SIGCONT)

    def end(self, how=signal.SIGTERM):
        self.process.send_signal(how)
        _, messages = self.process.communicate(timeout=PATIENCE)
        return self.process.returncode, messages


def read_all(client):
    parts = []
    while True:
        try:
            part = client.recv(65536)
        except ConnectionResetError:
            break
        if not part:
            break
        parts.append(part)
    return b"".join(parts)


def data_of(page):
    text = page.split('<script type="application/json" id="data">', 1)[1].split("</script>", 1)[0]
    return json.loads(text)


def floats(text):
    packed = base64.b64decode(text)
    return struct.unpack(f"<{len(packed) // 4}f", packed)


class Watcher:
    """Reads an event stream."""

    def __init__(self, server, after, headers=""):
        self.client = server.connect()
        self.client.sendall(f"GET /events?after={after} HTTP/1.1\r\nHost: localhost\r\n{headers}\r\n"
                            .encode())
        self.rest = b""
        self.names = None
        self.state = None
        self.last = after
        self.head = self._until(b"\r\n\r\n").decode()

    def _until(self, end):
        while end not in self.rest:
            part = self.client.recv(65536)
            if not part:
                raise EOFError
            self.rest += part
        found, self.rest = self.rest.split(end, 1)
        return found

    def message(self):
        fields = {}
        for line in self._until(b"\n\n").decode().split("\n"):
            key, _, text = line.partition(":")
            fields[key] = text.strip()
        self.last = fields.get("id", self.last)
        return fields

    def until(self, kind):
        end = time.monotonic() + PATIENCE
        while True:
            # The server never is silent for long, whatever it does not say.
            if time.monotonic() > end:
                raise AssertionError(f"no {kind} came")
            found = self.message()
            if found.get("event") == "names":
                self.names = json.loads(found["data"])
            if found.get("event") == "state":
                self.state = json.loads(found["data"])
            if found.get("event") == kind:
                return found

    def until_state(self, fits):
        """Also where that state was told before something else that was waited for."""
        while self.state is None or not fits(self.state):
            self.until("state")

    def sample(self):
        """The time and the values of the next one, by name."""
        seconds, packed = self.until("sample")["data"].split(" ")
        return int(seconds), dict(zip(self.names, floats(packed)))

    def close(self):
        self.client.close()
