"""Runs of the command: which reports are made, what is logged, which messages a period holds, own templates."""

import resource
import shutil
import unittest

import expected
from host import DAY, SHARE, Host, parse_events
from page import Page


class RunTest(unittest.TestCase):
    def setUp(self):
        self.host = Host(self.addCleanup)

    def test_each_reason_not_to_report(self):
        cases = [
            ("emil@example.org", "nothing-held", 0x80010),
            ("nobody@example.org", "nothing-held", 0x80010),  # which is told as a failure: there is no such mailbox
            ("felix@example.org", "report-disabled", 0x8000e),
            ("gina@example.com", "report-disabled", 0x8000e),
            ("ivy@example.com", "no-recipients", 0x8000f),
        ]
        for mailbox, name, code in cases:
            with self.subTest(mailbox=mailbox):
                events = self.host.run(mailbox, want=int(mailbox.startswith("nobody")))
                self.assertEqual(events, [(code, name, {"mailbox": mailbox})])
                self.assertEqual(self.host.queued(), [])

    def test_failure_is_told_and_costs_only_its_report(self):
        """What cannot be read or written fails the report, by name; once it is mended the same run succeeds."""
        boris = self.host.quarantine("boris@example.org")
        cases = [
            ("a file in place of the spool", "var/spool/velmar", b"", "var/spool/velmar", 2),
            ("no state store", "var/lib/velmar/state.db", b"no database " * 400, "state.db", 2),
            ("a quarantine in a circle", boris / "new", None, "boris~example.org/quarantine/new", 1),
            ("a large icon", "migadmin/www/admin/images/icon_deleteall.png", bytes(2 << 20), "icon_deleteall.png", 2),
        ]
        for name, place, content, named, failures in cases:
            with self.subTest(name):
                path, aside = self.host.root / place, self.host.directory / "aside"
                if path.exists():
                    path.rename(aside)
                path.parent.mkdir(parents=True, exist_ok=True)
                path.symlink_to(path) if content is None else path.write_bytes(content)
                events = self.host.run("boris@example.org", "chiyo@example.org", want=1)
                errors = [event.fields["error"] for event in events if event.name == "report-failed"]
                mailboxes = [event.fields.get("mailbox") for event in events if event.name == "report-failed"]
                self.assertEqual(mailboxes, ["boris@example.org", "chiyo@example.org"][:failures])
                self.assertEqual([named in error for error in errors], [True] * failures, errors)
                path.unlink()
                if aside.exists():
                    aside.rename(path)
                self.assertEqual(len(self.host.queued()), 2 - failures)
                self.host.report("boris@example.org")
                self.host.empty_queue()

    def test_limit_of_file_sizes_costs_reports_but_not_the_run(self):
        """One whole mail or none, and a word when none."""
        whole = len(self.host.report("boris@example.org").raw)
        for size in 4096, whole - 1000, whole + 100000:
            with self.subTest(size=size):
                self.host.empty_queue()
                soft, hard = resource.getrlimit(resource.RLIMIT_FSIZE)
                resource.setrlimit(resource.RLIMIT_FSIZE, (size, hard))
                try:
                    done = self.host.command("run", "--root", self.host.root, "--domain", "example.org",
                                             "--recipients", "boris@example.org", "--until", self.host.until,
                                             "--period", DAY, want=None)
                finally:
                    resource.setrlimit(resource.RLIMIT_FSIZE, (soft, hard))
                want = (0, False) if size > whole else (1, True)
                self.assertEqual((done.returncode, "report-failed" in done.stderr), want)
                self.assertEqual([len(mail.raw) for mail in self.host.queued()], [whole] if size > whole else [])

    def test_links_between_addresses(self):
        """A confirmed link decides who gets the report; a one-sided one is removed once, and logged once."""
        kim = "kim+lists@example.net"
        count = str(len(expected.report(self.host, kim).rows))
        recipients = "kim@example.net,postmaster@example.net"
        built = ("report-built", {"count": count, "mailbox": kim, "recipients": recipients})
        repaired = ("list-links-repaired", {"removed": "old.kim@example.net", "mailbox": kim})
        self.assertEqual([event[1:] for event in self.host.run(kim) + self.host.run(kim)], [repaired, built, built])
        self.assertEqual([mail.mailbox for mail in self.host.queued()], [kim, kim])

    def test_period_is_half_open(self):
        end, hour, mailbox = self.host.until, 3600, "edge@example.org"
        for name, seconds in [("first", end - hour), ("before", end - hour - 1), ("last", end - 1), ("after", end)]:
            self.host.hold(mailbox, "%d.%s.mail" % (seconds, name), "Subject: %s\nMessage-Id: <a@b>\n\n" % name)
        for until, want in [(end, ["last", "first"]), (end - hour, ["before"])]:
            page = Page(self.host.report(mailbox, period=hour, until=until).body("html"))
            self.assertEqual([row["subject"] for row in page.rows], want)

    def test_all_reports_at_once(self):
        """Processes that share state, log and spool, or threads, make the same reports as one after the other."""
        events = self.host.run_at_once(*expected.ACTIONS)
        logged = parse_events((self.host.root / "var/log/velmar/spamreport.log").read_text())
        self.assertEqual(sorted(map(repr, logged)), sorted(map(repr, events)))
        self.assert_all_reports()
        self.host.empty_queue()
        done = self.host.command("run", "--verbose", "--root", self.host.root, "--all", "--jobs", 4, "--period", DAY,
                                 "--until", self.host.until)
        names = [event.name for event in parse_events(done.stderr)]
        self.assertEqual({name: names.count(name) for name in names},
                         {"report-built": 6, "nothing-held": 1, "report-disabled": 2, "no-recipients": 1})
        self.assert_all_reports()

    def assert_all_reports(self):
        """One report for each mailbox that gets one, each with its own rows and its own images."""
        mails = self.host.queued()
        self.assertEqual(sorted(mail.mailbox for mail in mails), sorted(expected.ACTIONS))
        for mail in mails:
            page, want = Page(mail.body("html")), expected.report(self.host, mail.mailbox)
            self.assertEqual([row["subject"] for row in page.rows], [expected.subject(row) for row in want.rows])
            self.assertEqual({image["src"] for image in page.images}, set(mail.images))

    def test_own_templates(self):
        """Those of a site and of a domain; one that cannot be used gives way to the default."""
        templates = self.host.root / "etc/velmar/templates"
        for name, html in [("default", "<p>{{QUARANTINE_MESSAGES_COUNT}} held &amp; <b>{{RELEASE_CONTROL_USER}}</b></p>"),
                           ("example.net/branded", "<p>only for example.net</p>"), ("broken", "{{#OPEN}}")]:
            shutil.copytree(SHARE / "templates/default", templates / name)
            (templates / name / "body.html.tpl").write_text(html)
        (templates / "default/header.tpl").write_text(
            "From: Post für dich <post@example.org>\nSubject: {{QUARANTINE_MESSAGES_COUNT}} × Spam\n"
            "Envelope-From: bounces@example.org\n")
        self.host.configure('template = "default"', 'template = "broken"')
        mail = self.host.report("lone@example.net")
        self.assertEqual(mail.body("html").strip(), "<p>1 held &amp; <b>release@example.org</b></p>")
        self.assertEqual((mail.mail["From"], mail.mail["Subject"]), ("Post für dich <post@example.org>", "1 × Spam"))
        self.assertIn(("Sender", "bounces@example.org"), mail.envelope)
        self.assertEqual(mail.images, {})
        domain = '[[domain]]\nname = "example.net"'
        self.host.configure(domain, domain + '\nown_template = true\ntemplate = "branded"')
        self.assertEqual(self.host.report("lone@example.net").body("html").strip(), "<p>only for example.net</p>")
        self.assertIn(" held &amp; ", self.host.report("boris@example.org").body("html"))
