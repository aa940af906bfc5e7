#!/usr/bin/python3
"""The coders beside their peers: checks outputs, takes times, writes two pictures and the tables of benchmarks.md.

usage: coders.py PATH_TO_BENCH_CODERS DOCS_FOLDER [--quick] [--rounds N]

Rounds (5) in which everyone takes a turn; medians of them, time of the processor. Each picture and table is made from
the rounds of this one call. --quick takes one short round, and sizes up to 1 MiB for the second picture.
"""

import argparse
import collections
import datetime
import json
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

import charts

HERE = pathlib.Path(__file__).resolve().parent
LARGE = 16 << 20
TINY = 64
LEVELS = ["scalar", "sse4", "avx2", "avx512"]

TITLES = {
    "base64-encode": "Base64 encode, lines",
    "base64-decode": "Base64 decode, lines",
    "base64-encode-unbroken": "Base64 encode, unbroken",
    "base64-decode-unbroken": "Base64 decode, unbroken",
    "yenc-encode": "yEnc encode",
    "yenc-decode": "yEnc decode",
    "uu-encode": "UU encode",
    "uu-decode": "UU decode",
    "xx-encode": "XX encode",
    "xx-decode": "XX decode",
    "qp-encode-text": "QP encode, text",
    "qp-decode-text": "QP decode, text",
    "qp-encode-random": "QP encode, random",
    "qp-decode-random": "QP decode, random",
    "binhex-decode": "BinHex decode",
    "hex-encode": "hex encode",
    "hex-decode": "hex decode",
    "lower-case": "lower case",
    "md5": "MD5",
    "crc32": "CRC-32",
}

# What the kernels are to reach: times this peer ("best": the best one; "memcpy").
GOALS = [
    ("base64-encode", "best", 6), ("base64-encode", "memcpy", 0.25),
    ("base64-decode", "GLib", 8), ("base64-decode", "OpenSSL", 8), ("base64-decode", "memcpy", 0.2),
    ("yenc-encode", "memcpy", 0.27), ("yenc-encode", "yencode", 1),
    ("yenc-decode", "memcpy", 0.42), ("yenc-decode", "yencode", 1),
    ("uu-encode", "best", 10), ("uu-decode", "best", 10), ("xx-encode", "best", 10), ("xx-decode", "best", 10),
    ("qp-decode-text", "Python", 2), ("qp-decode-random", "Python", 8),
    ("qp-encode-text", "Python", 8), ("qp-encode-random", "Python", 8),
    ("binhex-decode", "hexbin (process)", 10), ("binhex-decode", "uulib", 10),
    ("hex-encode", "memcpy", 0.2), ("hex-decode", "memcpy", 0.2),
    ("md5", "OpenSSL", 1),
]

GROWTH_PANELS = [
    ("Base64", ["base64-encode", "base64-decode"]),
    ("yEnc", ["yenc-encode", "yenc-decode"]),
    ("UU and XX", ["uu-encode", "uu-decode", "xx-encode", "xx-decode"]),
    ("quoted-printable", ["qp-encode-text", "qp-decode-text", "qp-encode-random", "qp-decode-random"]),
    ("BinHex, hex text, case", ["binhex-decode", "hex-encode", "hex-decode", "lower-case"]),
    ("digests", ["md5", "crc32"]),
]


class Times:
    """Seconds of one call by job, contestant and size."""

    def __init__(self):
        self._samples = collections.defaultdict(list)

    def add(self, job, who, size, seconds):
        self._samples[job, who, size].append(seconds)

    def seconds(self, job, who, size):
        samples = self._samples.get((job, who, size))
        return statistics.median(samples) if samples else None

    def rate(self, job, who, size=LARGE):
        """GB/s of data."""
        seconds = self.seconds(job, who, size)
        return size / seconds / 1e9 if seconds else None

    def contestants(self, job, size):
        return [who for other, who, its_size in self._samples if other == job and its_size == size]

    def sizes(self, job, who):
        return sorted(size for other, its, size in self._samples if other == job and its == who)

    def peers(self, job):
        """The best one first."""
        names = [who for who in self.contestants(job, LARGE) if who.split()[0] not in ("kernel", "interface")]
        return sorted(((who, self.rate(job, who)) for who in names), key=lambda peer: -peer[1])

    def ours(self, job, level):
        """Our fastest form: the kernel, or what has no kernel of its own."""
        return self.rate(job, f"kernel {level}") or self.rate(job, f"interface {level}")

    def rounds(self):
        return len(self._samples["memcpy", "memcpy", LARGE])

    def memcpy(self):
        return self.rate("memcpy", "memcpy")

    def level(self):
        found = {who.split()[1] for who in self.contestants("base64-encode", LARGE) if who.startswith("interface ")}
        return max(found, key=LEVELS.index)


def run(*command):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"{command[0]}: {done.stderr}")
    return done.stdout


def scripts():
    found = [[HERE / "peers.py"], [HERE / "peers.pl"]]
    if shutil.which("node"):
        found.append(["node", HERE / "peers.js"])
    return found


def time_program(times, program, pattern, min_time, folder):
    out = folder / "times.json"
    run(program, f"--benchmark_filter={pattern}", f"--benchmark_min_time={min_time}", f"--benchmark_out={out}",
        "--benchmark_out_format=json")
    for row in json.loads(out.read_text())["benchmarks"]:
        job, who, size = row["name"].rsplit("/", 2)
        times.add(job, who, int(size), row["cpu_time"] / 1e9)


def time_scripts(times, folder, min_time):
    for script in scripts():
        for line in run(*script, folder, min_time).splitlines():
            job, who, seconds = line.split("\t")
            times.add(job, who, LARGE, float(seconds))


def measure(program, quick, rounds):
    times = Times()
    rounds, min_time = (1, 0.005) if quick else (rounds, 0.03)
    growth_rounds = 1 + rounds // 4
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    with tempfile.TemporaryDirectory(dir=memory, prefix="coders-") as name:
        folder = pathlib.Path(name)
        print("comparing outputs", flush=True)
        run(program, "--check", folder)
        for script in scripts():
            run(*script, folder, "check")
        for turn in range(rounds):
            print(f"round {turn + 1} of {rounds}", flush=True)
            time_program(times, program, f"/({LARGE}|{TINY})$", min_time, folder)
            time_scripts(times, folder, min_time)
        others = [4 ** power for power in range(4, 15) if 4 ** power != LARGE]
        sizes = "|".join(str(size) for size in others if not quick or size <= 1 << 20)
        for turn in range(growth_rounds):
            print(f"sizes, round {turn + 1} of {growth_rounds}", flush=True)
            time_program(times, program, f"/(memcpy|malloc, memcpy|interface {times.level()})/({sizes})$", min_time / 3, folder)
    return times


# The report


def machine():
    cpu = re.search(r"^model name\s*:\s*(.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.M)
    system = re.search(r'^PRETTY_NAME="(.*)"$', pathlib.Path("/etc/os-release").read_text(), re.M)
    compiler = run("g++", "-dumpfullversion").strip()
    return f"{cpu[1] if cpu else 'unknown processor'}, {os.cpu_count()} cores, {system[1]}, GCC {compiler}"


def figure(value, digits=3):
    if value is None:
        return ""
    text = f"{value:.{digits}g}"
    return f"{value:.0f}" if "e" in text else text


def row(*cells):
    return "| " + " | ".join(cells) + " |\n"


def rates_table(times, level):
    text = row("GB/s", "kernel", "of memcpy", "interface", "scalar kernel", "peers") + "|---|---:|---:|---:|---:|---|\n"
    for job, title in TITLES.items():
        kernel = times.rate(job, f"kernel {level}")
        peers = ", ".join(f"{who} {figure(rate, 2)}" for who, rate in times.peers(job))
        text += row(title, figure(kernel), figure(times.ours(job, level) / times.memcpy(), 2),
                    figure(times.rate(job, f"interface {level}")), figure(times.rate(job, "kernel scalar")), peers)
    return text


def goal(times, level, job, peer, wanted):
    peers = dict(times.peers(job))
    if peer == "best" and peers:
        peer = times.peers(job)[0][0]
    peers["memcpy"] = times.memcpy()
    if peer not in peers:
        return None
    ratio = times.ours(job, level) / peers[peer]
    return row(TITLES[job], peer, figure(wanted), figure(ratio), "yes" if ratio >= wanted else "no")


def goals_table(times, level):
    rows = [goal(times, level, *wanted) for wanted in GOALS]
    return row("job", "beside", "wanted", "ratio", "reached") + "|---|---|---:|---:|---|\n" + "".join(filter(None, rows))


def tiny_table(times, level):
    """What 64 bytes cost at each level."""
    levels = LEVELS[:LEVELS.index(level) + 1]
    text = row("ns a call", *(f"{what} {name}" for what in ("kernel", "interface") for name in levels), "slowest level / scalar")
    text += "|---|" + "---:|" * (2 * len(levels) + 1) + "\n"
    for job, title in TITLES.items():
        cells = [times.seconds(job, f"{what} {name}", TINY) for what in ("kernel", "interface") for name in levels]
        own = cells[:len(levels)] if cells[0] else cells[len(levels):]
        ratio = max(own[1:], default=own[0]) / own[0]
        text += row(title, *(figure(cell and cell * 1e9) for cell in cells), figure(ratio, 2))
    return text


def growth_table(times, level):
    who = f"interface {level}"
    sizes = times.sizes("base64-encode", who)
    text = row("GB/s", *map(charts.size_name, sizes)) + "|---|" + "---:|" * len(sizes) + "\n"
    for job, title in TITLES.items():
        text += row(title, *(figure(times.rate(job, who, size)) for size in sizes))
    for who in ("memcpy", "malloc, memcpy"):
        text += row(who, *(figure(times.rate("memcpy", who, size)) for size in sizes))
    return text


def section(times, where):
    level = times.level()
    return f"""Measured on {where}; vectors of level {level}; load {os.getloadavg()[0]:.1f} at the end.

One thread, time of the processor, rounds in which everyone takes a turn (medians of {times.rounds()}), GB (10^9 bytes)
of data a second whichever way the data goes. 16 MiB of random bytes in memory, or of mail text; memcpy of as much
{figure(times.memcpy())} GB/s, and {figure(times.rate("memcpy", "malloc, memcpy"))} into memory from malloc.

![Rates of the coders beside their peers](benchmarks-coders.svg)

{rates_table(times, level)}
What the kernels are to reach:

{goals_table(times, level)}
How the time of a call grows with its data:

![Time of a call from 64 bytes to 256 MiB](benchmarks-coders-growth.svg)

{growth_table(times, level)}
64 bytes of data:

{tiny_table(times, level)}"""


def rewrite(page, text):
    begin, end = "<!-- written by scripts/bench coders -->\n", "<!-- end of what scripts/bench coders writes -->\n"
    old = page.read_text() if page.exists() else begin + end
    head, tail = old.split(begin)[0], old.split(end)[1]
    page.write_text(head + begin + "\n" + text + "\n" + end + tail)


def draw(times, docs, where):
    level = times.level()
    ours = [("kernel", f"kernel {level}"), ("interface", f"interface {level}"), ("scalar", "kernel scalar")]
    groups = []
    for job, title in TITLES.items():
        bars = [(name, times.rate(job, who), name) for name, who in ours if times.rate(job, who)]
        groups.append((title, bars + [(who, rate, "peer") for who, rate in times.peers(job)]))
    (docs / "benchmarks-coders.svg").write_text(charts.bars(groups, times.memcpy(), where))
    panels = []
    for title, jobs in GROWTH_PANELS:
        lines = [(who, "memcpy", who) for who in ("memcpy", "malloc, memcpy")]
        lines += [(TITLES[job].replace(", lines", ""), job, f"interface {level}") for job in jobs]
        panels.append((title, [(name, [(size, times.seconds(job, who, size)) for size in times.sizes(job, who)])
                               for name, job, who in lines]))
    (docs / "benchmarks-coders-growth.svg").write_text(charts.growth(panels, where))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("program", type=pathlib.Path)
    parser.add_argument("docs", type=pathlib.Path)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--rounds", type=int, default=5)
    arguments = parser.parse_args()
    arguments.docs.mkdir(parents=True, exist_ok=True)
    times = measure(arguments.program.resolve(), arguments.quick, arguments.rounds)
    where = f"{datetime.date.today()}, {machine()}"
    text = section(times, where)
    rewrite(arguments.docs / "benchmarks.md", text)
    draw(times, arguments.docs, where)
    print(text)


main()
