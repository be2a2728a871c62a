#!/usr/bin/env python3
"""What a push makes of servers that are busy, lie, or are not the ones that they should be.

  push_http_test.py --vesk build/release/cli/vesk

The servers are of this test, on the loopback.
"""

import argparse
import base64
import http.server
import os
import shutil
import ssl
import subprocess
import sys
import tempfile
import threading
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from pushed import Desk, Telemetry  # noqa: E402
from verdict import Failure, require  # noqa: E402

# With what fits into the buffers of the system.
MOST_TAKEN = 64 << 20


class Server(http.server.ThreadingHTTPServer):
    """Answers each request as @p answer tells, which gets its number: status, headers, body."""

    daemon_threads = True

    def __init__(self, answer):
        super().__init__(("127.0.0.1", 0), Handler)
        self.answer = answer
        self.requests = []
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def url(self, scheme="clickhouse", host="127.0.0.1"):
        return f"{scheme}://{host}:{self.server_port}/fleet"

    def handle_error(self, request, client_address):
        pass


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_POST(self):
        body = self.rfile.read(int(self.headers["Content-Length"]))
        self.server.requests.append((self.path, dict(self.headers), body))
        status, headers, pieces = self.server.answer(len(self.server.requests))
        self.send_response(status)
        for name, value in headers.items():
            self.send_header(name, value)
        if "Content-Length" not in headers:
            self.send_header("Connection", "close")
        self.end_headers()
        for piece in pieces:
            self.wfile.write(piece)

    def log_message(self, *_):
        pass


def plain(status, body=b"", **headers):
    return status, {"Content-Length": str(len(body)), **headers}, [body]


def taken(_):
    return plain(200)


def check_requests(desk):
    server = Server(taken)
    secret = "Aladdin's password"
    environment = {**os.environ, "VESK_PUSH_PASSWORD": secret}
    text = desk.push("box", server.url().replace("://", "://ann@"), env=environment)
    require(secret not in text, text)
    wanted = "Basic " + base64.b64encode(f"ann:{secret}".encode()).decode()
    for path, headers, body in server.requests:
        require(headers.get("Authorization") == wanted, f"{path} has no credentials")
        require("Transfer-Encoding" not in headers and int(headers["Content-Length"]) == len(body),
                f"{path}: the length is not told")
        require(secret not in path and len(body) < 9 << 20, f"{path}: {len(body)} bytes")
    inserts = [path for path, _, _ in server.requests if "INSERT" in path]
    require(len(inserts) == 3 and "boxes" in inserts[-1], f"{inserts}")


def check_busy(desk):
    """What passes is tried again, and the same bytes are sent."""
    server = Server(lambda number: plain(503) if number % 2 else plain(200))
    desk.push("box", server.url())
    pairs = list(zip(server.requests[0::2], server.requests[1::2]))
    require(len(pairs) > 3 and all(one[2] == other[2] for one, other in pairs),
            f"{len(server.requests)} requests")
    server = Server(lambda number: plain(429))
    desk.push("box", server.url(), "--again", "--retry-for", "0", codes=(1,))
    require(len(server.requests) == 1, f"{len(server.requests)} requests instead of one")


def check_refusals(desk):
    for status, body in ((400, b"bad"), (404, b"Code: 60, e.displayText() = no table"),
                         (500, b"Code: 62, e.displayText() = syntax"), (501, b"")):
        server = Server(lambda _, status=status, body=body: plain(status, body))
        desk.push("box", server.url(), "--again", "--retry-for", "1h", codes=(1,))
        require(len(server.requests) == 1, f"{status}: {len(server.requests)} requests")


def check_redirect(desk):
    other = Server(taken)
    server = Server(lambda _: plain(302, Location=f"http://127.0.0.1:{other.server_port}/"))
    text = desk.push("box", server.url(), "--again", "--retry-for", "1h", codes=(1,))
    require("HTTP 302" in text and not other.requests, f"{len(other.requests)} followed: {text}")


def check_hostile_replies(desk):
    evil = b"\x1b]0;evil\x07\x9b31m" + "\u202e".encode() + b"x" * 1_000_000
    server = Server(lambda _: plain(400, evil))
    text = desk.push("box", server.url(), "--again", codes=(1,))
    require("\x1b" not in text and "\x9b" not in text and "\u202e" not in text
            and len(text) < 1000, f"{len(text)} characters: {text[:200]!r}")
    for row in (b"1\t2\n", b"<html>", b"-1\t-1\t-1\n", b"1\t2\t3\n" * 3, b"\xff" * 70000):
        server = Server(lambda _, row=row: plain(200, row))
        desk.forget()
        text = desk.push("box", server.url(), "--retry-for", "0", codes=(1,))
        require("Traceback" not in text and len(text) < 2000, text)

    sent = []

    def endless():
        while True:
            sent.append(65536)
            yield b"x" * 65536

    server = Server(lambda _: (200, {}, endless()))
    desk.push("box", server.url(), "--again", "--retry-for", "0", codes=(1,))
    require(sum(sent) < MOST_TAKEN, f"{sum(sent)} bytes of an endless reply were taken")


def check_certificates(desk):
    if shutil.which("openssl") is None:
        print("without openssl no certificates are tried")
        return
    key, certificate = desk.folder / "key.pem", desk.folder / "certificate.pem"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", str(key),
                    "-out", str(certificate), "-days", "2", "-subj", "/CN=localhost", "-addext",
                    "subjectAltName=DNS:localhost"], check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)
    server = Server(taken)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, key)
    server.socket = context.wrap_socket(server.socket, server_side=True)
    url = server.url("clickhouses", "localhost")
    text = desk.push("box", url, "--again", "--retry-for", "1h", codes=(1,))
    require("certificate" in text and not server.requests, text)
    text = desk.push("box", server.url("clickhouses"), "--again", "--ca-file", str(certificate),
                     "--retry-for", "1h", codes=(1,))
    require(not server.requests, f"a certificate of another host is taken: {text}")
    desk.push("box", url, "--again", "--ca-file", str(certificate))
    require(server.requests, "nothing arrived")


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    arguments = parser.parse_args()
    os.environ["NO_PROXY"] = os.environ["no_proxy"] = "*"
    with tempfile.TemporaryDirectory(prefix="vesk-push-") as folder:
        desk = Desk(arguments.vesk, folder)
        telemetry = Telemetry(1)
        desk.import_rows("box", [telemetry.row() for _ in range(300)])
        for check in (check_requests, check_busy, check_refusals, check_redirect,
                      check_hostile_replies, check_certificates):
            try:
                check(desk)
            except Failure as reason:
                print(f"{check.__name__}: {reason}")
                return 1
    print("done")
    return 0


if __name__ == "__main__":
    sys.exit(main())
