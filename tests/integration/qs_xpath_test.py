#!/usr/bin/env python3
"""End-to-end tests of qs xpath, its findings beside those of Python's ElementTree and of xmllint.

Usage: qs_xpath_test.py QS_BINARY [--launcher COMMAND] [unittest arguments]
"""

import os
import pathlib
import random
import shutil
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

from common.program import parse_arguments

QS = None  # a Program


def qs(*arguments, stdin=b""):
    result = subprocess.run(QS.command("xpath", *arguments), input=stdin, capture_output=True, timeout=60)
    return QS.streams(("xpath", *arguments), result)


def make_document(seed):
    """A tree of elements, attributes, texts, comments and CDATA of many alphabets."""
    chance = random.Random(seed)
    words = ["plain", "a < b & c", "\"quoted\"", "it's", "\u00e9t\u00e9", "\u20ac", "\U0001f600", "]]", " ", "\t\n", "\u0085"]

    def fill(element, depth):
        for name in ("id", "lang", "x"):
            if chance.random() < 0.4:
                element.set(name, "".join(chance.choices(words, k=2)))
        if chance.random() < 0.7:
            element.text = "".join(chance.choices(words, k=3))
        for _ in range(chance.randrange(4) if depth else 0):
            child = ElementTree.SubElement(element, chance.choice(["a", "b", "item"]))
            fill(child, depth - 1)
            if chance.random() < 0.5:
                child.tail = "".join(chance.choices(words, k=2))

    root = ElementTree.Element("root")
    while len(root) == 0:
        fill(root, 5)
    return root


class XPath(unittest.TestCase):
    maxDiff = 2000

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="qs-xpath-"))
        self.addCleanup(shutil.rmtree, self.folder)

    def file(self, content, name="a.xml"):
        path = self.folder / name
        path.write_bytes(content)
        return path

    def found(self, expression, path):
        """What qs printed, without the line feed that it ends with; None if it found nothing."""
        result = qs(expression, path)
        if result.returncode == 1 and result.stderr.endswith(b"finds nothing\n"):
            self.assertEqual(result.stdout, b"")
            return None
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        self.assertEqual(result.stdout[-1:], b"\n")
        return result.stdout[:-1]

    def test_nodes_and_attributes(self):
        path = self.file(b"<r><a n='1 &amp; 2'>t</a><a n='3'/></r>")
        self.assertEqual(self.found("//a", path), b'<a n="1 &amp; 2">t</a><a n="3"/>')
        self.assertEqual(self.found("/r/a/@n", path), b"1 & 23")
        self.assertIsNone(self.found("//none", path))
        self.assertIsNone(self.found("count(//a)", path))

    def test_standard_input(self):
        for arguments in (["//b"], ["//b", "-"]):
            result = qs(*arguments, stdin=b"<r><b>\xc3\xa9\r\n</b></r>")
            self.assertEqual((result.returncode, result.stdout), (0, b"<b>\xc3\xa9\n</b>\n"))

    def test_latin1_and_utf16(self):
        text = '<?xml version="1.0" encoding="%s"?><r a="\u00e9">\u00fc</r>'
        for encoding in ("ISO-8859-1", "UTF-16", "UTF-8", "US-ASCII"):
            path = self.file((text % encoding).encode(encoding, "xmlcharrefreplace"))
            self.assertEqual(self.found("/r/@a", path), "\u00e9".encode())
            self.assertEqual(self.found("/r/text()", path), "\u00fc".encode())

    def test_values_as_elementtree_sees_them(self):
        for seed in range(8):
            root = make_document(seed)
            for encoding in ("utf-8", "us-ascii", "utf-16", "iso-8859-1"):
                path = self.file(ElementTree.tostring(root, encoding=encoding, xml_declaration=True))
                parsed = ElementTree.parse(path).getroot()
                for name in ("id", "lang", "x"):
                    values = [element.get(name) for element in parsed.iter() if element.get(name) is not None]
                    self.assertEqual(self.found(f"//@{name}", path), "".join(values).encode() if values else None)

    def test_xml_as_elementtree_sees_it(self):
        for seed in range(8):
            root = make_document(seed)
            path = self.file(ElementTree.tostring(root, encoding="utf-8"))
            found = self.found("/*/*", path)
            again = ElementTree.fromstring(b"<root>" + found + b"</root>")
            parsed = ElementTree.parse(path).getroot()
            self.assertEqual(len(again), len(parsed))
            for mine, theirs in zip(again, parsed):
                theirs.tail = None
                self.assertEqual(ElementTree.canonicalize(ElementTree.tostring(mine)),
                                 ElementTree.canonicalize(ElementTree.tostring(theirs)))

    @unittest.skipIf(shutil.which("xmllint") is None, "no xmllint here")
    def test_the_same_as_xmllint(self):
        # It writes a line feed behind each node, and attributes with their name; so one node at a time.
        for seed in range(5):
            path = self.file(ElementTree.tostring(make_document(seed), encoding="utf-8"))
            for expression in ("(//a)[1]", "(//item)[last()]", "/*/*[2]", "(//*[@id and @x])[1]", "(//text())[3]"):
                theirs = subprocess.run(["xmllint", "--nonet", "--xpath", expression, path], capture_output=True, timeout=60)
                mine = self.found(expression, path)
                self.assertEqual(mine, theirs.stdout[:-1] if theirs.returncode == 0 else None, expression)

    def test_nothing_else_is_read(self):
        secret = self.file(b"the secret", "secret.txt")
        path = self.file(b"<!DOCTYPE r [<!ENTITY e SYSTEM '%s'>]><r>&e;</r>" % secret.as_uri().encode())
        self.assertEqual(self.found("/r", path), b"<r>&e;</r>")

    def test_a_bomb_is_no_document(self):
        entities = b"<!ENTITY e0 'xxxxxxxxxx'>" + b"".join(
            b"<!ENTITY e%d '%s'>" % (i, b"&e%d;" % (i - 1) * 10) for i in range(1, 10))
        result = qs("/r", self.file(b"<!DOCTYPE r [" + entities + b"]><r>&e9;</r>"))
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"is not well-formed XML", result.stderr)

    def test_what_is_wrong(self):
        result = qs("//a", self.file(b"<r>"))
        self.assertEqual((result.returncode, result.stdout), (1, b""))
        self.assertIn(b"a.xml' is not well-formed XML, or goes beyond the limits\n", result.stderr)
        result = qs("//a", self.folder / "none.xml")
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"cannot open '", result.stderr)
        result = qs("//a", stdin=b"")
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"standard input is not well-formed XML", result.stderr)
        result = qs("///", self.file(b"<r/>"))
        self.assertEqual((result.returncode, result.stderr), (1, b"qs: '///' finds nothing\n"))
        self.assertEqual(qs().returncode, 2)

    @unittest.skipIf(os.name != "posix" or not os.path.exists("/dev/full"), "no /dev/full here")
    def test_a_full_disk(self):
        if QS.windows:
            self.skipTest("Wine has no /dev/full")
        with open("/dev/full", "wb") as full:
            result = subprocess.run(QS.command("xpath", "/r", self.file(b"<r/>")), stdout=full, stderr=subprocess.PIPE,
                                    timeout=60)
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"cannot write to standard output", result.stderr)


if __name__ == "__main__":
    QS, _, rest = parse_arguments(__doc__)
    unittest.main(argv=[sys.argv[0], *rest])
