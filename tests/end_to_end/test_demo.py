"""The example host and the images as files: complete, in agreement with the scripts that make them, laid out as told."""

import importlib.machinery
import importlib.util
import os
import re
import struct
import tempfile
import unittest
import zlib
from pathlib import Path

import texts
from host import SHARE, Host, read_table

SCRIPTS = Path(os.environ["VELMAR_SCRIPTS"])


def script(name):
    loader = importlib.machinery.SourceFileLoader(name, str(SCRIPTS / name))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(name, loader))
    loader.exec_module(module)
    return module


def pixels(png):
    """Size and rows of a PNG without filters, with every checksum tested."""
    if png[:8] != b"\x89PNG\r\n\x1a\n":
        raise AssertionError("no PNG")
    chunks, place = [], 8
    while place < len(png):
        length, kind = struct.unpack_from(">I4s", png, place)
        data = png[place + 8:place + 8 + length]
        if struct.unpack_from(">I", png, place + 8 + length)[0] != zlib.crc32(kind + data):
            raise AssertionError("checksum of %s" % kind)
        chunks.append((kind, data))
        place += 12 + length
    header = struct.unpack(">IIBBBBB", dict(chunks)[b"IHDR"])
    return [kind for kind, _ in chunks], header, zlib.decompress(dict(chunks)[b"IDAT"])


class FilesTest(unittest.TestCase):
    def test_images_are_those_of_the_script(self):
        with tempfile.TemporaryDirectory() as directory:
            script("make_images").main([directory])
            made = {path.name: pixels(path.read_bytes()) for path in Path(directory).iterdir()}
        kept = {path.name: pixels(path.read_bytes()) for path in (SHARE / "images").iterdir()}
        self.assertEqual(kept.keys(), made.keys())
        for name in kept:
            self.assertTrue(kept[name] == made[name], "%s differs: run scripts/make_images" % name)

    def test_images_are_small(self):
        for path in (SHARE / "images").iterdir():
            self.assertLess(path.stat().st_size, 4096, path.name)

    def test_messages_are_those_of_the_script(self):
        with tempfile.TemporaryDirectory() as directory:
            script("make_demo_messages").main([directory])
            made = {path.name: path.read_bytes() for path in Path(directory).iterdir()}
        kept = {path.name: path.read_bytes() for path in texts.MESSAGES.iterdir()}
        self.assertEqual(sorted(kept), sorted(made))
        self.assertEqual([name for name in kept if kept[name] != made[name]], [], "run scripts/make_demo_messages")
        self.assertEqual(len(set(kept.values())), len(kept), "two messages are the same")

    def test_every_message_is_held_somewhere(self):
        held = {row[4] for row in read_table("index.tsv")}
        self.assertEqual(held, {path.name for path in texts.MESSAGES.iterdir()})
        self.assertLessEqual(set(texts.TEXTS), {name.removesuffix(".eml") for name in held})

    def test_names_belong_to_nobody(self):
        """Domains of the messages are reserved for examples."""
        for path in texts.MESSAGES.iterdir():
            for domain in re.findall(rb"@([a-z0-9.-]+)>", path.read_bytes()):
                self.assertRegex(domain, rb"(^|\.)example(\.org|\.net|\.com)?$|^xn--", path.name)


class LayoutTest(unittest.TestCase):
    def test_quarantines_hold_what_the_table_says(self):
        with Host() as host:
            host.lay_out()
            want, got = [], []
            for mailbox, age, flags, folder, name in read_table("index.tsv"):
                want.append((mailbox, folder, "" if flags == "-" else flags, name, int(age)))
            names = {path.read_bytes(): path.name for path in texts.MESSAGES.iterdir()}
            for mailbox in sorted({row[0] for row in want}):
                for held in host.held(mailbox):
                    got.append((mailbox, held.path.parent.name, held.flags, names[held.path.read_bytes()], held.time))
            self.assertEqual(len(got), len(want))
            ages = {}
            for row in want:
                ages.setdefault(row[:4], []).append(row[4])
            for row in got:
                fits = [age for age in ages.get(row[:4], []) if host.laid_from - age <= row[4] <= host.until - age]
                self.assertTrue(fits, row)
                ages[row[:4]].remove(fits[0])

    def test_layout_refuses_a_directory_in_use(self):
        with Host() as host:
            host.root.mkdir()
            (host.root / "mine").write_text("keep")
            done = host.command("demo", host.root, want=None)
            self.assertNotEqual(done.returncode, 0)
            self.assertIn(str(host.root), done.stderr)
            self.assertEqual([path.name for path in host.root.iterdir()], ["mine"])

    def test_layout_passes_its_own_check(self):
        with Host() as host:
            host.lay_out()
            host.command("check", "--root", host.root)


if __name__ == "__main__":
    unittest.main()
