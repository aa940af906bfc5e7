#!/usr/bin/python3
"""Archives of 10,000 small files and of one large one: the library beside libzip, unzip, zip and 7z.

usage: archives.py PATH_TO_ARCHIVES_PROGRAM [MEBIBYTES_OF_THE_LARGE_FILE [RUNS]]

Wall time, processor time and peak memory of whole processes; medians, the programs in turn. Every extraction is
compared with what went into the archive before anything is timed. libzip and the library use zlib; zip, unzip and 7z
have coders of their own. Memory below that of this script (about 18 MiB) does not show.
"""

import filecmp
import os
import pathlib
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

PROGRAM = pathlib.Path(sys.argv[1]).resolve()
LARGE = int(sys.argv[2]) if len(sys.argv) > 2 else 2048
RUNS = int(sys.argv[3]) if len(sys.argv) > 3 else 5


def words(source, size):
    vocabulary = [bytes(source.choices(b"abcdefghijklmnopqrstuvwxyz", k=source.randrange(2, 11))) for _ in range(3000)]
    return b" ".join(source.choices(vocabulary, k=size // 6))[:size]


def make_small(folder):
    source = random.Random(1)
    text = words(source, 1 << 20)
    for i in range(10000):
        path = folder / f"d{i % 100}"
        path.mkdir(exist_ok=True)
        start = source.randrange(len(text) - 8192)
        (path / f"f{i}.txt").write_bytes(text[start:start + source.randrange(8192)])


def make_large(folder):
    source = random.Random(2)
    with open(folder / "large", "wb") as file:
        for _ in range(LARGE):
            file.write(words(source, 1 << 19))
            file.write(source.randbytes(1 << 17))
            file.write(b"0123456789abcdef" * (3 << 13))


def run(command, cwd=None):
    """Seconds of the clock and of the processor, and MiB."""
    start = time.perf_counter()
    process = subprocess.Popen([str(word) for word in command], cwd=cwd, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    seconds = time.perf_counter() - start
    if status != 0:
        raise SystemExit(f"failed: {command[:5]}")
    return seconds, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def apart(action, *arguments):
    """Runs it in another process: what this one has ever had in memory, the system counts for those it starts, too."""
    process = os.fork()
    if process == 0:
        done = action(*arguments)
        os._exit(0 if done is not False else 1)
    return os.waitpid(process, 0)[1] == 0


def same(one, two):
    comparison = filecmp.dircmp(one, two)
    return (not comparison.left_only and not comparison.right_only
            and not filecmp.cmpfiles(one, two, comparison.common_files, shallow=False)[1]
            and all(same(one / sub, two / sub) for sub in comparison.common_dirs))


def table(title, results):
    print(f"\n{title}")
    for name, runs in results.items():
        seconds, processor, memory = (statistics.median(column) for column in zip(*runs))
        print(f"  {name:8} {seconds:8.3f} s {processor:8.3f} s of the processor {memory:8.1f} MiB")


def measure(title, folder, work):
    archive, out = work / "a.zip", work / "out"
    files = sorted(path.relative_to(folder).as_posix() for path in folder.rglob("*") if path.is_file())
    writers = {"qs": [PROGRAM, "qs", "write", archive, *files], "libzip": [PROGRAM, "libzip", "write", archive, *files],
               "zip": ["zip", "-q", "-X", archive, *files], "7z": ["7z", "a", "-tzip", "-mx=5", "-mmt=1", archive, *files]}
    readers = {"qs": [PROGRAM, "qs", "extract", archive, out], "libzip": [PROGRAM, "libzip", "extract", archive, out],
               "unzip": ["unzip", "-q", archive, "-d", out], "7z": ["7z", "x", "-mmt=1", f"-o{out}", archive]}

    def write(name):
        archive.unlink(missing_ok=True)
        return run(writers[name], folder)

    def read(name):
        shutil.rmtree(out, ignore_errors=True)
        return run(readers[name])

    write("qs")
    for name in readers:
        read(name)
        if not apart(same, folder, out):
            raise SystemExit(f"{name} extracts something else")
    results = {name: [] for name in readers}
    for _ in range(RUNS):
        for name in readers:
            results[name].append(read(name))
    table(f"extract {title}", results)
    shutil.rmtree(out)
    results = {name: [] for name in writers}
    for _ in range(RUNS):
        for name in writers:
            results[name].append(write(name))
    table(f"write {title}", results)


def main():
    print(f"load {os.getloadavg()[0]:.1f} on {os.cpu_count()} processors")
    for title, make in (("10,000 small files", make_small), (f"one file of {LARGE} MiB", make_large)):
        with tempfile.TemporaryDirectory(prefix="archives-") as name:
            work = pathlib.Path(name)
            (work / "in").mkdir()
            if not apart(make, work / "in"):
                raise SystemExit("cannot make the files")
            measure(title, work / "in", work)
    print(f"\nload {os.getloadavg()[0]:.1f} at the end")


main()
