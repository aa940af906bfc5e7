#!/usr/bin/env python3
"""End-to-end tests of qs sysinfo beside what the system's own programs tell: lscpu, free, df, os-release.

Usage: qs_sysinfo_test.py QS_BINARY [--launcher COMMAND] [unittest arguments]
"""

import os
import platform
import re
import subprocess
import sys
import unittest

from common.program import parse_arguments

QS = None  # a Program
MOST = 2147483647


def output_of(*command):
    return subprocess.run(command, capture_output=True, timeout=60, env={**os.environ, "LC_ALL": "C"}).stdout.decode()


def sysinfo():
    """The facts by their names, each a list of values."""
    result = QS.streams(("sysinfo",), subprocess.run(QS.command("sysinfo"), capture_output=True, timeout=60))
    assert result.returncode == 0, result
    facts = {}
    for line in result.stdout.decode().splitlines():
        facts.setdefault(line[:12].rstrip(), []).append(line[13:])
    return facts


class Sysinfo(unittest.TestCase):
    def test_every_fact_is_there(self):
        facts = sysinfo()
        self.assertLessEqual({"system", "processors", "memory", "swap", "file system"}, set(facts))
        self.assertRegex(facts["memory"][0], r"^\d+ KiB, \d+ KiB free$")
        self.assertRegex(facts["swap"][0], r"^\d+ KiB, \d+ KiB free$")

    def test_takes_no_arguments(self):
        result = subprocess.run(QS.command("sysinfo", "more"), capture_output=True, timeout=60)
        self.assertEqual(result.returncode, 2)


class Linux(unittest.TestCase):
    def setUp(self):
        if QS.windows:
            self.skipTest("Linux's own programs are asked")

    def test_processors(self):
        facts = sysinfo()
        cpu = dict(re.findall(r"^([^:]+):\s*(.*)$", output_of("lscpu"), re.MULTILINE))
        online = output_of("lscpu", "--online", "--parse=CPU")
        self.assertEqual(facts["processors"], [str(sum(not line.startswith("#") for line in online.splitlines()))])
        self.assertEqual(facts.get("processor", ["-"]), [cpu.get("Model name", "-")])

    def test_memory(self):
        facts = sysinfo()
        rows = {line.split()[0]: line.split()[1:] for line in output_of("free", "--kibi").splitlines()[1:]}
        for fact, row in (("memory", "Mem:"), ("swap", "Swap:")):
            total, free = map(int, re.findall(r"\d+", facts[fact][0]))
            self.assertEqual(total, min(int(rows[row][0]), MOST))
            self.assertLessEqual(free, total)

    def test_system(self):
        self.assertEqual(sysinfo()["system"], [platform.freedesktop_os_release()["PRETTY_NAME"]])

    def test_file_systems(self):
        """df lists a file system once, too, but some of those that are in memory."""
        listed = output_of("df", "--output=target", "-x", "tmpfs", "-x", "devtmpfs", "-x", "ramfs").splitlines()[1:]
        facts = sysinfo()["file system"]
        self.assertEqual(facts[0], "/")
        self.assertEqual(sorted(facts), sorted(listed))


if __name__ == "__main__":
    QS, _, rest = parse_arguments(__doc__)
    unittest.main(argv=[sys.argv[0], *rest])
