#!/usr/bin/python3
"""The qs tool's coding beside programs: sharutils, coreutils and Python's C codecs.

usage: processes.py PATH_TO_QS [MEBIBYTES]

Whole processes: a file in, a file out, everything counted. Medians of five runs; outputs are compared before anything
is timed.
"""

import binascii
import os
import pathlib
import random
import statistics
import subprocess
import sys
import tempfile
import time

RUNS = 5


def median_seconds(action):
    times = []
    for _ in range(RUNS):
        start = time.perf_counter()
        action()
        times.append(time.perf_counter() - start)
    return statistics.median(times)


def mail_text(size):
    words = "the harbour light of evening über a=b ships and tides was (quiet), don't 2026-11-21.".split()
    source = random.Random(20261121)
    lines = []
    length = 0
    while length < size:
        line = " ".join(source.choice(words) for _ in range(9))
        lines.append(line)
        length += len(line) + 2
    return ("\r\n".join(lines) + "\r\n").encode()[:size]


PYTHON = {
    "uu encode": "import binascii,sys;d=open(sys.argv[1],'rb').read();"
    "open(sys.argv[2],'wb').write(b''.join(binascii.b2a_uu(d[i:i+45],backtick=True) for i in range(0,len(d),45)))",
    "uu decode": "import binascii,sys;"
    "open(sys.argv[2],'wb').write(b''.join(map(binascii.a2b_uu,open(sys.argv[1],'rb').read().split(b'\\n')[1:-3])))",
    "qp encode": "import binascii,sys;"
    "open(sys.argv[2],'wb').write(binascii.b2a_qp(open(sys.argv[1],'rb').read(),istext=True))",
    "qp decode": "import binascii,sys;"
    "open(sys.argv[2],'wb').write(binascii.a2b_qp(open(sys.argv[1],'rb').read()))",
    "base64 encode": "import base64,sys;open(sys.argv[2],'wb').write(base64.encodebytes(open(sys.argv[1],'rb').read()))",
    "base64 decode": "import binascii,sys;"
    "open(sys.argv[2],'wb').write(binascii.a2b_base64(open(sys.argv[1],'rb').read()))",
}


def run(*command, output=None):
    with open(output or os.devnull, "wb") as out:
        subprocess.run(command, check=True, stdout=out)


def whole_process(qs, folder, binary, text):
    rows = []

    def row(job, size, peers):
        for name, action in peers:
            seconds = median_seconds(action)
            rows.append((job, name, size / seconds / 1e6))

    raw, mail = folder / "raw", folder / "mail"
    raw.write_bytes(binary)
    mail.write_bytes(text)
    out = str(folder / "out")
    uu, qp, b64 = folder / "uu", folder / "qp", folder / "b64"
    run("uuencode", str(raw), "raw", output=uu)
    qp.write_bytes(binascii.b2a_qp(text, istext=True))
    run("base64", str(raw), output=b64)

    def python(job, source):
        return lambda: run(sys.executable, "-c", PYTHON[job], str(source), out)

    def tool(direction, flag, source):
        return lambda: run(qs, direction, *flag.split(), str(source), "-o", out)

    def check(action, expected, what):
        action()
        if pathlib.Path(out).read_bytes() != expected:
            sys.exit(f"processes.py: {what}: the outputs differ")

    check(tool("decode", "--uu", uu), binary, "qs decode --uu")
    check(tool("decode", "--qp", qp), text, "qs decode --qp")
    check(tool("decode", "--base64", b64), binary, "qs decode --base64")

    row("uu encode", len(binary), [("qs", tool("encode", "--uu", raw)), ("Python", python("uu encode", raw)),
                                   ("sharutils", lambda: run("uuencode", str(raw), "raw", output=out))])
    row("uu decode", len(binary), [("qs", tool("decode", "--uu", uu)), ("Python", python("uu decode", uu)),
                                   ("sharutils", lambda: run("uudecode", "-o", out, str(uu)))])
    row("qp encode", len(text), [("qs", tool("encode", "--qp --text", mail)), ("Python", python("qp encode", mail))])
    row("qp decode", len(text), [("qs", tool("decode", "--qp", qp)), ("Python", python("qp decode", qp))])
    row("base64 encode", len(binary), [("qs", tool("encode", "--base64", raw)),
                                       ("Python", python("base64 encode", raw)),
                                       ("coreutils", lambda: run("base64", str(raw), output=out))])
    row("base64 decode", len(binary), [("qs", tool("decode", "--base64", b64)),
                                       ("Python", python("base64 decode", b64)),
                                       ("coreutils", lambda: run("base64", "-d", str(b64), output=out))])
    return rows


def show(title, rows):
    print(f"\n{title}\n")
    print(f"| {'job':26} | {'program':10} | MB/s |\n|---|---|---:|")
    for job, name, rate in rows:
        print(f"| {job:26} | {name:10} | {rate:.0f} |")


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    size = int(sys.argv[2] if len(sys.argv) > 2 else 64) << 20
    binary = random.Random(1).randbytes(size)
    text = mail_text(size)
    with tempfile.TemporaryDirectory() as name:
        show(f"Whole process, {size >> 20} MiB", whole_process(sys.argv[1], pathlib.Path(name), binary, text))


if __name__ == "__main__":
    main()
