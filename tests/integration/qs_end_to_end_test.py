#!/usr/bin/env python3
"""End-to-end tests of the built qs program against a scripted HTTP peer on 127.0.0.1.

Usage: qs_end_to_end_test.py QS_BINARY EXAMPLES_FOLDER [--launcher COMMAND] [unittest arguments]

Everything encoded here is encoded by Python's standard library or by the few lines of this file, never by qs, unless a
test says so. Needs Python 3 and the openssl command.
"""

import base64
import binascii
import contextlib
import hashlib
import hmac
import http.server
import os
import pathlib
import pty
import random
import re
import select
import signal
import socket
import ssl
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import zlib

from common.program import parse_arguments, without_cursor_moves

QS = None  # a Program
EXAMPLES = None


# ---- encoders

def yenc(data, name, number=None, total=None, begin=None, size=None, file_crc=None, line=128):
    body = bytearray()
    column = 0
    for value in data:
        value = (value + 42) % 256
        if value in (0, 10, 13, 61):
            body += bytes([61, (value + 64) % 256])
            column += 2
        else:
            body.append(value)
            column += 1
        if column >= line:
            body += b"\r\n"
            column = 0
    crc = "%08x" % zlib.crc32(data)
    if number is None:
        head = f"=ybegin line={line} size={len(data)} name={name}\r\n"
        tail = f"=yend size={len(data)} crc32={crc}\r\n"
    else:
        head = f"=ybegin part={number} total={total} line={line} size={size} name={name}\r\n"
        head += f"=ypart begin={begin} end={begin + len(data) - 1}\r\n"
        tail = f"=yend size={len(data)} part={number} pcrc32={crc}"
        tail += f" crc32={file_crc}\r\n" if file_crc else "\r\n"
    return head.encode() + bytes(body) + b"\r\n" + tail.encode()


def yenc_parts(data, name, count, **changes):
    step = -(-len(data) // count)
    file_crc = "%08x" % zlib.crc32(data)
    parts = []
    for number in range(1, count + 1):
        begin = (number - 1) * step
        fields = dict(total=count, size=len(data), file_crc=file_crc)
        fields.update(changes)
        parts.append(article(f"{name} ({number}/{count})",
                             yenc(data[begin:begin + step], name, number, begin=begin + 1, **fields)))
    return parts


def uu(data, name):
    lines = [binascii.b2a_uu(data[at:at + 45]) for at in range(0, len(data), 45)]
    return b"begin 644 " + name.encode() + b"\n" + b"".join(lines) + b" \nend\n"


def article(subject, body):
    head = f"From: ada@example.net\r\nNewsgroups: example.test\r\nSubject: {subject}\r\nMessage-ID: <1@example.net>\r\n"
    return head.encode() + b"\r\n" + body


def mime(parts):
    text = b"MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=BB\r\n\r\n"
    for headers, body in parts:
        text += b"--BB\r\n" + headers.encode() + b"\r\n" + body + b"\r\n"
    return text + b"--BB--\r\n"


def base64_part(data, name):
    headers = f"Content-Type: application/octet-stream\r\nContent-Transfer-Encoding: base64\r\n"
    headers += f"Content-Disposition: attachment; {name}\r\n"
    return headers, base64.encodebytes(data).replace(b"\n", b"\r\n")


def sample(size, seed=1):
    return random.Random(seed).randbytes(size)


# ---- the peer

class Resource:
    """How the peer answers for one path."""

    def __init__(self, content, status=200, ranges=True, cut_at=None, pause=0, headers=None, auth=None):
        self.content = content
        self.status = status
        self.ranges = ranges
        self.cut_at = cut_at  # the connection ends after so many bytes of the body
        self.pause = pause  # seconds between two kilobytes
        self.headers = headers or {}
        self.auth = auth


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *args):
        pass

    def do_GET(self):
        self.server.requests.append((self.path, dict(self.headers)))
        self.close_connection = True
        resource = self.server.resources.get(self.path)
        if resource is None:
            resource = Resource(b"<html>no such page</html>", status=404)
        if resource.auth and self.headers.get("Authorization") != resource.auth:
            resource = Resource(b"<html>who are you</html>", status=401)
        self.answer(resource)

    def answer(self, resource):
        body, status, headers = resource.content, resource.status, dict(resource.headers)
        wanted = re.fullmatch(r"bytes=(\d+)-", self.headers.get("Range", ""))
        if wanted and resource.ranges and status == 200:
            first = int(wanted.group(1))
            if first >= len(body):
                status = 416
                headers["Content-Range"] = f"bytes */{len(body)}"
                body = b"range not satisfiable"
            else:
                status = 206
                headers["Content-Range"] = f"bytes {first}-{len(body) - 1}/{len(body)}"
                body = body[first:]
        self.send_response(status)
        for name, value in headers.items():
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        with contextlib.suppress(ConnectionError):
            self.send_body(body[:resource.cut_at] if resource.cut_at is not None else body, resource.pause)

    def send_body(self, body, pause):
        if not pause:
            self.wfile.write(body)
            return
        for at in range(0, len(body), 1024):
            self.wfile.write(body[at:at + 1024])
            self.wfile.flush()
            if self.server.stopping.wait(pause):
                return


class Peer(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def __init__(self, tls=None):
        super().__init__(("127.0.0.1", 0), Handler)
        if tls:
            self.socket = tls.wrap_socket(self.socket, server_side=True, do_handshake_on_connect=False)
        self.resources = {}
        self.requests = []
        self.stopping = threading.Event()
        self.thread = threading.Thread(target=self.serve_forever, kwargs={"poll_interval": 0.05})
        self.thread.start()

    def url(self, path):
        return f"http://127.0.0.1:{self.server_address[1]}{path}"

    def serve(self, path, content, **how):
        self.resources[path] = Resource(content, **how)
        return self.url(path)

    def handle_error(self, request, client_address):
        pass  # a client that refuses the certificate or goes away is what some tests want

    def stop(self):
        if self.stopping.is_set():
            return
        self.stopping.set()
        self.shutdown()
        self.server_close()
        self.thread.join()


class Case(unittest.TestCase):
    maxDiff = 2000

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix="qs-test-")
        self.addCleanup(self.folder.cleanup)
        self.root = pathlib.Path(self.folder.name)
        self.out = self.root / "out"
        self.peer = Peer()
        self.addCleanup(lambda: self.peer.stop())

    def qs(self, *arguments, stdin=b"", environment=None, cwd=None):
        result = subprocess.run(QS.command(*arguments), input=stdin, capture_output=True, timeout=60,
                                env={**os.environ, **(environment or {})}, cwd=cwd or self.root)
        return QS.streams(arguments, result)

    def fetch(self, *arguments, code=0, **how):
        result = self.qs("fetch", *arguments, "-o", self.out, **how)
        self.assertEqual(result.returncode, code, result.stdout.decode() + result.stderr.decode())
        return result

    def stored(self):
        if not self.out.exists():
            return {}
        return {str(path.relative_to(self.out)): path.read_bytes() for path in self.out.rglob("*") if path.is_file()}

    def rows(self, result):
        """The table: a list of dictionaries by column."""
        lines = result.stdout.decode().splitlines()
        heads = [index for index, line in enumerate(lines) if re.match(r"File +Encoding +Bytes", line)]
        self.assertEqual(len(heads), 1, lines)
        names = lines[heads[0]].split()
        rows = []
        for line in lines[heads[0] + 1:]:
            if not line.strip():
                break
            rows.append(dict(zip(names, re.split(r" {2,}", line, maxsplit=5))))
        return rows


# ---- fetch

class Fetch(Case):
    def check_row(self, row, name, encoding, data, verdict="good"):
        self.assertEqual(row, {"File": name, "Encoding": encoding, "Bytes": str(len(data)),
                               "CRC-32": "%08X" % zlib.crc32(data), "MD5": hashlib.md5(data).hexdigest(),
                               "Verdict": verdict})

    def test_each_encoding(self):
        data = sample(5000)
        cases = {
            "yenc": yenc(data, "a.bin"),
            "uu": uu(data, "a.bin"),
            "base64": mime([base64_part(data, "filename=a.bin")]),
        }
        for number, (encoding, body) in enumerate(cases.items()):
            with self.subTest(encoding):
                self.out = self.root / str(number)
                text = body if encoding == "base64" else article("a", b"hello\r\n\r\n" + body)
                result = self.fetch(self.peer.serve("/post", text))
                self.assertEqual(self.stored(), {"a.bin": data})
                self.check_row(self.rows(result)[0], "a.bin", encoding, data)

    def test_bare_encoded_texts(self):
        data = sample(3000)
        urls = [self.peer.serve("/a.yenc", yenc(data, "a.bin")), self.peer.serve("/b.uue", uu(data, "b.bin")),
                self.peer.serve("/c.txt", base64.encodebytes(data))]
        self.fetch(*urls)
        self.assertEqual(self.stored(), {"a.bin": data, "b.bin": data, "c.bin": data})

    def test_quoted_printable(self):
        import quopri
        text = "Grüße, a line = with a sign\n".encode() * 30
        body = quopri.encodestring(text)
        mail = b"Content-Type: text/plain; name=note.txt\nContent-Transfer-Encoding: quoted-printable\n\n" + body
        self.fetch(self.peer.serve("/mail", mail))
        self.assertEqual(self.stored(), {"note.txt": text})

    def test_several_attachments_in_one_article(self):
        first, second, third = sample(700, 1), sample(800, 2), sample(900, 3)
        mail = mime([("Content-Type: text/plain\r\n", b"hello\r\n" + uu(first, "first.bin")),
                     base64_part(second, "filename*=utf-8''%C3%BCber%20uns.bin"),
                     base64_part(third, 'filename="=?iso-8859-1?Q?=FCber?=.bin"')])
        result = self.fetch(self.peer.serve("/mail", mail))
        self.assertEqual(self.stored(), {"first.bin": first, "über uns.bin": second, "über.bin": third})
        self.assertEqual([row["Verdict"] for row in self.rows(result)], ["good"] * 3)

    def test_other_content_is_stored_as_it_came(self):
        data = b"\x89PNG\r\n\x1a\n" + sample(3000)
        result = self.fetch(self.peer.serve("/dir/picture%20one.png?size=1", data))
        self.assertEqual(self.stored(), {"picture one.png": data})
        self.check_row(self.rows(result)[0], "picture one.png", "none", data)

    def test_empty_content(self):
        self.fetch(self.peer.serve("/empty.txt", b""))
        self.assertEqual(self.stored(), {"empty.txt": b""})

    def test_a_table_that_cannot_be_written_is_a_failure(self):
        with open("/dev/full", "wb") as full:
            result = subprocess.run(QS.command("fetch", "-q", "-o", self.out, self.peer.serve("/a.txt", b"text")),
                                    stdout=full, stderr=subprocess.PIPE, timeout=60, cwd=self.root)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertEqual(self.stored(), {"a.txt": b"text"})

    def test_url_without_a_name(self):
        self.fetch(self.peer.serve("/", b"index"))
        self.assertEqual(self.stored(), {"download": b"index"})

    def test_taken_names_get_a_counter(self):
        self.out.mkdir()
        (self.out / "a.txt").write_bytes(b"mine")
        url = self.peer.serve("/a.txt", b"theirs")
        result = self.fetch(url, url)
        self.assertEqual(self.stored(), {"a.txt": b"mine", "a (1).txt": b"theirs", "a (2).txt": b"theirs"})
        self.assertEqual([row["File"] for row in self.rows(result)], ["a (1).txt", "a (2).txt"])

    def test_names_never_leave_the_folder(self):
        names = ["../../evil.bin", "/tmp/evil.bin", "..\\..\\evil.bin", "..", ".", "C:\\evil.bin", "a/../../evil.bin",
                 "x" * 400 + ".bin", "con"]
        urls = [self.peer.serve(f"/{index}", yenc(b"data", name)) for index, name in enumerate(names)]
        urls.append(self.peer.serve("/..%2F..%2Fevil.txt", b"data"))
        self.fetch(*urls)
        self.assertEqual(len(self.stored()), len(urls))
        self.assertEqual([path.name for path in self.root.iterdir()], ["out"])
        for name in self.stored():
            self.assertLessEqual(len(name.encode()), 255)
        self.assertTrue(any(name.startswith("xxx") and name.endswith(".bin") for name in self.stored()))

    def test_damaged_attachments_are_reported_and_not_stored(self):
        data = sample(4000)
        good = yenc(data, "a.bin")
        middle = len(good) // 2
        damaged = {
            "/crc": good.replace(b"crc32=%08x" % zlib.crc32(data), b"crc32=00000001"),
            "/size": good.replace(b"=yend size=4000", b"=yend size=4001"),
            "/cut": good[:middle],
            "/byte": good[:200] + bytes([good[200] ^ 1 or 2]) + good[201:],
            "/uu-cut": uu(data, "b.bin")[:2000],
            "/base64": mime([base64_part(data, "filename=c.bin")]).replace(b"\r\n--BB--\r\n", b""),
        }
        urls = [self.peer.serve(path, article("a", body) if body.startswith((b"=", b"begin")) else body)
                for path, body in damaged.items()]
        urls.insert(2, self.peer.serve("/good", good.replace(b"a.bin", b"good.bin")))
        result = self.fetch(*urls, code=1)
        self.assertEqual(self.stored(), {"good.bin": data})
        verdicts = [row["Verdict"] for row in self.rows(result)]
        self.assertEqual(verdicts.pop(2), "good")
        for verdict in verdicts:
            self.assertTrue(verdict.startswith("damaged: "), verdict)

    def test_a_failed_url_does_not_stop_the_others(self):
        good = self.peer.serve("/good.txt", b"good")
        missing = self.peer.url("/missing.txt")
        broken = self.peer.serve("/broken.txt", b"server error page", status=500)
        moved = self.peer.serve("/moved.txt", b"", status=302, headers={"Location": "http://elsewhere.example/"})
        result = self.fetch(missing, broken, moved, "ftp://127.0.0.1/a.txt", good, code=1)
        self.assertEqual(self.stored(), {"good.txt": b"good"})
        rows = self.rows(result)
        self.assertEqual(rows[0]["File"], missing)
        self.assertEqual(rows[0]["Verdict"], "failed: HTTP status 404")
        self.assertEqual(rows[1]["Verdict"], "failed: HTTP status 500")
        self.assertIn("302, see http://elsewhere.example/", rows[2]["Verdict"])
        self.assertEqual(rows[3]["Verdict"], "failed: only http and https URLs are fetched")
        self.assertEqual(rows[4]["Verdict"], "good")

    def test_nobody_listens(self):
        self.peer.stop()
        result = self.qs("fetch", self.peer.url("/a"), "-o", self.out)
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"failed: ", result.stdout)
        self.assertEqual(self.stored(), {})

    def test_a_cut_transfer_is_a_failure_and_leaves_nothing(self):
        url = self.peer.serve("/a.txt", b"x" * 5000, cut_at=3000)
        result = self.fetch(url, code=1)
        self.assertTrue(self.rows(result)[0]["Verdict"].startswith("failed: "))
        self.assertEqual(self.stored(), {})

    def test_content_above_the_limit_is_stored_as_it_came(self):
        text = yenc(sample(1500000), "a.bin")
        result = self.fetch(self.peer.serve("/post.txt", text), "--memory", 1)
        self.assertEqual(self.stored(), {"post.txt": text})
        row = self.rows(result)[0]
        self.assertEqual(row["MD5"], hashlib.md5(text).hexdigest())
        self.assertEqual(row["Verdict"], "good (not looked into)")

    def test_user_and_password(self):
        url = self.peer.serve("/a.txt", b"secret", auth="Basic " + base64.b64encode(b"ada:pass word").decode())
        self.fetch(url, "--user", "ada", "--password", "pass word")
        self.assertEqual(self.stored(), {"a.txt": b"secret"})
        result = self.fetch(url, "--user", "ada", "--password", "wrong", code=1)
        self.assertEqual(self.rows(result)[0]["Verdict"], "failed: HTTP status 401")
        with_user = url.replace("http://", "http://ada:hidden@")
        result = self.fetch(with_user, code=1)
        self.assertNotIn(b"hidden", result.stdout + result.stderr)

    def test_proxy(self):
        def proxied(*arguments, **how):
            return self.fetch("http://origin.example/a.txt", *arguments, **how)
        self.peer.resources["http://origin.example/a.txt"] = Resource(b"by the proxy")
        proxied("--proxy", "127.0.0.1:%d" % self.peer.server_address[1], "--proxy-user", "p", "--proxy-password", "q")
        self.assertEqual(self.stored(), {"a.txt": b"by the proxy"})
        self.assertEqual(self.peer.requests[-1][1]["Proxy-Authorization"],
                         "Basic " + base64.b64encode(b"p:q").decode())

    def test_the_environment_gives_no_proxy(self):
        self.fetch(self.peer.serve("/a.txt", b"direct"), environment={"http_proxy": "http://127.0.0.1:1"})
        self.assertEqual(self.stored(), {"a.txt": b"direct"})

    def test_progress_goes_to_standard_error(self):
        url = self.peer.serve("/a.txt", b"x" * 5000, pause=0.7)
        result = self.fetch(url)
        self.assertIn(f"[1/1] {url}\n".encode(), result.stderr)
        self.assertRegex(result.stderr.decode(), r"\[1/1\] .*: \S+ .* \(\d+ %\)\n")
        self.assertNotIn(b"\r", result.stderr)
        self.assertEqual(self.fetch(url, "--quiet").stderr, b"")

    def test_progress_line_on_a_terminal_is_erased(self):
        url = self.peer.serve("/a.txt", b"x" * 5000, pause=0.3)
        master, slave = pty.openpty()
        process = subprocess.Popen(QS.command("fetch", url, "-o", self.out), stdout=subprocess.DEVNULL, stderr=slave)
        os.close(slave)
        shown = b""
        with contextlib.suppress(OSError):
            while chunk := os.read(master, 4096):
                shown += chunk
        os.close(master)
        self.assertEqual(process.wait(timeout=60), 0)
        if QS.windows:
            shown = without_cursor_moves(shown)
        self.assertRegex(shown, rb"\r.*a\.txt: .*%\)")
        self.assertNotIn(b"\n", shown)
        self.assertRegex(shown, rb"\r +\r$")

    def test_table_is_last_and_log_lines_can_be_switched_off(self):
        url = self.peer.serve("/a.txt", b"data")
        loud = self.fetch(url).stdout.decode().splitlines()
        self.assertRegex(loud[0], r"\tI\tStored '.*a\.txt'")
        self.assertRegex(loud[-2], r"^File ")
        quiet = self.fetch(url, "-q").stdout.decode().splitlines()
        self.assertEqual(len(quiet), 2)


class Tls(Case):
    """A peer with a certificate that no bundle of this machine knows."""

    def setUp(self):
        super().setUp()
        self.certificate, key = self.root / "cert.pem", self.root / "key.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=localhost",
                        "-addext", "subjectAltName=DNS:localhost", "-keyout", key, "-out", self.certificate],
                       check=True, capture_output=True)
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(self.certificate, key)
        self.peer.stop()
        self.peer = Peer(self.context)
        self.peer.resources["/a.txt"] = Resource(b"by TLS")
        self.port = self.peer.server_address[1]

    def test_verified_with_the_given_authority(self):
        self.fetch(f"https://localhost:{self.port}/a.txt", "--ca", self.certificate)
        self.assertEqual(self.stored(), {"a.txt": b"by TLS"})

    def check_refused(self, *arguments):
        result = self.fetch(*arguments, code=1)
        self.assertRegex(self.rows(result)[0]["Verdict"], r"^failed: .*\(code 60\)")
        self.assertEqual(self.stored(), {})

    def test_unknown_authority_is_refused(self):
        self.check_refused(f"https://localhost:{self.port}/a.txt")

    def trust(self):
        """Puts the certificate into the user's store of the system, in the form that the store has in the registry."""
        der = ssl.PEM_cert_to_DER_cert(self.certificate.read_text())
        key = r"HKCU\Software\Microsoft\SystemCertificates\Root\Certificates" + "\\" + hashlib.sha1(der).hexdigest().upper()
        blob = struct.pack("<III", 32, 1, len(der)) + der
        subprocess.run(QS.system_command("reg", "add", key, "/v", "Blob", "/t", "REG_BINARY", "/d", blob.hex(), "/f"),
                       check=True, capture_output=True, timeout=60)
        self.addCleanup(subprocess.run, QS.system_command("reg", "delete", key, "/f"), check=True, capture_output=True)

    def test_authorities_of_the_system(self):
        if not QS.windows:
            self.skipTest("the authorities of this machine are not the test's to change; those of Wine's prefix are")
        self.trust()
        self.fetch(f"https://localhost:{self.port}/a.txt")
        self.assertEqual(self.stored(), {"a.txt": b"by TLS"})

    def test_a_file_of_authorities_stands_for_those_of_the_system(self):
        if not QS.windows:
            self.skipTest("the authorities of this machine are not the test's to change; those of Wine's prefix are")
        self.trust()
        other = self.root / "other.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=other",
                        "-keyout", self.root / "other.key", "-out", other], check=True, capture_output=True)
        self.check_refused(f"https://localhost:{self.port}/a.txt", "--ca", other)

    def test_other_host_name_is_refused(self):
        self.check_refused(f"https://127.0.0.1:{self.port}/a.txt", "--ca", self.certificate)

    def cut_off(self, answer, code):
        peer = HostilePeer(b"HTTP/1.1 200 OK\r\n" + answer, tls=self.context)
        self.addCleanup(peer.stop)
        return self.rows(self.fetch(peer.url(), "--ca", self.certificate, code=code))[0]["Verdict"]

    def test_what_ends_too_early(self):
        for answer in (b"Content-Length: 10\r\n\r\nabc", b"Transfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n", b"X: y\r\n"):
            self.assertIn("the connection ended before the whole file was there", self.cut_off(answer, 1))
        self.assertEqual(self.stored(), {})

    def test_an_end_without_a_length_is_taken_for_a_good_one(self):
        self.assertEqual(self.cut_off(b"\r\nabc", 0), "good")
        self.assertEqual(self.stored(), {"a.txt": b"abc"})

    def test_insecure(self):
        self.fetch(f"https://127.0.0.1:{self.port}/a.txt", "--insecure")
        self.assertEqual(self.stored(), {"a.txt": b"by TLS"})


class MultiPart(Case):
    def urls(self, parts):
        return [self.peer.serve(f"/part{index}", part) for index, part in enumerate(parts)]

    def test_parts_are_joined_in_any_order(self):
        data = sample(10000)
        urls = self.urls(yenc_parts(data, "a.bin", 4))
        result = self.fetch(urls[2], urls[0], urls[3], urls[1])
        self.assertEqual(self.stored(), {"a.bin": data})
        rows = self.rows(result)
        self.assertEqual(len(rows), 1)
        self.assertEqual(rows[0]["Verdict"], "good (4 parts)")

    def test_parts_in_one_article(self):
        data = sample(3000)
        self.fetch(self.peer.serve("/all", b"".join(yenc_parts(data, "a.bin", 3))))
        self.assertEqual(self.stored(), {"a.bin": data})

    def check_reported(self, urls, expected):
        result = self.fetch(*urls, code=1)
        self.assertEqual(self.stored(), {})
        self.assertRegex(self.rows(result)[0]["Verdict"], expected)

    def test_missing_part(self):
        urls = self.urls(yenc_parts(sample(9000), "a.bin", 3))
        self.check_reported([urls[0], urls[2]], "damaged: bytes 3001 to 6000 are missing")

    def test_part_that_could_not_be_fetched(self):
        urls = self.urls(yenc_parts(sample(9000), "a.bin", 3))
        del self.peer.resources["/part2"]
        self.check_reported(urls, "failed: HTTP status 404")

    def test_overlapping_parts(self):
        data = sample(9000)
        parts = yenc_parts(data, "a.bin", 3)
        parts[1] = yenc(data[2000:6000], "a.bin", 2, 3, 2001, 9000)
        self.check_reported(self.urls(parts), "damaged: parts overlap")

    def test_wrong_total(self):
        self.check_reported(self.urls(yenc_parts(sample(9000), "a.bin", 3, total=4)), "damaged: part 1 announces 4 parts")

    def test_wrong_crc_of_the_whole_file(self):
        self.check_reported(self.urls(yenc_parts(sample(9000), "a.bin", 3, file_crc="12345678")),
                            "damaged: CRC-32 mismatch of the whole file")

    def test_damaged_part(self):
        parts = yenc_parts(sample(9000), "a.bin", 3)
        parts[1] = re.sub(rb"pcrc32=\w+", b"pcrc32=00000000", parts[1])
        self.check_reported(self.urls(parts), "damaged: part 2: CRC-32 mismatch")

    def test_two_posts_at_once(self):
        first, second = sample(5000, 1), sample(5000, 2)
        urls = self.urls(yenc_parts(first, "a.bin", 2) + yenc_parts(second, "b.bin", 2))
        self.fetch(urls[0], urls[2], urls[1], urls[3])
        self.assertEqual(self.stored(), {"a.bin": first, "b.bin": second})


class Resume(Case):
    DATA = b"".join(b"line %06d\n" % number for number in range(2000))

    def cut_then_resume(self):
        url = self.peer.serve("/a.txt", self.DATA, cut_at=9000)
        self.fetch(url, "--resume", code=1)
        self.assertEqual(self.stored(), {"a.txt.part": self.DATA[:9000]})
        return url

    def test_goes_on_where_it_ended(self):
        url = self.cut_then_resume()
        self.peer.serve("/a.txt", self.DATA)
        self.fetch(url, "--resume")
        self.assertEqual(self.peer.requests[-1][1].get("Range"), "bytes=9000-")
        self.assertEqual(self.stored(), {"a.txt": self.DATA})

    def test_server_without_ranges_starts_over(self):
        url = self.cut_then_resume()
        self.peer.serve("/a.txt", self.DATA, ranges=False)
        self.fetch(url, "--resume")
        self.assertEqual(self.stored(), {"a.txt": self.DATA})

    def test_complete_part_needs_nothing_more(self):
        self.out.mkdir()
        (self.out / "a.txt.part").write_bytes(self.DATA)
        self.fetch(self.peer.serve("/a.txt", self.DATA), "--resume")
        self.assertEqual(self.stored(), {"a.txt": self.DATA})
        self.assertEqual(len(self.peer.requests), 1)

    def test_part_longer_than_the_file_starts_over(self):
        self.out.mkdir()
        (self.out / "a.txt.part").write_bytes(self.DATA + b"too much")
        self.fetch(self.peer.serve("/a.txt", self.DATA), "--resume")
        self.assertEqual(self.stored(), {"a.txt": self.DATA})
        self.assertEqual(len(self.peer.requests), 2)

    def test_error_page_never_gets_into_the_part(self):
        url = self.cut_then_resume()
        self.peer.serve("/a.txt", b"error page", status=503)
        result = self.fetch(url, "--resume", code=1)
        self.assertEqual(self.rows(result)[0]["Verdict"], "failed: HTTP status 503")
        self.assertEqual(self.stored(), {"a.txt.part": self.DATA[:9000]})

    def test_error_page_leaves_no_part(self):
        self.fetch(self.peer.serve("/a.txt", b"error page", status=503), "--resume", code=1)
        self.fetch(self.peer.serve("/b.txt", b"error page" * 100, status=503, cut_at=50), "--resume", code=1)
        self.assertEqual(self.stored(), {})

    def test_same_name_from_two_urls(self):
        urls = [self.peer.serve("/x/a.txt", b"x" * 3000, cut_at=1000),
                self.peer.serve("/y/a.txt", b"y" * 3000, cut_at=1000)]
        self.fetch(*urls, "--resume", code=1)
        self.assertEqual(sorted(self.stored().values()), [b"x" * 1000, b"y" * 1000])
        self.peer.serve("/x/a.txt", b"x" * 3000)
        self.peer.serve("/y/a.txt", b"y" * 3000)
        self.fetch(*urls, "--resume")
        self.assertEqual(self.stored(), {"a.txt": b"x" * 3000, "a (1).txt": b"y" * 3000})


class HostilePeer:
    """Answers every request with these bytes, then with more of them for ever if there are any, and ends the connection
    in good order or with a reset; over TLS, when it is given that, without its farewell."""

    def __init__(self, answer, for_ever=b"", reset=False, tls=None):
        self._listener = socket.create_server(("127.0.0.1", 0))
        self._script = answer, for_ever * (65536 // max(len(for_ever), 1)), reset
        self._tls = tls
        self._thread = threading.Thread(target=self._serve)
        self._thread.start()

    def url(self):
        begin = "https://localhost" if self._tls else "http://127.0.0.1"
        return f"{begin}:{self._listener.getsockname()[1]}/a.txt"

    def stop(self):
        self._tls = None  # to say so
        with contextlib.suppress(OSError), socket.create_connection(self._listener.getsockname()) as last:
            last.sendall(b"stop")
        self._thread.join()
        self._listener.close()

    def _secured(self, accepted):
        return self._tls.wrap_socket(accepted, server_side=True) if self._tls else accepted

    def _serve(self):
        answer, for_ever, reset = self._script
        while True:
            accepted = self._listener.accept()[0]
            with accepted, contextlib.suppress(OSError), self._secured(accepted) as client:
                if client.recv(65536) == b"stop":
                    return
                if reset:
                    client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                client.sendall(answer)
                while for_ever:
                    client.sendall(for_ever)


class Hostile(Case):
    OK = b"HTTP/1.1 200 OK\r\n"
    CHUNKED = OK + b"Transfer-Encoding: chunked\r\n\r\n"

    def meet(self, verdict, answer, *options, **script):
        peer = HostilePeer(answer, **script)
        self.addCleanup(peer.stop)
        row = self.rows(self.fetch(peer.url(), *options, code=1))[0]
        self.assertRegex(row["Verdict"], "^failed: .*" + verdict)

    def test_what_has_no_end(self):
        self.meet(r"\(code (27|56|100)\)", self.OK + b"X: ", for_ever=b"x")
        self.meet(r"\(code 56\), worth another try", self.OK, for_ever=b"X: y\r\n")
        self.meet("header lines without end|code 100", self.CHUNKED + b"0\r\n", for_ever=b"X: y\r\n")
        self.assertEqual(self.stored(), {})

    def test_what_ends_too_early(self):
        for answer in (self.OK, self.OK + b"X: y\r\nCont", self.OK + b"Content-Length: 3\r\n\r\nab",
                       self.OK + b"Content-Length: 4294967296\r\n\r\n", self.CHUNKED + b"5\r\nabcde\r\n0\r\n"):
            self.meet("the connection ended before the whole file was there", answer)
        self.meet(r"\(code 52\)", b"")
        self.meet(r"\(code (52|55|56)\)", b"", reset=True)
        self.assertEqual(self.stored(), {})

    def test_what_is_no_answer(self):
        self.meet(r"\(code (1|8)\)", b"garbage\r\n\r\n")
        self.meet(r"\(code 8\)", self.OK + b"Content-Length: -1\r\n\r\nx")
        self.meet(r"\(code 8\)", self.OK + b"X: a\0b\r\n\r\nx")
        self.meet("HTTP status 302, see file:///etc/passwd",
                  b"HTTP/1.1 302 Go\r\nLocation: file:///etc/passwd\r\nContent-Length: 0\r\n\r\n")
        self.assertEqual(self.stored(), {})

    def test_what_is_not_the_rest(self):
        self.out.mkdir()
        for lines in (b"", b"Content-Range: nonsense\r\n", b"Content-Range: bytes -5\r\n",
                      b"Content-Range: bytes 0-4/10\r\n"):
            (self.out / "a.txt.part").write_bytes(b"abcde")
            self.meet("a part that was not asked for", b"HTTP/1.1 206 Part\r\n" + lines +
                      b"Content-Length: 5\r\n\r\nfghij", "--resume")
            self.assertNotIn("a.txt", self.stored())


class Interrupt(Case):
    def interrupted(self, *arguments, times=1):
        slow = self.peer.serve("/slow.txt", b"x" * 500000, pause=0.05)
        first = self.peer.serve("/first.txt", b"first")
        process = subprocess.Popen(QS.command("fetch", first, slow, first, "-o", self.out, *arguments),
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        deadline = time.monotonic() + 30
        while not any(path == "/slow.txt" for path, _ in self.peer.requests) and time.monotonic() < deadline:
            time.sleep(0.01)
        time.sleep(0.5)  # some of the body
        for _ in range(times):
            process.send_signal(signal.SIGINT)
            time.sleep(0.02)
        started = time.monotonic()
        output, errors = process.communicate(timeout=30)
        self.assertLess(time.monotonic() - started, 5)
        self.assertEqual(process.returncode, 130, errors)
        self.assertIn(b"qs: interrupted", errors)
        self.assertIn(b"good", output)
        return output

    def test_no_half_file(self):
        self.interrupted()
        self.assertEqual(self.stored(), {"first.txt": b"first"})

    def test_impatience_changes_nothing(self):
        self.interrupted(times=10)
        self.assertEqual(self.stored(), {"first.txt": b"first"})

    def test_resume_keeps_the_part(self):
        self.interrupted("--resume")
        stored = self.stored()
        self.assertEqual(stored.pop("first.txt"), b"first")
        (name, content), = stored.items()
        self.assertEqual(name, "slow.txt.part")
        self.assertTrue(0 < len(content) < 500000)
        self.peer.serve("/slow.txt", b"x" * 500000)
        self.fetch(self.peer.url("/slow.txt"), "--resume")
        self.assertEqual(self.stored()["slow.txt"], b"x" * 500000)
        self.assertNotIn("slow.txt.part", self.stored())


class Log(Case):
    def test_file_level_and_rotation(self):
        url = self.peer.serve("/a%d.txt", b"data")
        log = self.root / "log"
        self.fetch(url, self.peer.url("/missing"), "--log", log, "--level", "4", code=1)
        text = (log / "qs.log").read_text()
        self.assertRegex(text, r"\tI\t *Stored '.*[/\\]a%d\.txt' \(none, 4 bytes, MD5 [0-9a-f]{32}\) from http")
        self.assertRegex(text, r"\tE\t *Not stored: .*failed: HTTP status 404")
        self.assertRegex(text, r"Response of .*HTTP/1\.[01] 200")
        self.fetch(url, "--log", log)
        self.assertEqual(len(list((log / "backup").iterdir())), 1)
        self.assertNotIn("Response of", (log / "qs.log").read_text())

    def test_no_file_without_the_option(self):
        self.fetch(self.peer.serve("/a.txt", b"data"))
        self.assertEqual([path.name for path in self.root.iterdir()], ["out"])

    def test_folder_that_cannot_be_made(self):
        (self.root / "file").write_bytes(b"")
        result = self.qs("fetch", self.peer.serve("/a.txt", b"data"), "--log", self.root / "file", "-o", self.out)
        self.assertEqual(result.returncode, 1)
        self.assertEqual(len(result.stderr.splitlines()), 1)


# ---- the other commands

class Usage(Case):
    def test_bad_usage(self):
        for arguments in ([], ["fetch"], ["fetch", "--level", "x", "u"], ["fetch", "--level", "100", "u"], ["nothing"],
                          ["fetch", "--ca", "/no/such/file", "u"], ["encode"], ["encode", "--base64", "--uu"],
                          ["encode", "--uu", "--line-length", "40"], ["encode", "--base64", "--text"],
                          ["encode", "--base64", "--line-length", "41"], ["decode", "--uu", "--xx"],
                          ["hash", "--crc32", "--md5"], ["demo", "--data", "/no/such/folder"], ["--wrong"]):
            with self.subTest(arguments):
                result = self.qs(*arguments)
                self.assertEqual(result.returncode, 2)
                self.assertRegex(result.stderr, rb"\Aqs: [^\n]+\n\Z")
                self.assertEqual(result.stdout, b"")

    def test_help(self):
        for arguments in (["--help"], ["fetch", "--help"], ["demo", "--help"], ["encode", "--help"],
                          ["decode", "--help"], ["hash", "--help"]):
            result = self.qs(*arguments)
            self.assertEqual(result.returncode, 0)
            self.assertEqual(result.stderr, b"")
        text = self.qs("fetch", "--help").stdout
        for option in (b"--log", b"--level", b"--user", b"--password", b"--proxy", b"--ca", b"--insecure", b"--resume",
                       b"--timeout", b"--output"):
            self.assertIn(option, text)

    def test_version(self):
        result = self.qs("--version")
        self.assertEqual(result.returncode, 0)
        self.assertRegex(result.stdout.decode(), r"^qs \d+\.\d+\.\d+ \(libcurl \d+\.\d+\.\d+, SSL \d+\.\S+\)\n$")


class Coders(Case):
    CASES = [b"", b"a", b"Cat", b"blank ", bytes(range(256)), b"\r\n" * 40, b"=" * 300, sample(100000)]

    def encode(self, data, *arguments):
        result = self.qs("encode", *arguments, stdin=data)
        self.assertEqual(result.returncode, 0, result.stderr)
        return result.stdout

    def decode(self, text, *arguments, code=0):
        result = self.qs("decode", *arguments, stdin=text)
        self.assertEqual(result.returncode, code, result.stderr)
        return result.stdout

    def test_base64(self):
        for data in self.CASES:
            text = self.encode(data, "--base64")
            self.assertEqual(text, base64.encodebytes(data).replace(b"\n", b"\r\n"))
            self.assertEqual(self.decode(base64.encodebytes(data), "--base64"), data)
        self.assertEqual(self.encode(b"a" * 30, "--base64", "--line-length", 40, "--lf"), b"YWFh" * 10 + b"\n")

    def test_quoted_printable(self):
        import quopri
        for data in self.CASES:
            text = self.encode(data, "--qp")
            self.assertLessEqual(max(map(len, text.split(b"\r\n"))), 76)
            self.assertEqual(binascii.a2b_qp(text), data)
            self.assertEqual(self.decode(binascii.b2a_qp(data, istext=False), "--qp"), data)
        lines = "Grüße\r\nzwei\r\n".encode()
        self.assertEqual(self.encode(lines, "--qp", "--text"), b"Gr=C3=BC=C3=9Fe\r\nzwei\r\n")
        self.assertEqual(self.decode(quopri.encodestring(b"a\n\nb = c\n" * 20), "--qp"), b"a\n\nb = c\n" * 20)

    def test_uu(self):
        for data in self.CASES:
            text = self.encode(data, "--uu", "--name", "a b.bin")
            lines = text.split(b"\r\n")
            self.assertEqual(lines[0], b"begin 644 a b.bin")
            self.assertEqual(lines[-3:], [b"`", b"end", b""])
            self.assertEqual(b"".join(map(binascii.a2b_uu, lines[1:-3])), data)
            self.assertEqual(self.decode(uu(data, "a"), "--uu"), data)
            self.assertEqual(self.decode(uu(data, "a")), data)

    def test_xx(self):
        self.assertEqual(self.encode(b"Cat", "--xx"), b"1Eq3o\r\n+\r\n")
        table = bytes.maketrans(b"`" + bytes(range(33, 96)),
                                b"+-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz")
        for data in self.CASES:
            expected = [binascii.b2a_uu(data[at:at + 45], backtick=True).strip(b"\n").translate(table)
                        for at in range(0, len(data), 45)]
            text = self.encode(data, "--xx", "--name", "a", "--lf")
            self.assertEqual(text.splitlines(), [b"begin 644 a", *expected, b"+", b"end"])
            self.assertEqual(self.decode(text), data)

    def test_yenc(self):
        for data in self.CASES:
            text = self.encode(data, "--yenc", "--name", "a.bin")
            self.assertTrue(text.startswith(b"=ybegin line=128 size=%d name=a.bin\r\n" % len(data)))
            self.assertTrue(text.endswith(b"=yend size=%d crc32=%08x\r\n" % (len(data), zlib.crc32(data))))
            self.assertEqual(self.decode(text), data)
            self.assertEqual(self.decode(yenc(data, "a.bin"), "--yenc"), data)

    def test_files_and_atomic_output(self):
        data = sample(5000)
        source, encoded, back = self.root / "in.bin", self.root / "text", self.root / "back"
        source.write_bytes(data)
        back.write_bytes(b"old")
        self.assertEqual(self.qs("encode", "--yenc", source, "-o", encoded).returncode, 0)
        self.assertIn(b"name=in.bin", encoded.read_bytes())
        self.assertEqual(self.qs("decode", encoded, "-o", back).returncode, 0)
        self.assertEqual(back.read_bytes(), data)
        encoded.write_bytes(encoded.read_bytes().replace(b"size=5000", b"size=5001"))
        result = self.qs("decode", encoded, "-o", back)
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr, rb"\Aqs: 'in.bin' \(yenc\) damaged: [^\n]+\n\Z")
        self.assertEqual(back.read_bytes(), data, "what is damaged replaces nothing")
        self.assertEqual(sorted(path.name for path in self.root.iterdir()), ["back", "in.bin", "text"])

    def test_several_attachments_go_to_a_folder(self):
        text = uu(b"one", "a.txt") + yenc(b"two", "b.txt") + uu(b"three", "a.txt")
        self.decode(text, code=1)
        self.out.mkdir()
        self.decode(text, "-o", self.out)
        self.assertEqual(self.stored(), {"a.txt": b"one", "b.txt": b"two", "a (1).txt": b"three"})

    def test_nothing_to_decode(self):
        for arguments in ([], ["--binhex"], ["--uu"]):
            self.assertEqual(self.decode(b"just prose, nothing else\n", *arguments, code=1), b"")
        result = self.qs("decode", self.root / "missing")
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr, rb"\Aqs: cannot open [^\n]+\n\Z")


def md5sum_line(digest, name):
    escaped = name.replace("\\", "\\\\")
    return ("\\" if escaped != name else "") + f"{digest}  {escaped}\n"


class Hash(Case):
    def test_digests(self):
        for data in (b"", b"abc", sample(300000)):
            path = self.root / "a b.bin"
            path.write_bytes(data)
            expected = {(): hashlib.md5(data).hexdigest(), ("--md5",): hashlib.md5(data).hexdigest(),
                        ("--crc32",): "%08x" % zlib.crc32(data),
                        ("--hmac-key", "key"): hmac.new(b"key", data, "md5").hexdigest()}
            for arguments, digest in expected.items():
                self.assertEqual(self.qs("hash", *arguments, path).stdout.decode(), md5sum_line(digest, QS.native(path)))
                self.assertEqual(self.qs("hash", *arguments, str(path)).stdout.decode(), f"{digest}  {path}\n")
                self.assertEqual(self.qs("hash", *arguments, stdin=data).stdout.decode(), f"{digest}  -\n")

    def test_names_are_taken_as_they_are(self):
        for name in ("Größe €.txt", "日本.txt", "[a] {b}.txt", "-- a"):
            (self.root / name).write_bytes(name.encode())
            digest = hashlib.md5(name.encode()).hexdigest()
            self.assertEqual(self.qs("hash", "--", name).stdout.decode(), f"{digest}  {name}\n")
        result = self.qs("hash", "*.txt")
        self.assertEqual((result.returncode, result.stdout), (1, b""))
        self.assertRegex(result.stderr, rb"\Aqs: cannot open '\*\.txt' [^\n]+\n\Z")

    def test_md5sum_accepts_the_output(self):
        for name in ("plain", "with blank", "back\\slash"):
            if "\\" not in name:
                (self.root / name).write_bytes(name.encode())
        text = self.qs("hash", "plain", "with blank").stdout
        check = subprocess.run(["md5sum", "-c", "--strict", "-"], input=text, cwd=self.root, capture_output=True)
        self.assertEqual(check.returncode, 0, check.stdout + check.stderr)

    def test_missing_file(self):
        (self.root / "a").write_bytes(b"")
        result = self.qs("hash", "missing", "a")
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout, b"d41d8cd98f00b204e9800998ecf8427e  a\n")
        self.assertRegex(result.stderr, rb"\Aqs: cannot open 'missing' [^\n]+\n\Z")


class Demo(Case):
    def demo(self, *arguments, code=0):
        result = self.qs("demo", *arguments, "-o", self.out)
        self.assertEqual(result.returncode, code, result.stdout.decode() + result.stderr.decode())
        return result

    def stored_files(self):
        return {path.name: path.read_bytes() for path in (self.out / "files").iterdir()}

    def test_examples(self):
        result = self.demo("--data", EXAMPLES / "data")
        stored = sorted((hashlib.md5(content).hexdigest(), len(content)) for content in self.stored_files().values())
        expected = sorted((line.split()[0], int(line.split()[1]))
                          for line in (EXAMPLES / "data.md5").read_text().splitlines())
        self.assertEqual(stored, expected)
        rows = self.rows(result)
        damaged = [path for path in (EXAMPLES / "data").iterdir() if path.name.startswith("damaged-")]
        self.assertEqual(sum(row["Verdict"].startswith("damaged") for row in rows), len(damaged))
        self.assertEqual(sum(row["Verdict"].startswith("good") for row in rows), len(expected))
        self.assertIn(b"Stored ", (self.out / "log" / "qs.log").read_bytes())

    def test_default_folders(self):
        temporary = self.root / "tmp"
        temporary.mkdir()
        result = subprocess.run(QS.command_with_temporary(temporary, "demo"), capture_output=True, timeout=60, cwd=self.root)
        result = QS.streams(["demo"], result)
        self.assertEqual(result.returncode, 0, result.stderr)
        named = QS.path(re.search(r"^Everything is in (.+)$", result.stdout.decode(), re.MULTILINE).group(1))
        self.assertEqual(named.parent, temporary)
        self.assertTrue((named / "files").is_dir())
        self.assertTrue((named / "log" / "qs.log").is_file())

    def test_surprises(self):
        data = self.root / "data"
        data.mkdir()
        (data / "README.md").write_bytes(b"not an article")
        (data / "good.txt").write_bytes(uu(b"good", "good.txt"))
        (data / "damaged-a.txt").write_bytes(uu(b"bad", "bad.txt").replace(b"end\n", b""))
        self.demo("--data", data)
        self.assertEqual(self.stored_files(), {"good.txt": b"good"})
        (data / "damaged-b.txt").write_bytes(uu(b"fine", "fine.txt"))
        self.assertIn(b"'damaged-b.txt' should have been reported", self.demo("--data", data, code=1).stderr)
        (data / "damaged-b.txt").rename(data / "c.txt")
        self.demo("--data", data)
        (data / "d.txt").write_bytes(uu(b"bad", "bad.txt").replace(b"end\n", b""))
        self.assertIn(b"'d.txt' did not come out whole", self.demo("--data", data, code=1).stderr)

    def test_damaged_part_beside_a_whole_post(self):
        data = self.root / "data"
        data.mkdir()
        content = sample(4000)
        parts = yenc_parts(content, "a.bin", 2)
        for index, part in enumerate(parts):
            (data / f"a-{index}.txt").write_bytes(part)
        (data / "damaged-a.txt").write_bytes(re.sub(rb"pcrc32=\w+", b"pcrc32=0", parts[1]))
        self.demo("--data", data)
        self.assertEqual(self.stored_files(), {"a.bin": content})

    def test_no_articles(self):
        (self.root / "empty").mkdir()
        self.demo("--data", self.root / "empty", code=1)


if __name__ == "__main__":
    QS, (EXAMPLES,), rest = parse_arguments(__doc__, "examples")
    EXAMPLES = pathlib.Path(EXAMPLES).resolve()
    unittest.main(argv=[sys.argv[0], *rest])
