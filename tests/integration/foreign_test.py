#!/usr/bin/python3
"""Round trips in both directions with encoders, decoders and digests that are not ours, through the qs tool.

Usage: foreign_test.py QS_BINARY [--launcher COMMAND] [unittest arguments]
"""

import base64
import binascii
import hashlib
import hmac
import pathlib
import quopri
import random
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import zlib

import yenc

from common.program import parse_arguments

QS = None  # a Program
EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples"


def samples():
    source = random.Random(20261121)
    yield b""
    for size in (1, 2, 3, 44, 45, 46, 56, 57, 58, 127, 128, 129, 1000, 4096, 65537):
        yield source.randbytes(size)
    yield bytes(range(256)) * 5
    yield b"\0" * 1000
    yield b"=" * 500 + b"\r\n.\r\n..\t" * 40 + b"\x90" * 300
    yield b"a" * 45 + b"\r\n" * 50 + b" " * 45


class ForeignTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="qsbase-foreign-"))
        self.addCleanup(shutil.rmtree, self.folder)

    def run_tool(self, *command, stdin=b""):
        done = subprocess.run(command, input=stdin, capture_output=True, cwd=self.folder, timeout=60, check=False)
        self.assertEqual(done.returncode, 0, (command, done.stdout[:200], done.stderr))
        return done.stdout

    def qs(self, *arguments, stdin=b""):
        return self.run_tool(*QS.command(*arguments), stdin=stdin)

    def file(self, name, content):
        (self.folder / name).write_bytes(content)
        return name

    def for_each_sample(self, check, smallest=0):
        for data in samples():
            if len(data) >= smallest:
                with self.subTest(size=len(data), start=data[:8]):
                    check(data)


class Base64(ForeignTest):
    def test_ours_is_read_by_python_and_coreutils(self):
        def check(data):
            text = self.qs("encode", "--base64", "-", stdin=data)
            self.assertEqual(base64.b64decode(text), data)
            self.assertEqual(self.run_tool("base64", "-d", "-i", stdin=text), data)
            self.assertTrue(all(len(line) <= 76 for line in text.split(b"\r\n")))

        self.for_each_sample(check)

    def test_theirs_is_read_by_us(self):
        def check(data):
            self.assertEqual(self.qs("decode", "--base64", "-", stdin=base64.encodebytes(data)), data)
            self.assertEqual(self.qs("decode", "--base64", "-", stdin=base64.b64encode(data)), data)
            theirs = self.run_tool("openssl", "base64", "-e", stdin=data)
            self.assertEqual(self.qs("decode", "--base64", "-", stdin=theirs), data)

        self.for_each_sample(check)


class QuotedPrintable(ForeignTest):
    def test_ours_is_read_by_python(self):
        def check(data):
            text = self.qs("encode", "--qp", "-", stdin=data)
            self.assertEqual(binascii.a2b_qp(text), data)
            self.assertEqual(quopri.decodestring(text), data)
            self.assertTrue(all(len(line) <= 76 for line in text.split(b"\r\n")))

        self.for_each_sample(check)

    def test_theirs_is_read_by_us(self):
        def check(data):
            theirs = binascii.b2a_qp(data, istext=False).replace(b"=\n", b"=\r\n")
            self.assertEqual(self.qs("decode", "--qp", "-", stdin=theirs), data)

        self.for_each_sample(check)


class Uu(ForeignTest):
    def test_ours_is_read_by_sharutils_and_python(self):
        def check(data):
            text = self.qs("encode", "--uu", "--name", "data.bin", "-", stdin=data)
            self.file("ours.uu", text)
            self.run_tool("uudecode", "-o", "out.bin", "ours.uu")
            self.assertEqual((self.folder / "out.bin").read_bytes(), data)
            lines = text.replace(b"\r\n", b"\n").split(b"\n")[1:-2]
            self.assertEqual(b"".join(map(binascii.a2b_uu, lines)), data)

        self.for_each_sample(check)

    def test_theirs_is_read_by_us(self):
        def check(data):
            theirs = self.run_tool("uuencode", "data.bin", stdin=data)
            self.assertEqual(self.qs("decode", "--uu", "-", stdin=theirs), data)
            self.assertEqual(self.qs("decode", "--uu", "-", stdin=theirs.replace(b"\n", b"\r\n")), data)

        self.for_each_sample(check)


class UudeviewFamily(ForeignTest):
    """uuenview and uudeview know XX, and read what we write in every encoding."""

    def deview(self, name):
        out = self.folder / "out"
        shutil.rmtree(out, ignore_errors=True)
        out.mkdir()
        self.run_tool("uudeview", "-i", "-q", "-p", str(out), name)
        (only,) = out.iterdir()
        return only.name, only.read_bytes()

    def test_ours_is_read_by_uudeview(self):
        # uudeview guesses the encoding from the look of the lines: some length, and nothing monotonous.
        for option in ("--uu", "--xx", "--yenc"):
            for data in (data for data in samples() if len(data) > 4000):
                with self.subTest(option=option, size=len(data)):
                    text = self.qs("encode", option, "--name", "data.bin", "-", stdin=data)
                    self.assertEqual(self.deview(self.file("ours.txt", text)), ("data.bin", data))

    def test_theirs_is_read_by_us(self):
        for theirs, ours in (("-u", "--uu"), ("-x", "--xx"), ("-y", "--yenc")):
            for data in samples():
                if not data:
                    continue
                with self.subTest(option=ours, size=len(data)):
                    self.file("data.bin", data)
                    text = self.run_tool("uuenview", theirs, "data.bin")
                    start = text.index(b"=ybegin " if ours == "--yenc" else b"begin ")
                    self.assertEqual(self.qs("decode", ours, "-", stdin=text[start:]), data)


class Yenc(ForeignTest):
    def test_ours_is_read_by_python_yenc(self):
        def check(data):
            text = self.qs("encode", "--yenc", "--name", "data.bin", "-", stdin=data)
            body = re.fullmatch(rb"=ybegin line=128 size=(\d+) name=data\.bin\r\n(.*)=yend size=(\d+) crc32=(\w{8})\r\n",
                                text, re.DOTALL)
            self.assertIsNotNone(body, text[:80])
            self.assertEqual((int(body[1]), int(body[3])), (len(data), len(data)))
            self.assertEqual(int(body[4], 16), zlib.crc32(data))
            self.assertEqual(yenc._yenc.decode_string(body[2], 0, 0)[0], data)

        self.for_each_sample(check, smallest=1)

    def test_theirs_is_read_by_us(self):
        def check(data):
            encoded = yenc._yenc.encode_string(data, 0, 0)[0]
            text = (b"=ybegin line=128 size=%d name=x\r\n" % len(data) + encoded
                    + b"\r\n=yend size=%d crc32=%08x\r\n" % (len(data), zlib.crc32(data)))
            self.assertEqual(self.qs("decode", "--yenc", "-", stdin=text), data)

        self.for_each_sample(check, smallest=1)


class BinHex(ForeignTest):
    def test_theirs_is_read_by_us(self):
        def check(data):
            self.file("data.bin", data)
            text = self.run_tool("binhex", "-d", "data.bin")
            marker = b"(This file must be converted with BinHex 4.0)\n\n"
            self.assertEqual(self.qs("decode", "--binhex", "-", stdin=marker + text[text.index(b":"):]), data)

        self.for_each_sample(check, smallest=1)


class Nginx(ForeignTest):
    """qs fetch takes every good example from nginx; what it stores has the digests that hashlib gave. TLS is with a
    certificate for "localhost" that only --ca knows."""

    CONFIG = """user root; daemon off; pid {0}/pid; error_log {0}/error.log;
events {{}}
http {{ access_log off; client_body_temp_path {0}/body; proxy_temp_path {0}/proxy; fastcgi_temp_path {0}/fastcgi;
uwsgi_temp_path {0}/uwsgi; scgi_temp_path {0}/scgi;
proxy_buffering off; proxy_buffer_size 64k; proxy_buffers 8 64k; proxy_busy_buffers_size 64k;
server {{ listen 127.0.0.1:{1}; listen 127.0.0.1:{3} ssl http2; ssl_certificate {0}/cert.pem;
ssl_certificate_key {0}/key.pem; root {2}; location /behind/ {{ proxy_pass http://127.0.0.1:{4}; }} }} }}
"""

    def setUp(self):
        super().setUp()
        self.run_tool("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=localhost",
                      "-addext", "subjectAltName=DNS:localhost", "-keyout", "key.pem", "-out", "cert.pem")
        with socket.socket() as plain, socket.socket() as tls:
            plain.bind(("127.0.0.1", 0))
            tls.bind(("127.0.0.1", 0))
            self.port, self.tls_port = plain.getsockname()[1], tls.getsockname()[1]
        self.behind = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(self.behind.close)
        self.file("nginx.conf", self.CONFIG.format(self.folder, self.port, EXAMPLES / "data", self.tls_port,
                                                   self.behind.getsockname()[1]).encode())
        server = subprocess.Popen(["/usr/sbin/nginx", "-p", str(self.folder), "-c", str(self.folder / "nginx.conf")])
        self.addCleanup(server.wait, 10)
        self.addCleanup(server.terminate)
        for _ in range(200):
            with socket.socket() as client:
                if client.connect_ex(("127.0.0.1", self.tls_port)) == 0:
                    return
            time.sleep(0.05)
        self.fail("nginx does not answer")

    def check_every_good_example(self, base, *arguments):
        names = sorted(path.name for path in (EXAMPLES / "data").iterdir()
                       if path.suffix != ".md" and not path.name.startswith("damaged-"))
        self.qs("fetch", "-q", "-o", "out", *arguments, *(f"{base}/{name}" for name in names))
        stored = sorted(hashlib.md5(path.read_bytes()).hexdigest() for path in (self.folder / "out").iterdir())
        expected = sorted(line.split()[0] for line in (EXAMPLES / "data.md5").read_text().splitlines())
        self.assertEqual(stored, expected)

    def test_every_good_example_is_fetched_and_stored(self):
        self.check_every_good_example(f"http://127.0.0.1:{self.port}")

    def test_the_same_by_tls(self):
        self.check_every_good_example(f"https://localhost:{self.tls_port}", "--ca", self.folder / "cert.pem")

    def test_tls_without_the_authority_is_refused(self):
        done = subprocess.run(QS.command("fetch", "-o", "out", f"https://localhost:{self.tls_port}/uu-picture.txt"),
                              capture_output=True, cwd=self.folder, timeout=60, check=False)
        self.assertEqual(done.returncode, 1, done.stderr)
        self.assertRegex(done.stdout, rb"failed: .*\(code 60\)")
        self.assertEqual(list((self.folder / "out").iterdir()), [])

    def test_an_http2_stream_that_breaks_off(self):
        """libcurl's reason begins with "HTTP/", as header lines do. One that knows HTTP/1 only says it otherwise."""
        def answer():
            with self.behind.accept()[0] as client:
                client.recv(65536)
                client.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n" + (b"X-Long: " + b"y" * 100 + b"\r\n") * 300
                               + b"\r\n" + bytes(50000))

        server = threading.Thread(target=answer)
        server.start()
        self.addCleanup(server.join)
        done = subprocess.run(QS.command("fetch", "-q", "-o", "out", "--ca", self.folder / "cert.pem",
                                         f"https://localhost:{self.tls_port}/behind/file"),
                              capture_output=True, cwd=self.folder, timeout=60, check=False)
        self.assertEqual(done.returncode, 1, done.stderr)
        self.assertRegex(done.stdout, rb"failed: (HTTP/2 stream [^\n]*\(code 92\)|the connection ended before .*)\r?\n")
        self.assertEqual(list((self.folder / "out").iterdir()), [])


class Digests(ForeignTest):
    def test_files(self):
        def check(data):
            self.file("data.bin", data)
            ours = self.qs("hash", "--md5", "data.bin")
            self.assertEqual(ours.split()[0].lower(), self.run_tool("md5sum", "data.bin").split()[0])
            self.assertEqual(ours.split()[0].lower().decode(), hashlib.md5(data).hexdigest())
            crc = self.qs("hash", "--crc32", "data.bin").split()[0].lower().decode()
            self.assertEqual(crc, f"{zlib.crc32(data):08x}")
            if data:
                self.assertEqual(crc, self.run_tool("crc32", "data.bin").split()[0].decode())

        self.for_each_sample(check)

    def test_hmac(self):
        for key in ("k", "Jefe", "a" * 64, "b" * 65, "c" * 200):
            for data in samples():
                with self.subTest(key=len(key), size=len(data)):
                    self.file("data.bin", data)
                    ours = self.qs("hash", "--hmac-key", key, "data.bin").split()[0].lower().decode()
                    self.assertEqual(ours, hmac.new(key.encode(), data, "md5").hexdigest())
                    theirs = self.run_tool("openssl", "dgst", "-md5", "-hmac", key, "data.bin").split()[-1]
                    self.assertEqual(ours.encode(), theirs)


if __name__ == "__main__":
    QS, _, rest = parse_arguments(__doc__)
    unittest.main(argv=[sys.argv[0], *rest], verbosity=2)
