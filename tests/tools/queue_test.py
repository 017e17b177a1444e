"""The queue commands against a mail server of our own: what goes, what stays, and what administrators see of it.
"""

import os
import re
import shutil
import socketserver
import subprocess
import tempfile
import threading
import unittest
from pathlib import Path

COMMAND = os.environ["SPAMREPORT"]


class Session(socketserver.StreamRequestHandler):
    """Answers RCPT as the server's `answers` say, by a part of the address."""

    def reply(self, line):
        self.wfile.write(line.encode() + b"\r\n")

    def handle(self):
        self.reply("220 test")
        while line := self.rfile.readline().decode():
            verb = line[:4].upper()
            if verb == "RCPT":
                self.reply(next((reply for part, reply in self.server.answers.items() if part in line), "250 ok"))
            elif verb == "DATA":
                self.reply("354 go on")
                while self.rfile.readline() not in (b".\r\n", b""):
                    pass
                self.server.taken += 1
                self.reply("250 taken")
            else:
                self.reply("250 test")


class QueueTest(unittest.TestCase):
    def setUp(self):
        self.root = Path(tempfile.mkdtemp(prefix="velmar-queue-"))
        self.addCleanup(shutil.rmtree, self.root)
        self.server = socketserver.ThreadingTCPServer(("127.0.0.1", 0), Session)
        self.server.daemon_threads = True
        self.addCleanup(self.server.server_close)
        self.server.answers, self.server.taken = {}, 0
        threading.Thread(target=self.server.serve_forever, kwargs={"poll_interval": 0.05}, daemon=True).start()
        self.addCleanup(self.server.shutdown)
        self.on_host("demo", self.root, root=False)

    def on_host(self, *arguments, want=0, root=True):
        done = subprocess.run([COMMAND, *arguments, *(["--root", self.root] if root else [])], capture_output=True,
                              timeout=120, text=True)
        self.assertEqual(done.returncode, want, done.stdout + done.stderr)
        return done.stdout + done.stderr

    def configure(self, **keys):
        path = self.root / "etc/velmar/host.toml"
        text = re.sub(r"(?m)^\[queue\]\n([a-z_]+ = .*\n)*", "", path.read_text())
        keys = {"kind": '"smtp"', "url": '"smtp://127.0.0.1:%d"' % self.server.server_address[1], **keys}
        path.write_text(text + "[queue]\n" + "".join("%s = %s\n" % key for key in keys.items()))

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
        damaged = self.root / "var/spool/velmar/new/20200101000000-1-1-00"
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
        chiyo, = re.findall(r"(?m)^(\S+) +FAILED +\d+ s +1 +- .* chiyo@example.org +550 5.1.1 unknown$", out)
        self.assertIn("chiyo@example.org", self.on_host("queue", "show", chiyo))
        out = self.on_host("check", want=1)
        self.assertRegex(out, r"(?m)^BAD   spool +.*%s.*\n +to mend it: " % damaged.name)
        self.assertRegex(out, r"(?m)^good  mail server +smtp://127.0.0.1:\d+ offers no extensions$")
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
        self.assertEqual(self.server.taken, 3)
        for arguments in (["retry"], ["retry", "x", "--all"], ["drop"]):
            self.on_host("queue", *arguments, want=2)

    def test_run_hands_on_what_it_queued(self):
        self.configure()
        self.server.answers = {"chiyo": "550 5.1.1 unknown"}
        self.assertRegex(self.report("anna", "chiyo", want=1), r"\n2 mailboxes: 2 sent\nqueue: 1 handed on, 1 failed \(")
        self.assertNotIn("queue:", self.report("emil"))  # nothing held
        self.configure(url='"smtp://127.0.0.1:1"')
        self.assertIn("\nqueue: 0 handed on, 1 delayed (spamreport queue list says why)\n", self.report("boris"))


if __name__ == "__main__":
    unittest.main()
