"""The command on a mail host with a real MTA and a real directory: reports reach their people once, whatever fails."""

import json
import shutil
import subprocess
import time
import unittest
from collections import Counter
from email import message_from_bytes
from email.policy import default

import expected
from host import Host, parse_events
from mail_server import MailServer
from postfix import Postfix
from slapd import ADMIN, PASSWORD, SUFFIX, Slapd

OWNER, POSTMASTER = "team-lead@example.net", "postmaster@example.net"
# Whom the example host's mailboxes belong to, beside themselves.
OTHERS = {"example.org": {OWNER}, "example.net": {POSTMASTER}}
LINKED = "kim+lists@example.net"
PERSON = "dn: cn={name},{suffix}\nobjectClass: inetOrgPerson\ncn: {name}\nsn: x\nmail: {mail}\n\n"


def ldif(mailboxes):
    """A group of all mailboxes of example.org, which one person owns."""
    people = {"owner": OWNER, **{"u%d" % i: mailbox for i, mailbox in enumerate(mailboxes)}}
    members = "".join("member: cn=u%d,%s\n" % (i, SUFFIX) for i in range(len(mailboxes)))
    return ("dn: {0}\nobjectClass: dcObject\nobjectClass: organization\ndc: example\no: x\n\n".format(SUFFIX)
            + "".join(PERSON.format(name=name, suffix=SUFFIX, mail=mail) for name, mail in people.items())
            + "dn: cn=group,{0}\nobjectClass: groupOfNames\ncn: group\nowner: cn=owner,{0}\n{1}".format(SUFFIX, members))


class MailHost(Host):
    """The example host with a directory for example.org and a mail server."""

    def __init__(self, add_cleanup):
        super().__init__(add_cleanup)
        self.add_cleanup = add_cleanup
        self.toml = self.root / "etc/velmar/host.toml"
        self.original = self.toml.read_text()
        self.password = self.root / "etc/velmar/ldap-password"
        self.password.write_text(PASSWORD)
        self.password.chmod(0o600)

    def start_slapd(self):
        people = self.directory / "people.ldif"
        people.write_text(ldif(sorted(box for box in expected.ACTIONS if box.endswith("@example.org"))))
        slapd = Slapd(self.directory / "slapd", people)
        self.add_cleanup(slapd.stop)
        shutil.copy(slapd.directory / "ca.pem", self.root / "etc/velmar/ca.pem")
        return slapd

    def connect(self, smtp_port, ldap_url=None, tls="false", queue=""):
        text = self.original
        if ldap_url:
            owner = 'send_to_group_owner = true\nldap_profile = 1\n'
            text = text.replace('name = "example.org"\n', 'name = "example.org"\n' + owner, 1)
            text += '\n[[ldap_profile]]\nnumber = 2\nurls = ["ldap://127.0.0.1:1"]\nuser_base = "o=other"\n'
            text += ('\n[[ldap_profile]]\nnumber = 1\nurls = ["%s"]\nstart_tls = %s\nca_file = "/etc/velmar/ca.pem"\n'
                     'bind_dn = "%s"\npassword_file = "/etc/velmar/ldap-password"\nuser_base = "%s"\ntimeout = 1\n'
                     % (ldap_url, tls, ADMIN, SUFFIX))
        self.toml.write_text(text + '\n[queue]\nkind = "smtp"\nurl = "smtp://127.0.0.1:%d"\n%s\n' % (smtp_port, queue))

    def run_all(self, *options, want=0):
        """Reports of the last day for the whole host: the counts of the outcomes, and the outcome of each mailbox."""
        done = self.command("run", "--all", "--json", "--root", self.root, "--period", 86400, "--until", self.until,
                            *options, want=want)
        result = json.loads(done.stdout)
        return result, {row["address"]: row for row in result["mailboxes"]}

    def flush(self, want=0):
        return self.command("queue", "flush", "--now", "--root", self.root, want=want).stdout

    def queue(self):
        return self.command("queue", "list", "--root", self.root).stdout

    def events(self, name):
        return [e.fields for e in parse_events((self.root / "var/log/velmar/spamreport.log").read_text())
                if e.name == name]

    def spool_files(self):
        return [path for path in (self.root / "var/spool/velmar").rglob("*")
                if path.is_file() and path.stat().st_size > 0]


def everybody(owners=True):
    """How many reports each person gets: one for each mailbox that concerns them."""
    people = Counter()
    for mailbox in expected.ACTIONS:
        domain = mailbox.rpartition("@")[2]
        linked = mailbox == LINKED
        people["kim@example.net" if linked else mailbox] += 1
        for other in OTHERS[domain]:
            people[other] += 1 if owners or other != OWNER else 0
    return +people


def received(postfix):
    """How many mails each person found in their mailbox, each whole and about one of the reported mailboxes."""
    people = Counter()
    for person, mails in postfix.delivered().items():
        for raw in mails:
            mail = message_from_bytes(raw, policy=default)
            if mail["To"].addresses[0].addr_spec not in expected.ACTIONS or not mail.get_body(("html",)):
                raise AssertionError("odd mail for %s: %s" % (person, mail["To"]))
            people[person] += 1
    return people


def fill(path):
    """Lets a file take all the space that there is."""
    with path.open("wb", buffering=0) as file:
        try:
            while file.write(bytes(4096)):
                pass
        except OSError:
            pass


class MailHostTest(unittest.TestCase):
    def setUp(self):
        self.host = MailHost(self.addCleanup)

    def postfix(self, started=True, **options):
        postfix = Postfix(**options)
        if started:
            postfix.start(self.addCleanup)
        return postfix

    def test_reports_reach_their_people(self):
        postfix, slapd = self.postfix(), self.host.start_slapd()
        self.host.connect(postfix.port, "ldap://127.0.0.1:%d" % slapd.port, tls="true")
        self.host.run_all("--jobs", 2)
        self.assertEqual(received(postfix), everybody())
        self.assertEqual(self.host.spool_files(), [])
        self.host.run_all()  # a second run is a second report
        self.assertEqual(received(postfix), everybody() + everybody())

    def test_mail_server_faults_delay_and_lose_nothing(self):
        cases = [  # the fault, what is said about it, and how many mails the server has read in spite of it
            (None, "Couldn't connect", 0), ("", "451 4.3.0 later", 0), ("silent", "", 0), ("closes after DATA", "", 1)]
        postfix = self.postfix()
        people = Counter()
        for fault, reply, read in cases:
            with self.subTest(fault=fault):
                self.host = MailHost(self.addCleanup)
                later = {"": reply} if fault == "" else {}
                server = self.postfix(started=False) if fault is None else MailServer(self.addCleanup, fault, later)
                self.host.connect(server.port, queue="timeout = 1")
                began = time.monotonic()
                result, _ = self.host.run_all()
                self.assertLess(time.monotonic() - began, 60)
                self.assertEqual(result["counts"]["sent"], len(expected.ACTIONS))
                self.assertIn(reply, self.host.queue())
                self.assertGreaterEqual(len(self.host.spool_files()), len(expected.ACTIONS))
                self.assertGreaterEqual(len(getattr(server, "mails", [])), read)
                self.host.connect(postfix.port)
                self.host.flush()
                people += everybody(owners=False)
                self.assertEqual(received(postfix), people)
                self.assertEqual(self.host.queue(), "The queue is empty.\n")

    def test_refused_and_delayed_recipients_cost_only_themselves(self):
        gone, later = POSTMASTER, "anna@example.org"
        postfix = self.postfix(access={gone: "REJECT gone away", later: "451 4.2.1 come back"})
        self.host.connect(postfix.port)
        self.host.run_all(want=1)
        people = everybody(owners=False)
        self.assertEqual(received(postfix), Counter({p: n for p, n in people.items() if p not in (gone, later)}))
        self.assertEqual([e["recipients"] for e in self.host.events("mail-refused")], [gone] * people[gone])
        self.assertEqual([e["recipients"] for e in self.host.events("mail-delayed")], [later])
        listed = self.host.queue()
        self.assertEqual((listed.count("FAILED"), listed.count("waiting")), (people[gone], 1))
        self.assertIn("gone away", listed)
        (postfix.directory / "conf/access").write_text("")
        subprocess.run(["postfix", "-c", postfix.directory / "conf", "reload"], capture_output=True, timeout=30)
        self.host.command("queue", "retry", "--all", "--root", self.host.root)
        self.host.flush()
        self.assertEqual(received(postfix), people)

    def test_directory_faults_cost_only_the_owners_and_little_time(self):
        postfix, slapd = self.postfix(), self.host.start_slapd()
        silent = MailServer(self.addCleanup, "silent")
        slapd.stop()
        want = Counter()
        for url in ("ldap://127.0.0.1:%d" % slapd.port, "ldap://127.0.0.1:%d" % silent.port,
                    "ldaps://127.0.0.1:%d" % silent.port):
            with self.subTest(url=url):
                self.host.connect(postfix.port, url)
                began = time.monotonic()
                result, rows = self.host.run_all()
                self.assertLess(time.monotonic() - began, 60)
                self.assertEqual(result["counts"]["sent"], len(expected.ACTIONS))
                self.assertIn("group owners", rows["anna@example.org"]["detail"])
                want += everybody(owners=False)
                self.assertEqual(received(postfix), want)
        failed = {event["mailbox"] for event in self.host.events("group-owner-lookup-failed")}
        self.assertLessEqual({box for box in expected.ACTIONS if box.endswith("@example.org")}, failed)

    def test_full_disk_fails_the_reports_that_do_not_fit(self):
        postfix = self.postfix()
        spool = self.host.root / "var/spool/velmar"
        spool.mkdir(parents=True, exist_ok=True)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=32M", "spool", spool], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", spool], check=True)
        filler = spool / "filler"
        fill(filler)
        for floor in ("min_free_mib = 1", "min_free_mib = 0\nmin_free_inodes = 0"):
            self.host.connect(postfix.port, queue=floor)
            result, rows = self.host.run_all(want=1)
            self.assertEqual(result["counts"]["failed"], len(expected.ACTIONS))
            self.assertIn("0 MiB are free", rows["anna@example.org"]["detail"])
            self.assertEqual([path for path in self.host.spool_files() if path != filler], [])
        filler.unlink()
        self.host.run_all()
        self.assertEqual(received(postfix), everybody(owners=False))


if __name__ == "__main__":
    unittest.main()
