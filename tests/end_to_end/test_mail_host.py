"""The command on a mail host with a real MTA and a real directory: reports reach their people once."""

import json
import shutil
import socket
import time
import unittest
from collections import Counter
from email import message_from_bytes
from email.policy import default

import expected
from host import Host, parse_events
from postfix import Postfix
from slapd import ADMIN, PASSWORD, SUFFIX, Slapd

OWNER, POSTMASTER = "team-lead@example.net", "postmaster@example.net"
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
        password = self.root / "etc/velmar/ldap-password"
        password.write_text(PASSWORD)
        password.chmod(0o600)

    def start_slapd(self):
        people = self.directory / "people.ldif"
        people.write_text(ldif(sorted(box for box in expected.ACTIONS if box.endswith("@example.org"))))
        slapd = Slapd(self.directory / "slapd", people)
        self.add_cleanup(slapd.stop)
        shutil.copy(slapd.directory / "ca.pem", self.root / "etc/velmar/ca.pem")
        return slapd

    def connect(self, smtp_port, ldap_url, tls="false"):
        owner = 'send_to_group_owner = true\nldap_profile = 1\n'
        text = self.original.replace('name = "example.org"\n', 'name = "example.org"\n' + owner, 1)
        text += '\n[[ldap_profile]]\nnumber = 2\nurls = ["ldap://127.0.0.1:1"]\nuser_base = "o=other"\n'
        text += ('\n[[ldap_profile]]\nnumber = 1\nurls = ["%s"]\nstart_tls = %s\nca_file = "/etc/velmar/ca.pem"\n'
                 'bind_dn = "%s"\npassword_file = "/etc/velmar/ldap-password"\nuser_base = "%s"\ntimeout = 1\n'
                 % (ldap_url, tls, ADMIN, SUFFIX))
        self.toml.write_text(text + '\n[queue]\nkind = "smtp"\nurl = "smtp://127.0.0.1:%d"\n' % smtp_port)

    def run_all(self, *options, want=0):
        """Reports of the last day for the whole host: the counts of the outcomes, and the outcome of each mailbox."""
        done = self.command("run", "--all", "--json", "--root", self.root, "--period", 86400, "--until", self.until,
                            *options, want=want)
        result = json.loads(done.stdout)
        return result, {row["address"]: row for row in result["mailboxes"]}


def everybody(owners=True):
    """How many reports each person gets: one for each mailbox that concerns them."""
    others = {"example.org": [OWNER] * owners, "example.net": [POSTMASTER]}
    return Counter(person for mailbox in expected.ACTIONS for person in
                   [mailbox.replace("kim+lists", "kim"), *others[mailbox.rpartition("@")[2]]])


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


class MailHostTest(unittest.TestCase):
    def setUp(self):
        self.host, self.postfix = MailHost(self.addCleanup), Postfix()
        self.postfix.start(self.addCleanup)

    def test_reports_reach_their_people(self):
        postfix, slapd = self.postfix, self.host.start_slapd()
        self.host.connect(postfix.port, "ldap://127.0.0.1:%d" % slapd.port, tls="true")
        self.host.run_all("--jobs", 2)
        self.assertEqual(received(postfix), everybody())
        self.assertEqual(self.host.queued(), [])
        self.host.run_all()  # a second run is a second report
        self.assertEqual(received(postfix), everybody() + everybody())

    def test_directory_faults_cost_only_the_owners_and_little_time(self):
        postfix, slapd = self.postfix, self.host.start_slapd()
        silent = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(silent.close)
        silent_port = silent.getsockname()[1]
        slapd.stop()
        want = Counter()
        for url in ("ldap://127.0.0.1:%d" % slapd.port, "ldap://127.0.0.1:%d" % silent_port,
                    "ldaps://127.0.0.1:%d" % silent_port):
            with self.subTest(url=url):
                self.host.connect(postfix.port, url)
                began = time.monotonic()
                result, rows = self.host.run_all()
                self.assertLess(time.monotonic() - began, 60)
                self.assertEqual(result["counts"]["sent"], len(expected.ACTIONS))
                self.assertIn("group owners", rows["anna@example.org"]["detail"])
                want += everybody(owners=False)
                self.assertEqual(received(postfix), want)
        events = parse_events((self.host.root / "var/log/velmar/spamreport.log").read_text())
        failed = {event.fields["mailbox"] for event in events if event.name == "group-owner-lookup-failed"}
        self.assertLessEqual({box for box in expected.ACTIONS if box.endswith("@example.org")}, failed)
