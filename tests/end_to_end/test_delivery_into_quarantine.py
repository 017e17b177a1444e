"""Spam reaches the quarantine by the examples that are shipped: Dovecot with Sieve, and Postfix with its pipe daemon.

Real servers run as root in a directory of their own, on a loopback port of their own, and end with the test.
"""

import os
import smtplib
import socket
import stat
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

from host import SHARE, Host

EXAMPLES = SHARE / "examples"
OWNER, GROUP = "nobody", "nogroup"  # who delivers, and the group that may read the quarantine
MASTER = Path("/usr/lib/postfix/sbin/master")

DOVECOT = """
base_dir = {dir}/run
log_path = {dir}/log
protocols = lmtp
ssl = no
mail_home = {root}/home/%Ld/%Ln~%Ld
mail_location = maildir:~/Maildir
first_valid_uid = 0
userdb {{
  driver = static
  args = uid={owner} gid={group} allow_all_users=yes
}}
passdb {{
  driver = static
  args = nopassword=y
}}
namespace inbox {{
  inbox = yes
}}
protocol lmtp {{
  mail_plugins = sieve
}}
!include {examples}/dovecot.conf
plugin {{
  sieve_before = {dir}/quarantine.sieve
}}
"""

MAIN = """
compatibility_level = 3.6
queue_directory = {dir}/queue
data_directory = {dir}/data
maillog_file = {dir}/log
maillog_file_prefixes = {dir}
inet_interfaces = 127.0.0.1
inet_protocols = ipv4
myhostname = mail.example.org
mydestination =
local_recipient_maps =
alias_maps =
relay_domains = example.org
relay_transport = hold
header_checks = regexp:{dir}/header_checks
hold_destination_recipient_limit = 1
export_environment = TZ MAIL_CONFIG LANG VELMAR_ROOT={root}
"""
MASTER_CF = """
127.0.0.1:{inbound} inet n - n - - smtpd
cleanup unix n - n - 0 cleanup
qmgr unix n - n 300 1 qmgr
rewrite unix - - n - - trivial-rewrite
bounce unix - - n - 0 bounce
defer unix - - n - 0 bounce
anvil unix - - n - 1 anvil
postlog unix-dgram n - n - 1 postlogd
"""


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


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as server:
        return server.getsockname()[1]


@unittest.skipUnless(os.geteuid() == 0 and MASTER.exists() and Path("/usr/sbin/dovecot").exists(),
                     "needs root, Postfix and Dovecot")
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
        self.addCleanup(self.show_log)
        self.values = dict(dir=self.directory, root=self.host.root, examples=EXAMPLES, owner=OWNER, group=GROUP)

    def start(self, *command):
        server = subprocess.Popen(list(map(str, command)), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                  start_new_session=True)
        self.addCleanup(server.wait)
        self.addCleanup(server.terminate)

    def held(self):
        return list((self.mailbox / "quarantine/new").iterdir())

    def show_log(self):
        """What the servers said, for whoever reads of a failure."""
        print(self.log(), flush=True)

    def log(self):
        return (self.directory / "log").read_text() if (self.directory / "log").exists() else "no log"

    def check_report(self, subject):
        path, = wait_for(self.held)
        status = path.stat()
        self.assertEqual((stat.S_IMODE(status.st_mode), path.group()), (0o640, GROUP), "the group must be able to read it")
        self.host.empty_queue()
        self.host.run("new@example.org", until=int(time.time()) + 2)
        report, = self.host.queued()
        self.assertIn(subject, report.body("plain"))

    def test_sieve(self):
        (self.directory / "run").mkdir()
        (self.directory / "quarantine.sieve").write_text((EXAMPLES / "quarantine.sieve").read_text())
        (self.directory / "dovecot.conf").write_text(DOVECOT.format(**self.values))
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

    def start_postfix(self):
        inbound, reports = free_port(), free_port()
        shipped = (EXAMPLES / "master.cf").read_text()
        for old, new in (("127.0.0.1:10025", "127.0.0.1:%d" % reports), ("vmail:velmar", OWNER + ":" + GROUP),
                         ("/usr/share/velmar/examples", str(EXAMPLES)), (" n - y - - smtpd", " n - n - - smtpd")):
            self.assertIn(old, shipped)
            shipped = shipped.replace(old, new)
        (self.directory / "main.cf").write_text(MAIN.format(**self.values))
        (self.directory / "master.cf").write_text(MASTER_CF.format(inbound=inbound) + shipped)
        (self.directory / "header_checks").write_text("/^X-Spam-Flag: YES/ FILTER hold:quarantine\n/^X-Bad/ REJECT\n")
        queue = self.directory / "queue"
        for name in "incoming active deferred defer bounce hold corrupt public private pid".split():
            (queue / name).mkdir(parents=True)
            subprocess.run(["chown", "root" if name == "pid" else "postfix", queue / name], check=True)
        (self.directory / "data").mkdir()
        subprocess.run(["chown", "postfix", self.directory / "data"], check=True)
        self.start(MASTER, "-d", "-c", self.directory)
        wait_for(lambda: (queue / "pid/master.pid").exists() and (queue / "public/qmgr").exists())
        return inbound, reports

    def test_postfix(self):
        inbound, reports = self.start_postfix()
        with smtplib.SMTP("127.0.0.1", inbound, timeout=8) as smtp:
            smtp.sendmail("far@elsewhere.example", ["New@example.org"], mail("Held two", "X-Spam-Flag: YES"))
            with self.assertRaises(smtplib.SMTPDataError):
                smtp.sendmail("far@elsewhere.example", ["new@example.org"], mail("Refused", "X-Bad: yes"))
        self.check_report("Held two")
        with smtplib.SMTP("127.0.0.1", reports, timeout=8) as smtp:  # is not scanned: taken with the same header
            smtp.sendmail("far@elsewhere.example", ["new@example.org"], mail("A report", "X-Bad: yes"))
        wait_for(lambda: len(self.held()) == 2)


if __name__ == "__main__":
    unittest.main()
