"""Spam reaches the quarantine by the examples that are shipped: Dovecot with Sieve, and Postfix with its pipe daemon.

Real servers run as root in a directory of their own, on a loopback port of their own, and end with the test.
"""

import smtplib
import stat
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

from host import SHARE, Host
from loopback import free_port
from postfix import Postfix, can_run

EXAMPLES = SHARE / "examples"
OWNER, GROUP = "nobody", "nogroup"  # who delivers, and the group that may read the quarantine


def mail(subject, *header):
    lines = ["From: Far <far@elsewhere.example>", "To: anna@example.org", "Subject: " + subject,
             "Message-Id: <%s@elsewhere.example>" % subject.replace(" ", "."), *header]
    return "\r\n".join(lines) + "\r\n\r\ntext\r\n"


def wait_for(what, seconds=8):
    """The first true result of what()."""
    end = time.monotonic() + seconds
    while not (result := what()):
        if time.monotonic() > end:
            raise AssertionError("nothing came within %d s" % seconds)
        time.sleep(0.02)
    return result


@unittest.skipUnless(can_run() and Path("/usr/sbin/dovecot").exists(), "needs root, Postfix and Dovecot")
class DeliveryIntoQuarantine(unittest.TestCase):
    def setUp(self):
        self.host = Host(self.addCleanup)
        self.directory = Path(tempfile.mkdtemp(prefix="velmar-mta-"))
        self.addCleanup(subprocess.run, ["rm", "-rf", self.directory])
        self.directory.chmod(0o755)
        self.host.directory.chmod(0o755)
        self.mailbox = self.host.root / "home/example.org/new~example.org"
        for path, mode in [(self.mailbox, 0o2710)] + [
                (self.mailbox / "quarantine" / part, 0o2750) for part in ("", "new", "cur", "tmp")]:
            path.mkdir(exist_ok=True)
            subprocess.run(["chown", OWNER + ":" + GROUP, path], check=True)
            path.chmod(mode)
        self.addCleanup(lambda: print(self.log(), flush=True))  # for whoever reads of a failure

    def start(self, *command):
        server = subprocess.Popen(list(map(str, command)), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                  start_new_session=True)
        self.addCleanup(server.wait)
        self.addCleanup(server.terminate)

    def log(self):
        """What Dovecot said."""
        return (self.directory / "log").read_text() if (self.directory / "log").exists() else "no log"

    def check_report(self, subject):
        path, = wait_for(lambda: list((self.mailbox / "quarantine/new").iterdir()))
        status = path.stat()
        self.assertEqual((stat.S_IMODE(status.st_mode), path.group()), (0o640, GROUP), "the group must be able to read it")
        self.host.empty_queue()
        self.host.run("new@example.org", until=int(time.time()) + 2)
        report, = self.host.queued()
        self.assertIn(subject, report.body("plain"))
        return report

    def test_sieve(self):
        (self.directory / "run").mkdir()
        (self.directory / "quarantine.sieve").write_text((EXAMPLES / "quarantine.sieve").read_text())
        (self.directory / "dovecot.conf").write_text(Path(__file__).with_name("dovecot.conf").read_text().format(
            dir=self.directory, root=self.host.root, examples=EXAMPLES, owner=OWNER, group=GROUP))
        subprocess.run(["sievec", self.directory / "quarantine.sieve"], check=True)
        self.start("dovecot", "-F", "-c", self.directory / "dovecot.conf")
        listener = self.directory / "run/lmtp"
        wait_for(listener.exists)
        with smtplib.LMTP(str(listener), timeout=8) as lmtp:
            for text in mail("Held one", "X-Spam-Flag: YES"), mail("Wanted one"):
                lmtp.sendmail("far@elsewhere.example", ["new@example.org"], text)
        inbox = list((self.mailbox / "Maildir/new").iterdir())
        self.assertEqual([b"Subject: Wanted one" in path.read_bytes() for path in inbox], [True], self.log())
        self.assertNotIn("Error", self.log())
        self.check_report("Held one")

    def test_postfix(self):
        (self.directory / "checks").write_text("/^X-Spam-Flag: YES/ FILTER hold:quarantine\n/^Content-Type: multi/ REJECT\n")
        postfix = Postfix({"header_checks": "regexp:%s/checks" % self.directory, "hold_destination_recipient_limit": "1",
                           "export_environment": "MAIL_CONFIG VELMAR_ROOT=%s" % self.host.root})
        shipped, listener = (EXAMPLES / "master.cf").read_text(), "127.0.0.1:%d" % free_port()
        for old, new in (("127.0.0.1:10025", listener), ("vmail:velmar", OWNER + ":" + GROUP),
                         ("/usr/share/velmar/examples", str(EXAMPLES)), (" n - y - - smtpd", " n - n - - smtpd")):
            self.assertIn(old, shipped)
            shipped = shipped.replace(old, new)
        with (postfix.directory / "conf/master.cf").open("a") as master:
            master.write(shipped)
        postfix.start(self.addCleanup)

        with smtplib.SMTP("127.0.0.1", postfix.port, timeout=8) as smtp:
            smtp.sendmail("far@elsewhere.example", ["New@example.org"], mail("Held two", "X-Spam-Flag: YES"))
            report = self.check_report("Held two")
            with self.assertRaises(smtplib.SMTPDataError):
                smtp.sendmail("far@elsewhere.example", ["new@example.org"], report.raw)
        with (self.host.root / "etc/velmar/host.toml").open("a") as config:
            config.write('\n[queue]\nkind = "smtp"\nurl = "smtp://%s"\n' % listener)
        self.host.command("queue", "flush", "--root", self.host.root)
        delivered, = postfix.delivered()["new@example.org"]
        self.assertIn(b"multipart", delivered, "the report is not scanned: it is taken by its own listener")
