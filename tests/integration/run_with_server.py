#!/usr/bin/env python3
"""Runs a program of examples/ with a server on 127.0.0.1 to talk to, and shows what both say.

Usage: run_with_server.py PROGRAM http|ftp [--launcher COMMAND]
"""

import http.server
import pathlib
import subprocess
import sys
import tempfile
import threading

from common.ftppeer import Peer
from common.program import parse_arguments


class Page(http.server.BaseHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def do_GET(self):
        content = b"a harbour at dawn\n"
        self.send_response(200 if self.path == "/harbour.txt" else 404)
        self.send_header("Content-Length", str(len(content)))
        self.end_headers()
        self.wfile.write(content)


def run(program, *arguments):
    result = subprocess.run(program.command(*arguments), capture_output=True, timeout=50)
    print(program.text(result.stdout).decode(), result.stderr.decode(errors="replace"), sep="", end="")
    print("exit code:", result.returncode)


def with_http(program):
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Page)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    for name in ("harbour.txt", "nothing.txt"):
        run(program, f"http://127.0.0.1:{server.server_address[1]}/{name}")
    server.shutdown()


def with_ftp(program):
    peer = Peer()
    with tempfile.TemporaryDirectory() as folder:
        files = [pathlib.Path(folder, name) for name in ("first.txt", "missing.txt", "with blank.txt")]
        for path in (files[0], files[2]):
            path.write_text("content of " + path.name)
        run(program, "127.0.0.1", peer.port, *files)
    peer.stop()
    for name, content in sorted(peer.stored.items()):
        print(f"stored {name.decode()}: {content.decode()}")


if __name__ == "__main__":
    PROGRAM, (KIND,), _ = parse_arguments(__doc__.splitlines()[0], "kind")
    sys.exit({"http": with_http, "ftp": with_ftp}[KIND](PROGRAM))
