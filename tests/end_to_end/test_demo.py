"""The example host and the images as files: in agreement with the scripts that make them, laid out as told."""

import importlib.machinery
import importlib.util
import os
import tempfile
import unittest
import zlib
from pathlib import Path

import texts
from host import SHARE, Host


def made_by(name):
    """What a script writes into an empty directory: the content of each file by its name."""
    loader = importlib.machinery.SourceFileLoader(name, os.path.join(os.environ["VELMAR_SCRIPTS"], name))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(name, loader))
    loader.exec_module(module)
    with tempfile.TemporaryDirectory() as directory:
        module.main([directory])
        return files_of(Path(directory))


def files_of(directory):
    return {path.name: unpacked(path.read_bytes()) for path in directory.iterdir()}


def unpacked(content):
    """An image with its only block of pixels uncompressed, because versions of zlib compress differently."""
    return content[:33] + zlib.decompress(content[41:-16]) if content.startswith(b"\x89PNG") else content


class DemoTest(unittest.TestCase):
    def test_files_are_those_of_the_scripts(self):
        for name, directory in [("make_images", SHARE / "images"), ("make_demo_messages", texts.MESSAGES)]:
            kept, made = files_of(directory), made_by(name)
            self.assertEqual(sorted(kept), sorted(made))
            self.assertEqual([file for file in kept if kept[file] != made[file]], [], "run scripts/" + name)

    def test_quarantines_hold_what_the_table_says(self):
        lines = (SHARE / "demo/index.tsv").read_text().splitlines()
        rows = [line.split("\t") for line in lines if line and not line.startswith("#")]
        self.assertEqual({row[4] for row in rows}, {path.name for path in texts.MESSAGES.iterdir()})
        names = {path.read_bytes(): path.name for path in texts.MESSAGES.iterdir()}
        host = Host(self.addCleanup)
        for mailbox in {row[0] for row in rows}:
            want = sorted((-int(age), name, flags.strip("-"), folder)
                          for owner, age, flags, folder, name in rows if owner == mailbox)
            got = sorted((held.time - host.until, names[held.path.read_bytes()], held.flags, held.path.parent.name)
                         for held in host.held(mailbox))
            self.assertEqual([row[1:] for row in got], [row[1:] for row in want])
            for (seconds, *_), (age, *_) in zip(got, want):
                self.assertAlmostEqual(seconds, age, delta=20)
