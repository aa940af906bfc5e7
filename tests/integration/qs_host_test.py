#!/usr/bin/env python3
"""End-to-end tests of qs host: this machine as the command ip tells it, and names as dnsmasq has them.

Usage: qs_host_test.py QS_BINARY [--launcher COMMAND] [unittest arguments]

Names are looked up in a network and with a resolver configuration of the test's own, in namespaces of the kernel: these
tests are skipped where there are none, or for want of root.
"""

import json
import os
import pathlib
import re
import socket
import subprocess
import sys
import tempfile
import time
import unittest

from common.program import parse_arguments

QS = None  # a Program

ZONE = """\
port=53
listen-address=127.0.0.1
bind-interfaces
no-resolv
no-hosts
no-round-robin
user=root
local=/example/
host-record=one.example,10.1.0.1
host-record=high.example,200.255.0.128
host-record=six.example,fd00::1
host-record=both.example,10.1.0.2,fd00::2
cname=alias.example,one.example
cname=chain.example,alias.example
""" + "".join(f"host-record=many.example,10.3.0.{number}\n" for number in range(1, 61))


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, timeout=60).stdout.decode()


class Namespaces:
    """A network with nothing but a loopback and the adapters that the test adds, for commands run inside."""

    def __init__(self, folder):
        self._folder = pathlib.Path(folder)
        self._holder = subprocess.Popen(["unshare", "--net", "--mount", "sh", "-c", "echo in; exec sleep 600"],
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self._children = []
        if self._holder.stdout.readline() != b"in\n":
            reason = self._holder.stderr.read().decode()
            self.close()
            raise unittest.SkipTest("no namespaces here: " + reason)
        self.resolver = self._replace("resolv.conf", "nameserver 127.0.0.1\n")
        self._replace("hosts", "127.0.0.1 localhost\n10.9.0.1 filed.example\n")
        self.run("ip", "link", "set", "lo", "up")

    def _replace(self, name, content):
        """Puts a file of ours in the place of the one in /etc."""
        path = self._folder / name
        path.write_text(content)
        self.run("mount", "--bind", str(path), "/etc/" + name)
        return path

    def inside(self, *command):
        return ["nsenter", f"--target={self._holder.pid}", "--net", "--mount", *command]

    def run(self, *command):
        return run(*self.inside(*command))

    def start_server(self):
        configuration = self._folder / "dnsmasq.conf"
        configuration.write_text(ZONE)
        server = subprocess.Popen(self.inside("dnsmasq", "--keep-in-foreground", "--pid-file=",
                                              f"--conf-file={configuration}"), stderr=subprocess.PIPE)
        self._children.append(server)
        while not re.search(r"127\.0\.0\.1:53\b", self.run("ss", "-lnt")):
            if server.poll() is not None:
                raise RuntimeError("dnsmasq ended: " + server.stderr.read().decode())
            time.sleep(0.01)

    def close(self):
        for process in [*self._children, self._holder]:
            process.terminate()
            process.wait()
            for stream in (process.stdout, process.stderr):
                if stream:
                    stream.close()


def qs_host(*arguments, within=None):
    command = QS.command("host", *arguments)
    result = subprocess.run(within.inside(*command) if within else command, input=b"", capture_output=True, timeout=120)
    return QS.streams(("host",), result)


def listed_adapters(output):
    """The rows of the table: name, hardware address, addresses."""
    table = output.decode().split("\n\n")[1].splitlines()
    return [(words[0], words[1], words[2:]) for words in map(str.split, table[1:])]


def ethernet_adapters(*prefix):
    """What the command ip tells."""
    found = []
    for link in json.loads(run(*prefix, "ip", "-json", "address", "show")):
        addresses = [a["local"] + (f"%{link['ifname']}" if a["scope"] == "link" and a["family"] == "inet6" else "")
                     for a in link["addr_info"] if "local" in a]
        if link["link_type"] == "ether" and addresses:
            found.append((link["ifname"], link["address"].replace(":", "-"), addresses))
    return found


class ThisMachine(unittest.TestCase):
    def check_adapters(self, output, expected):
        listed = listed_adapters(output)
        if QS.windows:  # a name of its own for each adapter, the number of the adapter behind a link-local address
            listed = [(mac, sorted(address.split("%")[0] for address in addresses)) for _, mac, addresses in listed]
            expected = [(mac, sorted(address.split("%")[0] for address in addresses)) for _, mac, addresses in expected]
        self.assertEqual(listed, expected)

    def test_names_and_adapters(self):
        result = qs_host()
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        head = result.stdout.decode().split("\n\n")[0]
        values = dict(line.split(None, 1) for line in head.splitlines())
        self.assertEqual(values["Host"], socket.gethostname())
        computer = socket.gethostname().split(".")[0]
        self.assertEqual(values["Computer"], computer.upper()[:15] if QS.windows else computer)
        self.assertEqual(values["User"], run("id", "-un").strip())
        self.check_adapters(result.stdout, ethernet_adapters())

    @unittest.skipIf(os.geteuid() != 0, "only root can make namespaces")
    def test_adapters_of_a_network_of_its_own(self):
        if QS.windows:
            self.skipTest("Wine tells of the network that its server was started in")
        with tempfile.TemporaryDirectory() as folder:
            network = Namespaces(folder)
            self.addCleanup(network.close)
            self.assertEqual(listed_adapters(qs_host(within=network).stdout), [])
            network.run("sh", "-c", "ip link add lan0 address 00:1a:2b:3c:4d:5e type veth peer name lan1 &&"
                                    "ip address add 10.5.0.1/24 dev lan0 && ip address add fd00::5/64 dev lan0 nodad &&"
                                    "ip tuntap add dev tunnel0 mode tun && ip address add 10.8.0.2/24 dev tunnel0")
            self.assertEqual(listed_adapters(qs_host(within=network).stdout),
                             [("lan0", "00-1a-2b-3c-4d-5e", ["10.5.0.1", "fd00::5"])])


@unittest.skipIf(os.geteuid() != 0, "only root can make namespaces")
class Names(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.network = Namespaces(folder.name)
        cls.addClassCleanup(cls.network.close)
        cls.network.start_server()

    def addresses(self, name):
        result = qs_host(name, within=self.network)
        self.assertEqual((result.returncode, result.stderr), (0, b""), name)
        return result.stdout.decode().splitlines()

    def failure(self, name):
        result = qs_host(name, within=self.network)
        self.assertEqual((result.returncode, result.stdout), (1, b""), name)
        return result.stderr.decode()

    def test_addresses(self):
        self.assertEqual(self.addresses("one.example"), ["10.1.0.1"])
        self.assertEqual(self.addresses("high.example"), ["200.255.0.128"])
        self.assertEqual(self.addresses("both.example"), ["10.1.0.2"])

    def test_aliases(self):
        self.assertEqual(self.addresses("alias.example"), ["10.1.0.1"])
        self.assertEqual(self.addresses("chain.example"), ["10.1.0.1"])

    def test_many_addresses(self):
        addresses = self.addresses("many.example")
        self.assertEqual(len(addresses), 19)
        self.assertTrue(all(address.startswith("10.3.0.") for address in addresses), addresses)

    def test_a_dotted_address(self):
        self.assertEqual(self.addresses("10.0.0.1"), ["10.0.0.1"])

    def test_the_hosts_file(self):
        if QS.windows:
            self.skipTest("Wine does not read it")
        self.assertEqual(self.addresses("localhost"), ["127.0.0.1"])
        self.assertEqual(self.addresses("filed.example"), ["10.9.0.1"])

    def test_failures(self):
        # Wine has texts and, for a name that is not there, a code of its own.
        for name, text in (("nobody.example", "DNS name does not exist."),
                           ("six.example", "No records found for given DNS query."),
                           ("www.elsewhere", "DNS operation refused.")):
            expected = f"qs: DNS: {name} - "
            found = self.failure(name)
            self.assertTrue(found.startswith(expected), found)
            if not QS.windows:
                self.assertEqual(found, expected + text + "\n")

    def test_a_server_that_is_not_there(self):
        before = self.network.resolver.read_text()
        self.addCleanup(self.network.resolver.write_text, before)
        self.network.resolver.write_text("nameserver 127.0.0.3\noptions timeout:1 attempts:1\n")
        self.assertRegex(self.failure("one.example"), "^qs: DNS: one.example - ")


class Usage(unittest.TestCase):
    def test_one_name_at_most(self):
        self.assertEqual(qs_host("a", "b").returncode, 2)


if __name__ == "__main__":
    QS, _, rest = parse_arguments(__doc__)
    unittest.main(argv=[sys.argv[0], *rest], verbosity=2)
