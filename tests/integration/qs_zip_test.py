#!/usr/bin/env python3
"""qs zip and qs unzip, and through them the library's archives, beside unzip, zip, 7z and Python's zipfile.

Usage: qs_zip_test.py QS_BINARY [--launcher COMMAND] [unittest arguments]
"""

import datetime
import io
import os
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import zipfile

from common.program import parse_arguments

QS = None  # a Program


def qs(*arguments):
    result = subprocess.run(QS.command(*arguments), capture_output=True, timeout=120)
    return QS.streams(arguments, result)


def peer(*words, **options):
    return subprocess.run([str(word) for word in words], capture_output=True, timeout=120, **options)


def needs(program):
    return unittest.skipUnless(shutil.which(program), f"{program} is not installed")


def tree(folder):
    """What is below a folder: bytes of files, None for folders."""
    return {path.relative_to(folder).as_posix(): path.read_bytes() if path.is_file() else None
            for path in sorted(folder.rglob("*"))}


class ZipTest(unittest.TestCase):
    maxDiff = 2000

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="qs-zip-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.archive = self.folder / "a.zip"
        self.out = self.folder / "out"

    def make_tree(self, utf8=True):
        source = self.folder / "in" / "top"
        (source / "empty").mkdir(parents=True)
        (source / "deep" / "er").mkdir(parents=True)
        (source / "nothing").write_bytes(b"")
        (source / "text.txt").write_bytes(b"line\r\n" * 5000)
        (source / "deep" / "er" / "noise").write_bytes(random.Random(7).randbytes(300000))
        (source / "deep" / "a b").write_bytes(b"blank")
        if utf8 and not QS.windows:
            (source / "gr\u00fc\u00dfe \u20ac").write_bytes(b"utf-8")
        return source

    def extracted(self, archive=None):
        result = qs("unzip", archive or self.archive, "-d", self.out, "-q")
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        return tree(self.out)

    def refused(self, text):
        result = qs("unzip", self.archive, "-d", self.out, "-q")
        self.assertEqual(result.returncode, 1)
        self.assertIn(text, result.stderr)
        self.assertTrue(result.stderr.startswith(b"qs: "), result.stderr)
        self.assertEqual(result.stderr.count(b"\n"), 1)


class Written(ZipTest):
    """Archives of qs zip, opened by others."""

    def setUp(self):
        super().setUp()
        self.source = self.make_tree()
        result = qs("zip", self.archive, self.source, "-q")
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, b"", b""))
        path = self.source.relative_to("/").as_posix()
        self.names = {f"{path}/{name}" + ("" if content is not None else "/"): content
                      for name, content in tree(self.source).items()}
        self.names[path + "/"] = None

    def test_python(self):
        with zipfile.ZipFile(self.archive) as archive:
            self.assertIsNone(archive.testzip())
            self.assertEqual({name: None if name.endswith("/") else archive.read(name) for name in archive.namelist()},
                             self.names)
            self.assertEqual(archive.comment, b"")
            for info in archive.infolist():
                on_disk = datetime.datetime.fromtimestamp(os.path.getmtime("/" + info.filename))
                self.assertLess(abs(datetime.datetime(*info.date_time) - on_disk), datetime.timedelta(seconds=3))

    @needs("unzip")
    def test_unzip(self):
        self.assertEqual(peer("unzip", "-t", self.archive).returncode, 0)
        self.assertEqual(peer("unzip", "-q", self.archive, "-d", self.out, env={**os.environ, "LC_ALL": "C.UTF-8"}).returncode, 0)
        self.assertEqual(tree(self.out / self.source.relative_to("/")), tree(self.source))

    @needs("7z")
    def test_7z(self):
        tested = peer("7z", "t", self.archive)
        self.assertEqual(tested.returncode, 0, tested.stdout)
        self.assertNotIn(b"arning", tested.stdout)
        self.assertEqual(peer("7z", "x", f"-o{self.out}", self.archive, env={**os.environ, "LC_ALL": "C.UTF-8"}).returncode, 0)
        self.assertEqual(tree(self.out / self.source.relative_to("/")), tree(self.source))

    def test_qs(self):
        self.extracted()
        self.assertEqual(tree(self.out / self.source.relative_to("/")), tree(self.source))

    def test_list(self):
        result = qs("unzip", "-l", self.archive)
        self.assertEqual(result.returncode, 0, result.stderr)
        lines = result.stdout.decode().splitlines()
        files = {name: content for name, content in self.names.items() if content is not None}
        self.assertEqual(sorted(lines[:-1]), sorted(files))
        self.assertEqual(lines[-1], f"{len(files)} files, {sum(map(len, files.values()))} bytes")


class Read(ZipTest):
    """Archives of others, read by qs unzip."""

    def test_python_stored_and_deflated(self):
        contents = {"s": b"stored" * 1000, "d/e/f": b"deflated" * 50000, "nothing": b"", "noise": random.Random(1).randbytes(200000)}
        for method in (zipfile.ZIP_STORED, zipfile.ZIP_DEFLATED):
            with zipfile.ZipFile(self.archive, "w", method) as archive:
                for name, content in contents.items():
                    archive.writestr(name, content)
                archive.comment = b"a comment " * 100
            self.assertEqual(self.extracted(), {**contents, "d": None, "d/e": None})

    def test_python_unseekable_has_data_descriptors(self):
        class Pipe(io.RawIOBase):
            def __init__(self, target):
                self.target = target

            def writable(self):
                return True

            def write(self, data):
                return self.target.write(data)

        with open(self.archive, "wb") as target, zipfile.ZipFile(Pipe(target), "w", zipfile.ZIP_DEFLATED) as archive:
            archive.writestr("a", b"text" * 10000)
            archive.writestr("b", b"")
        with zipfile.ZipFile(self.archive) as archive:
            self.assertTrue(archive.getinfo("a").flag_bits & 8)
        self.assertEqual(self.extracted(), {"a": b"text" * 10000, "b": b""})

    def test_python_zip64(self):
        with zipfile.ZipFile(self.archive, "w", zipfile.ZIP_DEFLATED) as archive:
            with archive.open("a", "w", force_zip64=True) as entry:
                entry.write(b"text" * 10000)
        self.assertEqual(self.extracted(), {"a": b"text" * 10000})

    def test_python_zip64_by_count(self):
        with zipfile.ZipFile(self.archive, "w") as archive:
            for i in range(65536 + 10):
                archive.writestr(f"{i}/", b"")
            archive.writestr("last", b"x")
        listed = qs("unzip", "-l", self.archive)
        self.assertEqual((listed.returncode, listed.stdout), (0, b"last\n1 file, 1 bytes\n"))

    def test_python_unknown_methods(self):
        for method in (zipfile.ZIP_BZIP2, zipfile.ZIP_LZMA):
            with zipfile.ZipFile(self.archive, "w", method) as archive:
                archive.writestr("a", b"text" * 1000)
            self.refused(b"unsupported compression method")
        self.assertEqual(tree(self.out), {})

    @unittest.skipIf(os.name == "nt", "no such names")
    def test_python_utf8_names(self):
        if QS.windows:
            self.skipTest("names are in the ANSI code page there")
        with zipfile.ZipFile(self.archive, "w") as archive:
            archive.writestr("gr\u00fc\u00dfe/\u20ac.txt", b"x")
        self.assertEqual(self.extracted(), {"gr\u00fc\u00dfe": None, "gr\u00fc\u00dfe/\u20ac.txt": b"x"})

    def test_python_self_extracting(self):
        with zipfile.ZipFile(self.archive, "w", zipfile.ZIP_DEFLATED) as archive:
            archive.writestr("a", b"text" * 1000)
        self.archive.write_bytes(b"#!/bin/sh\nexit\n" * 3000 + self.archive.read_bytes())
        self.assertEqual(self.extracted(), {"a": b"text" * 1000})

    @needs("zip")
    def test_zip(self):
        source = self.make_tree()
        for options in ([], ["-0"], ["-9"], ["-fz"], ["-D"]):
            self.archive.unlink(missing_ok=True)
            shutil.rmtree(self.out, ignore_errors=True)
            self.assertEqual(peer("zip", "-r", *options, self.archive, source.name, cwd=source.parent).returncode, 0)
            expected = tree(source)
            if options == ["-D"]:
                del expected["empty"]
            self.extracted()
            self.assertEqual(tree(self.out / source.name), expected)

    @needs("zip")
    def test_zip_from_a_pipe(self):
        with open(self.archive, "wb") as target:
            subprocess.run(["zip", "-q", "-", "-"], input=b"piped" * 10000, stdout=target, check=True, timeout=60)
        self.assertEqual(self.extracted(), {"-": b"piped" * 10000})

    @needs("zip")
    def test_zip_encrypted(self):
        (self.folder / "secret").write_bytes(b"text" * 100)
        peer("zip", "-P", "key", self.archive, "secret", cwd=self.folder)
        self.refused(b"file is password-protected")
        self.assertEqual(tree(self.out), {})

    @needs("zip")
    def test_zip_link_becomes_a_file(self):
        os.symlink("/etc/passwd", self.folder / "link")
        peer("zip", "-y", self.archive, "link", cwd=self.folder)
        self.assertEqual(self.extracted(), {"link": b"/etc/passwd"})
        self.assertFalse((self.out / "link").is_symlink())

    @needs("7z")
    def test_7z(self):
        source = self.make_tree()
        for options in (["-mx=1"], ["-mx=9"], ["-mm=Copy"]):
            self.archive.unlink(missing_ok=True)
            shutil.rmtree(self.out, ignore_errors=True)
            self.assertEqual(peer("7z", "a", "-tzip", *options, self.archive, source.name, cwd=source.parent,
                                  env={**os.environ, "LC_ALL": "C.UTF-8"}).returncode, 0)
            self.extracted()
            self.assertEqual(tree(self.out / source.name), tree(source))

    @needs("7z")
    def test_7z_refused(self):
        (self.folder / "file").write_bytes(b"text" * 10000)
        for options, text in ((["-mm=LZMA"], b"unsupported compression method"),
                              (["-mm=BZip2"], b"unsupported compression method"),
                              (["-mm=Deflate64"], b"unsupported compression method"),
                              (["-pkey"], b"file is password-protected"),
                              (["-pkey", "-mem=AES256"], b"unsupported compression method")):
            self.archive.unlink(missing_ok=True)
            self.assertEqual(peer("7z", "a", "-tzip", *options, self.archive, "file", cwd=self.folder).returncode, 0)
            self.refused(text)
        self.assertEqual(tree(self.out), {})


class Tool(ZipTest):
    def test_a_folder_itself_and_its_archive_within(self):
        source = self.make_tree(utf8=False)
        result = subprocess.run(QS.command("zip", "in.zip", ".", "-q"), cwd=source, capture_output=True, timeout=60)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        result = subprocess.run(QS.command("zip", "in.zip", ".", "-q"), cwd=source, capture_output=True, timeout=60)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        names = zipfile.ZipFile(source / "in.zip").namelist()
        self.assertIn("deep/er/noise", names)
        self.assertFalse([name for name in names if name.startswith(("/", ".", "in.zip"))])
        self.assertEqual(len(names), len(set(names)))

    def test_only_the_archive_itself_is_left_out(self):
        source = self.make_tree(utf8=False)
        (source / "a.zip").write_bytes(b"another of that name")
        for archive, expected in (("../a.zip", True), (source / "a.zip", False)):
            result = subprocess.run(QS.command("zip", archive, ".", "-q"), cwd=source, capture_output=True, timeout=60)
            self.assertEqual((result.returncode, result.stderr), (0, b""))
            with zipfile.ZipFile(source / archive) as written:
                self.assertEqual("a.zip" in written.namelist(), expected)
                self.assertIn("text.txt", written.namelist())

    def test_what_is_left_out_is_named(self):
        if QS.windows:
            self.skipTest("the pipes and links of the host are none to Wine")
        source = self.make_tree(utf8=False)
        os.mkfifo(source / "deep" / "pipe")
        (source / "dangling").symlink_to("nowhere")
        (source / "around").symlink_to("deep")
        (source / "same.txt").symlink_to("text.txt")
        result = qs("zip", self.archive, source, "-q")
        self.assertEqual((result.returncode, result.stdout), (1, b""))
        lines = sorted(line for line in result.stderr.decode().splitlines() if line.startswith("qs: left out: "))
        self.assertEqual([line.rsplit("\\", 1)[1] for line in lines],
                         [f"{name}': neither a file nor a folder of its own" for name in ("around", "dangling", "pipe")])
        with zipfile.ZipFile(self.archive) as written:
            names = written.namelist()
            self.assertEqual([name for name in names if "er/noise" in name], [names[0][:-1] + "/deep/er/noise"])
            self.assertEqual(written.read(names[0] + "same.txt"), b"line\r\n" * 5000)

    def test_a_parent_is_not_in_the_name(self):
        source = self.make_tree(utf8=False)
        result = subprocess.run(QS.command("zip", "../a.zip", "../text.txt", "-q"), cwd=source / "deep", capture_output=True, timeout=60)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        self.assertEqual(zipfile.ZipFile(source / "a.zip").namelist(), ["text.txt"])

    def test_a_missing_file_keeps_the_old_archive(self):
        self.archive.write_bytes(b"old")
        result = qs("zip", self.archive, self.folder / "none")
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"no such file or folder", result.stderr)
        self.assertEqual(os.listdir(self.folder), ["a.zip"])
        self.assertEqual(self.archive.read_bytes(), b"old")

    def test_an_old_archive_is_replaced(self):
        self.archive.write_bytes(b"old")
        (self.folder / "x").write_bytes(b"new")
        self.assertEqual(qs("zip", self.archive, self.folder / "x", "-q").returncode, 0)
        self.assertEqual(len(zipfile.ZipFile(self.archive).namelist()), 1)
        self.assertEqual(sorted(os.listdir(self.folder)), ["a.zip", "x"])

    def test_no_archive(self):
        self.refused(b"File does not exist")
        self.archive.write_bytes(b"no archive")
        self.refused(b"Could not open file")
        self.assertEqual(qs("unzip", "-l", self.archive).returncode, 1)
        self.assertEqual(qs("unzip").returncode, 2)
        self.assertEqual(qs("zip", self.archive).returncode, 2)

    def test_an_entry_that_would_leave_is_refused(self):
        for name in ("../evil", "a/../../evil", "..\\evil"):
            with zipfile.ZipFile(self.archive, "w") as archive:
                archive.writestr(name, b"x")
            self.refused(b"Extraction error")
            self.assertEqual(sorted(os.listdir(self.folder)), ["a.zip", "out"])

    def test_damage_keeps_the_old_file(self):
        with zipfile.ZipFile(self.archive, "w") as archive:
            archive.writestr("x", b"new content")
        data = bytearray(self.archive.read_bytes())
        data[data.index(b"new content")] ^= 1
        self.archive.write_bytes(data)
        self.out.mkdir()
        (self.out / "x").write_bytes(b"old")
        self.refused(b"CRC error")
        self.assertEqual(tree(self.out), {"x": b"old"})

    def test_progress_goes_to_standard_error(self):
        with zipfile.ZipFile(self.archive, "w") as archive:
            archive.writestr("x", b"new")
        result = qs("unzip", self.archive, "-d", self.out)
        self.assertEqual((result.returncode, result.stdout), (0, b""))
        self.assertIn(b"a.zip", result.stderr)

    def test_ctrl_c_ends_between_entries(self):
        if QS.windows:
            self.skipTest("a console's Ctrl-C cannot be sent from here")
        count = 60000
        with zipfile.ZipFile(self.archive, "w") as archive:
            for i in range(count):
                archive.writestr(f"{i % 100}/{i}", b"x")
        process = subprocess.Popen(QS.command("unzip", self.archive, "-d", self.out, "-q"), stderr=subprocess.PIPE)
        while not (self.out / "0").exists() and process.poll() is None:
            time.sleep(0.001)
        process.send_signal(signal.SIGINT)
        _, shown = process.communicate(timeout=60)
        self.assertEqual((process.returncode, shown), (130, b""))
        files = [path for path in self.out.rglob("*") if path.is_file()]
        self.assertLess(len(files), count)
        self.assertTrue(all(path.read_bytes() == b"x" for path in files))


if __name__ == "__main__":
    QS, _, rest = parse_arguments(__doc__)
    unittest.main(argv=[sys.argv[0], *rest])
