#!/usr/bin/python3
"""HTTP downloads and small requests beside the curl command and programs written directly on libcurl.

usage: http.py PATH_TO_HTTP_TRANSFERS [MEBIBYTES [REQUESTS]]

A server of its own on loopback (nginx). Whole processes: wall time, CPU time and the most memory each had, medians of
five interleaved runs. What is downloaded is compared before anything is timed.
"""

import filecmp
import os
import pathlib
import random
import socket
import statistics
import subprocess
import sys
import tempfile
import time

RUNS = 5

CONFIGURATION = """
daemon off; master_process off; pid {dir}/pid; error_log stderr; {user}
events {{}}
http {{
  access_log off; sendfile on; keepalive_requests 1000000;
  client_body_temp_path {dir}/t1; proxy_temp_path {dir}/t2; fastcgi_temp_path {dir}/t3; uwsgi_temp_path {dir}/t4;
  scgi_temp_path {dir}/t5;
  server {{ listen 127.0.0.1:{port}; root {dir}; }}
}}
"""


def serve(folder):
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]
    user = "user root;" if os.geteuid() == 0 else ""
    (folder / "nginx.conf").write_text(CONFIGURATION.format(dir=folder, port=port, user=user))
    search = os.environ["PATH"] + ":/usr/sbin:/sbin"
    server = subprocess.Popen(["nginx", "-e", "stderr", "-p", str(folder), "-c", str(folder / "nginx.conf")],
                              env=dict(os.environ, PATH=search))
    for _ in range(500):
        try:
            socket.create_connection(("127.0.0.1", port)).close()
            return server, f"http://127.0.0.1:{port}/"
        except OSError:
            time.sleep(0.01)
    server.kill()
    sys.exit("http.py: nginx does not answer")


def run(command):
    """Wall seconds, CPU seconds, peak memory in MiB."""
    start = time.perf_counter()
    child = subprocess.Popen([str(word) for word in command])
    _, status, usage = os.wait4(child.pid, 0)
    wall = time.perf_counter() - start
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        sys.exit(f"http.py: {command} failed")
    return wall, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def measure(title, jobs, folder):
    """The jobs in turn, so that each meets the same moods of the machine; the first is what the others stand beside."""
    results = {name: [] for name, _ in jobs}
    for _ in range(RUNS):
        for name, command in jobs:
            results[name].append(run(command))
            for left in folder.glob("out*"):
                left.unlink()
    print(f"\n{title}\n\n| program | wall s | ratio | CPU s | most memory, MiB |\n|---|---:|---:|---:|---:|")
    medians = {name: [statistics.median(column) for column in zip(*runs)] for name, runs in results.items()}
    base = medians[jobs[0][0]][0]
    for name, (wall, cpu, memory) in medians.items():
        print(f"| {name} | {wall:.2f} | {wall / base:.2f} | {cpu:.2f} | {memory:.0f} |")


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    program = str(pathlib.Path(sys.argv[1]).resolve())
    mebibytes = int(sys.argv[2]) if len(sys.argv) > 2 else 1024
    requests = int(sys.argv[3]) if len(sys.argv) > 3 else 10000
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        piece = random.Random(20261121).randbytes(1 << 20)
        with open(folder / "large", "wb") as large:
            for _ in range(mebibytes):
                large.write(piece)
        (folder / "small").write_bytes(piece[:1000])
        server, url = serve(folder)
        try:
            run([program, "file", url + "large", folder / "out"])
            if not filecmp.cmp(folder / "large", folder / "out", shallow=False):
                sys.exit("http.py: the contents differ")
            measure(f"{mebibytes} MiB into a file", [
                ("curl", ["curl", "-s", "-o", folder / "out1", url + "large"]),
                ("QsInetHttp", [program, "file", url + "large", folder / "out2"]),
                ("libcurl, flushed", [program, "flushed", url + "large", folder / "out3"]),
                ("libcurl, not flushed", [program, "unflushed", url + "large", folder / "out4"]),
            ], folder)
            measure(f"{mebibytes} MiB into memory", [
                ("curl, to nowhere", ["curl", "-s", "-o", "/dev/null", url + "large"]),
                ("QsInetHttp", [program, "memory", url + "large"]),
                ("libcurl, std::string", [program, "string", url + "large"]),
            ], folder)
            measure(f"{requests} requests for 1000 bytes", [
                ("libcurl, a handle each", [program, "direct", url + "small", requests]),
                ("QsInetHttp", [program, "requests", url + "small", requests]),
                ("libcurl, one connection", [program, "kept", url + "small", requests]),
            ], folder)
        finally:
            server.terminate()
            server.wait()


if __name__ == "__main__":
    main()
