#!/usr/bin/env python3
"""What qs does when one call of the system fails: every call of every kind, one after the other, until the operation
runs through without meeting the fault. From the 40th on it is the next but a tenth of their number. Then a full disk, a read-only folder and no descriptors, for real.

Usage: qs_faults_test.py QS_BINARY FAULTS_LIBRARY [unittest arguments]

Allocations are thousands. Those that the start of the program and its command line make are tried at 25 places, the
others at 100 at most, each the same distance from the next. The first ones are made before main, where nobody can catch
what the C++ runtime throws; how many is looked up with "qs --version".
"""

import hashlib
import http.server
import os
import pathlib
import random
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import unittest
import zipfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "integration"))
from common.ftppeer import Peer  # noqa: E402

QS = FAULTS = None
MOST_CALLS = 3000  # of a kind, in one run; more is a program that does not end

# Kind, error, and whether the operation has to run through all the same.
FILE_FAULTS = [("open", "EMFILE"), ("open", "EACCES"), ("read", "EIO"), ("write", "ENOSPC"), ("flush", "EIO"),
               ("close", "EIO"), ("rename", "EACCES"), ("stat", "EIO"), ("unlink", "EACCES"), ("makefolder", "ENOSPC"),
               ("attribute", "EIO")]
HARMLESS_FILE_FAULTS = [("read", "short"), ("write", "short")]
NET_FAULTS = [("connect", "ECONNREFUSED"), ("connect", "ETIMEDOUT"), ("send", "ECONNRESET"), ("receive", "ECONNRESET"),
              ("receive", "ETIMEDOUT")]
HARMLESS_NET_FAULTS = [("send", "EINTR"), ("receive", "EINTR"), ("send", "short"), ("receive", "short")]


class Result:
    def __init__(self, process, hit):
        self.code = process.returncode
        self.out = process.stdout.decode(errors="replace")
        self.err = process.stderr.decode(errors="replace")
        self.hit = hit

    def __repr__(self):
        return f"exit {self.code}, standard output {self.out[-500:]!r}, standard error {self.err[-500:]!r}"


def brief(content):
    """What is as telling as the bytes, and short enough to be shown."""
    return f"{len(content)} bytes, MD5 {hashlib.md5(content).hexdigest()}"


def contents(folder):
    """Path below the folder of each file to its content."""
    return {path.relative_to(folder).as_posix(): path.read_bytes() for path in sorted(folder.rglob("*"))
            if not path.is_dir()}


def briefs(files):
    return {name: brief(content) for name, content in files.items()}


def noise(size, seed=1):
    return random.Random(seed).randbytes(size)


class FaultCase(unittest.TestCase):
    """A test gives: prepare (what stands before each run), command, and check (what stands after it)."""

    maxDiff = 1000
    known_crashes = ()  # by a library that uses memory it did not get

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="qsbase-test-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.work = self.folder / "work"
        self.runs = 0

    def run_qs(self, command, fault="", limit=0):
        """With a fault, or with so many descriptors."""
        hit = self.folder / "hit"
        hit.unlink(missing_ok=True)
        environment = dict(os.environ, QSBASE_FAULT_HIT=str(hit), LD_PRELOAD=FAULTS if fault else "")
        environment.pop("QSBASE_FAULT", None)
        if fault:
            environment["QSBASE_FAULT"] = fault
        limited = (lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (limit, limit))) if limit else None
        process = subprocess.run([QS, *map(str, command)], input=b"", capture_output=True, timeout=60, env=environment,
                                 cwd=self.work if self.work.exists() else None, preexec_fn=limited)
        self.runs += 1
        return Result(process, hit.exists())

    def fresh(self):
        shutil.rmtree(self.work, ignore_errors=True)
        self.work.mkdir()
        self.prepare()

    def try_fault(self, kind, error, number, count=""):
        """One run. Whether the fault hit."""
        self.fresh()
        fault = f"{kind}:{error}:{number}{count}"
        with self.subTest(fault=fault):
            result = self.run_qs(self.command(), fault)
            if not (kind == "allocate" and result.code in self.known_crashes):
                self.assertIn(result.code, (0, 1), result)
            if result.code == 1:
                self.assertTrue(result.hit, result)
                self.assertRegex(result.err + result.out, "(?m)^qs: .|failed: .|damaged: .", "it says why")
            self.check(kind, result)
            return result
        return None  # the test has failed; the sweep goes on

    def sweep(self, faults, harmless=False):
        for kind, error in faults:
            number = 0
            while number < MOST_CALLS:
                number += 1 if number < 40 else number // 10
                result = self.try_fault(kind, error, number)
                if result is not None and not result.hit:
                    self.assertEqual(result.code, 0, result)
                    break
                if result is not None and harmless:
                    self.assertEqual(result.code, 0, (kind, error, number, result))
            else:
                self.fail(f"{kind} never runs through")

    def is_hit(self, command, number):
        return self.run_qs(command, f"allocate:ENOMEM:{number}").hit

    def allocations(self, command):
        """How many the command makes."""
        most = 1
        while self.is_hit(command, most):
            most *= 2
        least = most // 2
        while most - least > 1:
            middle = (least + most) // 2
            least, most = (middle, most) if self.is_hit(command, middle) else (least, middle)
        return least

    def before_main(self):
        """The first allocation whose failure does not end the program by a signal."""
        number = 1
        while self.run_qs(["--version"], f"allocate:ENOMEM:{number}").code < 0:
            number += 1
        self.assertLess(number, 200)
        return number

    def sweep_allocations(self):
        self.fresh()
        start = self.before_main()
        parsed = self.allocations(["hash"]) - 100  # it does little else
        self.fresh()
        whole = self.allocations(self.command())
        self.assertGreater(whole, parsed)
        numbers = [*range(start, parsed, (parsed - start) // 25), *range(parsed, whole + 1, (whole - parsed) // 100 + 1)]
        for number in numbers:
            for count in ("", ":forever"):
                self.try_fault("allocate", "ENOMEM", number, count)


def members(path):
    with zipfile.ZipFile(path) as archive:
        return {name: brief(archive.read(name)) for name in archive.namelist()}


class Zip(FaultCase):
    known_crashes = (-signal.SIGSEGV,)  # minizip, where it begins an entry

    NEW = {"src/": b"", "src/a": b"a" * 5000, "src/noise": noise(150_000)}

    def prepare(self):
        for name, content in self.NEW.items():
            if not name.endswith("/"):
                (self.work / name).parent.mkdir(exist_ok=True)
                (self.work / name).write_bytes(content)
        with zipfile.ZipFile(self.work / "a.zip", "w") as archive:
            archive.writestr("old", b"old content")

    def command(self):
        return ["zip", "-q", "a.zip", "src"]

    def check(self, kind, result):
        left = [name for name in os.listdir(self.work) if name not in ("a.zip", "src")]
        self.assertEqual([] if kind != "unlink" and result.code >= 0 else left, left)
        now = members(self.work / "a.zip")
        if result.code == 0:
            self.assertEqual(now, briefs(self.NEW))
        elif "left out" not in result.err:
            self.assertEqual(now, {"old": brief(b"old content")}, result)
        else:
            self.assertLessEqual(now.items(), briefs(self.NEW).items(), result)
            for name in self.NEW.keys() - now.keys():
                shown = name.rstrip("/").replace("/", "\\")
                self.assertTrue(f"left out: '{shown}'" in result.err or "left out: 'src'" in result.err, result)

    def test_calls(self):
        self.sweep(FILE_FAULTS)
        self.sweep(HARMLESS_FILE_FAULTS, harmless=True)

    def test_allocations(self):
        self.sweep_allocations()


class Unzip(FaultCase):
    NEW = {"d/a": b"a" * 5000, "noise": noise(150_000), "last": b"last"}
    OLD = {"noise": b"old content"}

    def prepare(self):
        with zipfile.ZipFile(self.work / "a.zip", "w", zipfile.ZIP_DEFLATED) as archive:
            for name, content in self.NEW.items():
                archive.writestr(name, content)
        (self.work / "out").mkdir()
        (self.work / "out" / "noise").write_bytes(self.OLD["noise"])

    def command(self):
        return ["unzip", "-q", "a.zip", "-d", "out"]

    def check(self, kind, result):
        files = contents(self.work / "out")
        if kind in ("unlink", "allocate"):  # what cannot be removed is empty
            files = {name: content for name, content in files.items() if name in self.NEW or content != b""}
        if result.code == 0:
            self.assertEqual(briefs(files), briefs(self.NEW), result)
        for name, content in files.items():
            self.assertTrue(content == self.NEW.get(name) or content == self.OLD.get(name), (name, len(content)))
        self.assertIn("noise", files)

    def test_calls(self):
        self.sweep(FILE_FAULTS)
        self.sweep(HARMLESS_FILE_FAULTS + [("read", "EINTR"), ("write", "EINTR")], harmless=True)

    def test_allocations(self):
        self.sweep_allocations()


class Origin:
    """Serves files over HTTP, their rest too when it is asked for."""

    def __init__(self, files):
        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                content = files[self.path[1:]]
                start = int(self.headers.get("Range", "bytes=0-")[6:].rstrip("-"))
                self.send_response(206 if start else 200)
                if start:
                    self.send_header("Content-Range", f"bytes {start}-{len(content) - 1}/{len(content)}")
                self.send_header("Content-Length", str(len(content) - start))
                self.end_headers()
                self.wfile.write(content[start:])

            def log_message(self, *_):
                pass

        class Server(http.server.ThreadingHTTPServer):
            def handle_error(self, *_):
                pass  # the client is gone

        self._server = Server(("127.0.0.1", 0), Handler)
        self._thread = threading.Thread(target=self._server.serve_forever, args=(0.01,))
        self._thread.start()

    def url(self, name):
        return f"http://127.0.0.1:{self._server.server_address[1]}/{name}"

    def stop(self):
        self._server.shutdown()
        self._server.server_close()
        self._thread.join()


class Resume(FaultCase):
    """Half of the file is there; whatever comes of the rest, a run without faults gives the whole of it."""

    CONTENT = noise(400_000)

    def setUp(self):
        super().setUp()
        self.resumed = set()  # sizes that were gone on from
        self.origin = Origin({"file.bin": self.CONTENT})
        self.addCleanup(self.origin.stop)

    def prepare(self):
        (self.work / "file.bin.part").write_bytes(self.CONTENT[:200_000])

    def command(self):
        return ["fetch", "-q", "--resume", self.origin.url("file.bin")]

    def check(self, kind, result):
        now = contents(self.work)
        part = now.pop("file.bin.part", b"")
        self.assertEqual(brief(part), brief(self.CONTENT[:len(part)]), "what a later run goes on with")
        if result.code == 0 or "file.bin" in now:
            self.assertEqual(brief(now.get("file.bin", b"")), brief(self.CONTENT), result)
        if kind != "unlink":
            self.assertLessEqual(set(now), {"file.bin"}, result)
        if result.code != 0 and not now and len(part) not in self.resumed:
            self.resumed.add(len(part))
            again = self.run_qs(self.command())
            self.assertEqual((again.code, briefs(contents(self.work))), (0, briefs({"file.bin": self.CONTENT})), again)

    def test_calls(self):
        self.sweep(FILE_FAULTS)
        self.sweep(HARMLESS_FILE_FAULTS, harmless=True)

    def test_network(self):
        self.sweep(NET_FAULTS)
        self.sweep(HARMLESS_NET_FAULTS, harmless=True)

    def test_allocations(self):
        self.sweep_allocations()


class ResumeFromNothing(Resume):
    """The same without a beginning: the server then states no whole length to compare with."""

    def prepare(self):
        pass


class Attachments(FaultCase):
    """An article with two attachments; an older file has the name of one."""

    FIRST = b"first attachment\n" * 3
    SECOND = b"second\n"
    OLD = b"old content"

    @staticmethod
    def uuencoded(name, data):
        import binascii
        lines = b"".join(binascii.b2a_uu(data[i:i + 45]) for i in range(0, len(data), 45))
        return b"begin 644 " + name + b"\n" + lines + b"`\nend\n"

    def setUp(self):
        super().setUp()
        self.article = (b"Subject: two files\n\nText.\n\n" + self.uuencoded(b"first.txt", self.FIRST) + b"\n" +
                        self.uuencoded(b"second.txt", self.SECOND))
        self.kept_articles = 0
        self.origin = Origin({"article": self.article})
        self.addCleanup(self.origin.stop)

    def prepare(self):
        (self.work / "first.txt").write_bytes(self.OLD)

    def command(self):
        return ["fetch", "-q", self.origin.url("article")]

    def check(self, kind, result):
        now = contents(self.work)
        whole = {"first.txt": self.OLD, "first (1).txt": self.FIRST, "second.txt": self.SECOND}
        kept = {"first.txt": self.OLD, "article": self.article}  # what there is no memory to look into
        if kind != "unlink":
            self.assertLessEqual(set(now), set(whole) | set(kept), result)
        self.assertEqual({name: content for name, content in now.items() if name in whole | kept},
                         {name: content for name, content in (whole | kept).items() if name in now}, result)
        self.assertIn("first.txt", now)
        self.assertEqual("article" in now, "not looked into" in result.out, result)
        self.kept_articles += "article" in now
        if result.code == 0:
            self.assertEqual(now, kept if "article" in now else whole, result)

    def test_calls(self):
        self.sweep(FILE_FAULTS)
        self.sweep(HARMLESS_FILE_FAULTS, harmless=True)

    def test_allocations(self):
        self.sweep_allocations()

    def test_allocations_of_the_looking(self):
        """Each of the last ones: there the article is taken apart, or kept as it came."""
        self.fresh()
        whole = self.allocations(self.command())
        for number in range(whole - 300, whole + 1):
            self.try_fault("allocate", "ENOMEM", number)
        self.assertGreater(self.kept_articles, 0)


class Upload(FaultCase):
    CONTENT = noise(200_000)

    def setUp(self):
        super().setUp()
        self.peer = Peer(listing=b"one\r\ntwo\r\n")
        self.addCleanup(self.peer.stop)

    def prepare(self):
        (self.work / "file.bin").write_bytes(self.CONTENT)
        self.peer.stored.clear()

    def command(self):
        return ["upload", "-q", "file.bin", self.peer.url("in")]

    def check(self, kind, result):
        self.assertTrue((self.work / "file.bin").read_bytes() == self.CONTENT)
        self.assertEqual("file.bin: uploaded" in result.out, result.code == 0, result)
        if result.code == 0:
            self.assertEqual(briefs(self.peer.stored), briefs({b"file.bin": self.CONTENT}), result)

    def test_calls(self):
        self.sweep([("open", "EMFILE"), ("read", "EIO"), ("close", "EIO"), ("stat", "EIO")])
        self.sweep([("read", "short")], harmless=True)

    def test_network(self):
        self.sweep(NET_FAULTS)
        self.sweep(HARMLESS_NET_FAULTS, harmless=True)

    def test_allocations(self):
        self.sweep_allocations()


class List(Upload):
    def command(self):
        return ["ls", self.peer.url("in")]

    def check(self, kind, result):
        if result.code == 0:
            self.assertEqual(result.out, "one\ntwo\n", result)


class Real(FaultCase):
    """No fault library: the system itself refuses."""

    def test_output_that_nobody_can_write(self):
        self.work.mkdir()
        with zipfile.ZipFile(self.work / "a.zip", "w") as archive:
            archive.writestr("a", b"a")
        for command in (["unzip", "-l", "a.zip"], ["sysinfo"], ["host"], ["url", "http://a.org/"], ["hash", "a.zip"],
                        ["encode", "--base64", "a.zip"], ["--version"], ["--help"], ["zip", "--help"]):
            with self.subTest(command=command), open("/dev/full", "wb") as full:
                process = subprocess.run([QS, *command], stdin=subprocess.DEVNULL, stdout=full, stderr=subprocess.PIPE,
                                         cwd=self.work, timeout=60)
                self.assertEqual(process.returncode, 1)
                self.assertIn(b"qs: cannot write to standard output", process.stderr)


    def full_disk(self):
        """A disk of 64 KiB; skips the test where this user may mount none."""
        disk = self.work / "disk"
        disk.mkdir(parents=True)
        if os.geteuid() != 0 or subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "none", disk],
                                               capture_output=True).returncode != 0:
            self.skipTest("only root can mount a small file system, and not in every container")
        self.addCleanup(subprocess.run, ["umount", "-l", disk], check=True)
        return disk

    def fails(self, command, text, **options):
        result = self.run_qs(command, **options)
        self.assertEqual(result.code, 1, result)
        self.assertIn(text, result.err + result.out)

    def test_full_disk(self):
        disk = self.full_disk()
        big = noise(200_000)
        (self.work / "big").write_bytes(big)
        with zipfile.ZipFile(disk / "a.zip", "w") as archive:
            archive.writestr("old", b"old content")
        old = members(disk / "a.zip")
        self.fails(["zip", "-q", "disk/a.zip", "big"], "cannot write the entry 'big'")
        self.assertEqual(members(disk / "a.zip"), old)
        with zipfile.ZipFile(self.work / "big.zip", "w") as archive:
            archive.write(self.work / "big", "old")
        (disk / "old").write_bytes(b"old content")
        self.fails(["unzip", "-q", "big.zip", "-d", "disk"], "Could not write uncompressed file")
        origin = Origin({"old": big})
        self.addCleanup(origin.stop)
        self.fails(["fetch", "-q", origin.url("old"), "-o", "disk"], "failed: cannot store 'old (1)' (No space left")
        self.assertEqual(set(os.listdir(disk)), {"a.zip", "old"})
        self.assertEqual((disk / "old").read_bytes(), b"old content")
        self.fails(["fetch", "-q", "--resume", origin.url("old"), "-o", "disk"], "failed: Failure writing output")
        part = (disk / "old.part").read_bytes()
        self.assertGreater(len(part), 0)
        self.assertTrue(big.startswith(part))
        shutil.move(disk / "old.part", self.work)  # to where there is room
        result = self.run_qs(["fetch", "-q", "--resume", origin.url("old")])
        self.assertEqual(result.code, 0, result)
        self.assertEqual(brief((self.work / "old").read_bytes()), brief(big))

    def test_folder_that_may_not_be_written(self):
        disk = self.full_disk()
        with zipfile.ZipFile(disk / "a.zip", "w") as archive:
            archive.writestr("new", b"content")
        subprocess.run(["mount", "-o", "remount,ro", disk], check=True)
        before = briefs(contents(disk))
        origin = Origin({"new": b"content"})
        self.addCleanup(origin.stop)
        for command in (["zip", "-q", "disk/a.zip", "."], ["unzip", "-q", "disk/a.zip", "-d", "disk"],
                        ["fetch", "-q", origin.url("new"), "-o", "disk"],
                        ["fetch", "-q", "--resume", origin.url("new"), "-o", "disk"],
                        ["encode", "--uu", "disk/a.zip", "-o", "disk/out"]):
            with self.subTest(command=command):
                result = self.run_qs(command)
                self.assertEqual(result.code, 1, result)
                self.assertRegex(result.err + result.out, "(?m)^qs: .|failed: .")
                self.assertEqual(briefs(contents(disk)), before)

    def test_no_descriptors_left(self):
        self.work.mkdir()
        (self.work / "file").write_bytes(b"content")
        with zipfile.ZipFile(self.work / "a.zip", "w") as archive:
            archive.writestr("new", b"content")
        before = briefs(contents(self.work))
        origin = Origin({"new": b"content"})
        self.addCleanup(origin.stop)
        peer = Peer()
        self.addCleanup(peer.stop)
        for command in (["zip", "-q", "a.zip", "file"], ["unzip", "-q", "a.zip"], ["fetch", "-q", origin.url("new")],
                        ["fetch", "-q", "--resume", origin.url("new")], ["upload", "-q", "file", peer.url("in")],
                        ["ls", peer.url("in")]):
            met = 0
            for descriptors in range(4, 64):  # one to load the program's libraries by
                with self.subTest(command=command, descriptors=descriptors):
                    result = self.run_qs(command, limit=descriptors)
                    self.assertIn(result.code, (0, 1), result)
                    if result.code == 0:
                        break
                    met += 1
                    self.assertRegex(result.err + result.out, "(?m)^qs: .|failed: .")
                    self.assertEqual(briefs(contents(self.work)), before, result)
            self.assertGreater(met, 0, command)
            for name in set(contents(self.work)) - {"file", "a.zip"}:
                (self.work / name).unlink()
            with zipfile.ZipFile(self.work / "a.zip", "w") as archive:
                archive.writestr("new", b"content")
            before = briefs(contents(self.work))


if __name__ == "__main__":
    QS, FAULTS = (str(pathlib.Path(path).resolve()) for path in sys.argv[1:3])
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
