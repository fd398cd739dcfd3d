"""A web server that takes what a gateway posts: `web_server.py PORT OUTPUT FAULTS [CERTIFICATE KEY]`.

Each record that it takes is a line of OUTPUT, with the post's headers beside it. FAULTS is a file that says, before
each post, how many of a hundred meet which end: {"busy": 503 and not taken, "late": taken, and the answer is half of
one, "silent": taken, and no answer at all}."""

from __future__ import annotations

import json
import random
import ssl
import sys
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path


class Taker(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    output = Path(sys.argv[2])
    faults = Path(sys.argv[3])
    lock = threading.Lock()

    def do_POST(self) -> None:  # noqa: N802
        body = self.rfile.read(int(self.headers["Content-Length"]))
        faults = json.loads(self.faults.read_text())
        chance = random.randrange(100)
        if chance < faults.get("busy", 0):
            self.answer(503)
            return
        self.take(json.loads(body))
        chance -= faults.get("busy", 0)
        if chance < faults.get("late", 0):
            self.wfile.write(b"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhal")
            self.close_connection = True
        elif chance - faults.get("late", 0) < faults.get("silent", 0):
            self.close_connection = True
        else:
            self.answer(200)

    def answer(self, status: int) -> None:
        self.send_response(status)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def take(self, records: list[object]) -> None:
        post = {name: self.headers[f"Kestrin-{name}"] for name in ("Gateway", "Log", "From", "To")}
        post["token"] = self.headers.get("Authorization", "")
        lines = [json.dumps({"post": post, "record": each}) + "\n" for each in records]
        with self.lock, self.output.open("a") as output:
            output.write("".join(lines))

    def log_message(self, *_: object) -> None:
        """Says nothing."""


server = ThreadingHTTPServer(("127.0.0.1", int(sys.argv[1])), Taker)
server.daemon_threads = True
if len(sys.argv) > 4:
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(sys.argv[4], sys.argv[5])
    server.socket = context.wrap_socket(server.socket, server_side=True)
server.serve_forever()
