#!/usr/bin/python3
"""Coders written in C that are called from Python, and programs.

usage: peers.py FOLDER check      compares what they make of each job.data or job.text of the folder
       peers.py FOLDER SECONDS    prints, for each job and peer: job, peer, seconds of the processor for one call

coders.py starts it. A program is a whole process with a file in and a file out.
"""

import base64
import binascii
import os
import pathlib
import resource
import subprocess
import sys
import time

import _yenc
import sabyenc3

FOLDER = pathlib.Path(sys.argv[1])
OUT = FOLDER / "out"


def data(job):
    return (FOLDER / f"{job}.data").read_bytes()


def text(job):
    return (FOLDER / f"{job}.text").read_bytes()


def without_breaks(coded):
    return coded.replace(b"\r", b"").replace(b"\n", b"")


def uu_encode(raw):
    lines = [binascii.b2a_uu(raw[at:at + 45], backtick=True) for at in range(0, len(raw), 45)]
    return b"".join(lines) + b"`\n"


def uu_decode(coded):
    return b"".join(map(binascii.a2b_uu, coded.splitlines()))


def sabyenc_decode(coded):
    return sabyenc3.decode_usenet_chunks([coded])[0]


def article(coded):
    size = len(data("yenc-decode"))
    head = f"222 0 <a>\r\n\r\n=ybegin line=128 size={size} name=out\r\n".encode()
    crc = binascii.crc32(data("yenc-decode"))
    return head + coded + f"=yend size={size} crc32={crc:08x}\r\n.\r\n".encode()


def program(*command, output=None):
    def run():
        with open(output or os.devnull, "wb") as out:
            subprocess.run(command, check=True, stdout=out, stderr=subprocess.DEVNULL, cwd=FOLDER)
    return run


def write(name, content):
    path = FOLDER / name
    path.write_bytes(content)
    return str(path)


def body(name):
    """Without the lines "begin" and "end"."""
    return without_breaks(b"".join((FOLDER / name).read_bytes().splitlines(True)[1:-1]))


def in_process():
    """job, peer, call, its argument, and how to tell that the result is right."""
    plain = "base64-encode-unbroken", "base64-decode-unbroken"
    raw = data("md5")
    coded = {job: text(job) for job in ("base64-decode", plain[1], "uu-decode", "qp-decode-text", "qp-decode-random",
                                        "hex-decode", "yenc-decode")}
    mail, ascii_mail = data("qp-encode-text"), data("lower-case")

    def same(job):
        wanted = data(job)
        return lambda result: result == wanted

    def same_text(job):
        wanted = without_breaks(text(job))
        return lambda result: without_breaks(result) == wanted

    def back(decode, wanted):
        return lambda result: decode(result) == wanted

    def unquoted(wanted):
        return back(binascii.a2b_qp, wanted)

    return [
        ("base64-encode", "Python", base64.encodebytes, raw, same_text("base64-encode")),
        ("base64-decode", "Python", binascii.a2b_base64, coded["base64-decode"], same("base64-decode")),
        (plain[0], "Python", binascii.b2a_base64, raw, same_text(plain[0])),
        (plain[1], "Python", binascii.a2b_base64, coded[plain[1]], same(plain[1])),
        ("uu-encode", "Python", uu_encode, raw, same_text("uu-encode")),
        ("uu-decode", "Python", uu_decode, coded["uu-decode"], same("uu-decode")),
        ("qp-encode-text", "Python", lambda raw: binascii.b2a_qp(raw, istext=True), mail, unquoted(mail)),
        ("qp-decode-text", "Python", binascii.a2b_qp, coded["qp-decode-text"], same("qp-decode-text")),
        ("qp-encode-random", "Python", lambda raw: binascii.b2a_qp(raw, istext=False), raw, unquoted(raw)),
        ("qp-decode-random", "Python", binascii.a2b_qp, coded["qp-decode-random"], same("qp-decode-random")),
        ("hex-encode", "Python", binascii.hexlify, raw, lambda result: result.upper() == coded["hex-decode"]),
        ("hex-decode", "Python", binascii.unhexlify, coded["hex-decode"], same("hex-decode")),
        ("lower-case", "Python", bytes.lower, ascii_mail, same_text("lower-case")),
        ("yenc-encode", "python3-yenc", lambda raw: _yenc.encode_string(raw, 0, 0)[0], raw,
         back(lambda coded: _yenc.decode_string(coded, 0, 0)[0], raw)),
        ("yenc-decode", "python3-yenc", lambda coded: _yenc.decode_string(coded, 0, 0)[0], coded["yenc-decode"],
         same("yenc-decode")),
        ("yenc-encode", "sabyenc", lambda raw: sabyenc3.encode(raw)[0], raw,
         back(lambda coded: _yenc.decode_string(coded, 0, 0)[0], raw)),
        ("yenc-decode", "sabyenc", sabyenc_decode, article(coded["yenc-decode"]), same("yenc-decode")),
    ]


def programs():
    """job, program, call, and how to tell that the file it made is right."""
    raw = write("raw", data("md5"))
    begin, end = b"begin 644 out\n", b"end\n"
    broken = {job: text(job).replace(b"\r\n", b"\n") for job in ("base64-decode", "uu-decode", "xx-decode")}
    uu = write("file.uu", begin + broken["uu-decode"] + end)
    base64_text = write("file.b64", broken["base64-decode"])
    hqx = write("file.hqx", text("binhex-decode"))
    wanted = data("md5")

    def is_raw(name):
        return lambda: (FOLDER / name).read_bytes() == wanted

    uu_body, xx_body = without_breaks(text("uu-encode")), without_breaks(text("xx-encode"))
    return [
        ("base64-encode", "base64 (process)", program("base64", raw, output=OUT),
         lambda: without_breaks(OUT.read_bytes()) == without_breaks(text("base64-encode"))),
        ("base64-decode", "base64 (process)", program("base64", "-d", base64_text, output=OUT), is_raw("out")),
        ("uu-encode", "sharutils (process)", program("uuencode", raw, "out", output=OUT), lambda: body("out") == uu_body),
        ("uu-decode", "sharutils (process)", program("uudecode", "-o", str(OUT), uu), is_raw("out")),
        ("xx-encode", "uuenview (process)", program("uuenview", "-x", raw, output=OUT),
         lambda: xx_body in without_breaks(OUT.read_bytes())),
        ("binhex-decode", "hexbin (process)", program("hexbin", "-d", hqx), is_raw("out.data")),
    ]


def seconds_of(call, at_least):
    """Processor time of a call, children included; called again until it is long enough to be timed."""
    def now():
        children = resource.getrusage(resource.RUSAGE_CHILDREN)
        return time.process_time() + children.ru_utime + children.ru_stime

    calls = 0
    start = now()
    while True:
        call()
        calls += 1
        elapsed = now() - start
        if elapsed >= at_least:
            return elapsed / calls


def main():
    checks = sys.argv[2] == "check"
    for job, peer, call, argument, is_right in in_process():
        if not checks:
            print(job, peer, seconds_of(lambda: call(argument), float(sys.argv[2])), sep="\t")
        elif not is_right(call(argument)):
            sys.exit(f"peers.py: {job} by {peer}: the outputs differ")
    for job, name, run, is_right in programs():
        if not checks:
            print(job, name, seconds_of(run, float(sys.argv[2])), sep="\t")
            continue
        run()
        if not is_right():
            sys.exit(f"peers.py: {job} by {name}: the outputs differ")


main()
