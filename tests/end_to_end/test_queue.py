"""The queue commands against a mail server of our own: what goes, what stays, and what administrators see of it."""

import re
import unittest

from host import Host
from mail_server import MailServer


class QueueTest(unittest.TestCase):
    def setUp(self):
        self.host = Host(self.addCleanup)
        self.server = MailServer(self.addCleanup)
        self.toml = self.host.root / "etc/velmar/host.toml"
        self.original = self.toml.read_text()

    def on_host(self, *arguments, want=0):
        done = self.host.command(*arguments, "--root", self.host.root, want=want)
        return done.stdout + done.stderr

    def configure(self, **keys):
        keys = {"kind": '"smtp"', "url": '"smtp://127.0.0.1:%d"' % self.server.port, **keys}
        self.toml.write_text(self.original + "\n[queue]\n" + "".join("%s = %s\n" % key for key in keys.items()))

    def report(self, *names, want=0):
        addresses = ",".join(name + "@example.org" for name in names)
        return self.on_host("run", "--domain", "example.org", "--period", "86400", "--recipients", addresses, want=want)

    def test_what_goes_and_what_stays(self):
        self.configure(min_free_mib="2147483647")
        self.assertRegex(self.report("anna", want=1), r"FAILED +anna@example.org .* MiB are free, 2147483647 MiB must")
        self.assertEqual(self.on_host("queue", "list"), "The queue is empty.\n")
        self.assertRegex(self.on_host("check", want=1), r"(?m)^BAD   spool  .* MiB are free, 2147483647 MiB must")
        self.configure(kind='"spool"')
        self.report("anna", "boris", "chiyo")
        damaged = self.host.root / "var/spool/velmar/new/20200101000000-1-1-00"
        damaged.write_bytes(b"\x00\x1b[2J")
        self.assertIn("Nothing is handed on", self.on_host("queue", "flush"))
        self.configure()
        self.server.answers = {"boris": "450 4.2.0 full", "chiyo": "550 5.1.1 unknown"}
        out = self.on_host("queue", "flush", want=1)
        self.assertRegex(out, r"(?m)^delayed     \S+ +boris@example.org  450 4.2.0 full$")
        self.assertRegex(out, r"(?m)^FAILED      \S+ +chiyo@example.org  550 5.1.1 unknown$")
        self.assertRegex(out, r"(?s)^UNREADABLE  20200101.*\n1 handed on, 1 delayed, 1 failed, 1 unreadable\n$")
        out = self.on_host("queue", "list")
        self.assertRegex(out, r"(?m) waiting +\d+ s +1 +in [45] min .* boris@example.org +450 4.2.0 full$")
        failed = r"(?m)^(\S+) +FAILED +\d+ s +1 +- +(\d+) .* chiyo@example.org +550 5.1.1 unknown$"
        (chiyo, size), = re.findall(failed, out)
        self.assertEqual(len(self.on_host("queue", "show", chiyo).encode()), int(size))
        for identifier in ["20000101000000-1-1-0", "../" + chiyo]:
            self.assertIn(identifier, self.on_host("queue", "show", identifier, want=1))
        out = self.on_host("check", want=1)
        self.assertRegex(out, r"(?m)^BAD   spool +.*%s.*\n +to mend it: " % damaged.name)
        self.assertRegex(out, r"(?m)^good  mail server +smtp://127.0.0.1:\d+ offers PIPELINING$")
        self.assertIn(damaged.name, self.on_host("queue", "retry", "--all", want=1))
        self.assertRegex(self.on_host("queue", "drop", damaged.name, "-v"), r'mail-dropped ".*" id="%s" ' % damaged.name)
        self.assertIn(damaged.name, self.on_host("queue", "drop", damaged.name, want=1))
        self.configure(url='"smtp://127.0.0.1:1"')
        out = self.on_host("check", want=1)
        self.assertRegex(out, r"(?m)^good  spool +2 mails wait, the oldest for \d+ s$")
        self.assertRegex(out, r"(?m)^BAD   mail server +.*127\.0\.0\.1.*\n +to mend it: ")
        self.assertRegex(self.on_host("queue", "flush", want=1), r"\n0 handed on, 1 delayed, 1 held back\nThe mail server")
        self.assertRegex(self.on_host("queue", "list"), r"\nThe mail server cannot be used \(.*\bin [45] min\.\n$")
        self.configure()
        self.server.answers = {}
        self.assertRegex(self.on_host("queue", "flush", want=1), r"^0 handed on, 2 held back\n")
        self.assertEqual(self.on_host("queue", "flush", "--now"), "2 handed on\n")
        self.assertEqual(len(self.server.mails), 3)
        for arguments in (["retry"], ["retry", "x", "--all"], ["drop"]):
            self.on_host("queue", *arguments, want=2)

    def test_run_hands_on_what_it_queued(self):
        self.configure()
        self.server.answers = {"chiyo": "550 5.1.1 unknown"}
        self.assertRegex(self.report("anna", "chiyo", want=1), r"\n2 mailboxes: 2 sent\nqueue: 1 handed on, 1 failed \(")
        self.assertNotIn("queue:", self.report("emil"))  # nothing held
        self.configure(url='"smtp://127.0.0.1:1"')
        self.assertIn("\nqueue: 0 handed on, 1 delayed (spamreport queue list says why)\n", self.report("boris"))
