"""Runs of the command: which reports are made, what is logged, which messages a period holds."""

import shutil
import unittest

import expected
from host import DAY, SHARE, Host, parse_events
from page import Page

HARMLESS = "From: %s <u@sender.example>\nSubject: %s\nMessage-Id: <%s@held.example>\n\nText\n"


def harmless(name):
    return HARMLESS % (name, "Subject of " + name, name)


class RunTest(unittest.TestCase):
    def setUp(self):
        self.host = Host()
        self.addCleanup(self.host.__exit__)
        self.host.lay_out()

    def assert_events(self, got, want):
        self.assertEqual([(event.name, event.fields) for event in got], want)

    def built(self, mailbox, recipients=None):
        count = len(expected.report(self.host, mailbox).rows)
        return "report-built", {"count": str(count), "mailbox": mailbox, "recipients": recipients or mailbox}

    def test_each_reason_not_to_report(self):
        cases = [
            ("emil@example.org", "nothing-held", 0x80010),
            ("nobody@example.org", "nothing-held", 0x80010),
            ("felix@example.org", "report-disabled", 0x8000e),
            ("gina@example.com", "report-disabled", 0x8000e),
            ("ivy@example.com", "no-recipients", 0x8000f),
        ]
        for mailbox, name, code in cases:
            with self.subTest(mailbox=mailbox):
                events = self.host.run(mailbox)
                self.assert_events(events, [(name, {"mailbox": mailbox})])
                self.assertEqual(events[0].code, code)
                self.assertEqual(self.host.queued(), [])

    def test_wrong_use_is_refused_before_anything_is_done(self):
        cases = [
            ("nowhere.example", "anna@nowhere.example", "nowhere.example"),
            ("example.org", "dana@example.net", "dana@example.net"),
            ("example.org", "anna@example.org,no address", "no address"),
            ("example.org", "", ""),
        ]
        for domain, recipients, named in cases:
            with self.subTest(domain=domain, recipients=recipients):
                done = self.host.command(*self.host.run_arguments([recipients], domain, self.host.until, DAY), want=2)
                self.assertIn(named, done.stderr)
                self.assertEqual(self.host.queued(), [])

    def test_wrong_configuration_is_refused_as_a_whole(self):
        path = self.host.root / "etc/velmar/host.toml"
        good = path.read_text()
        cases = [("port = 443", "port = 70000", "port"), ("port = 443", "prot = 443", "prot"),
                 ('template = "default"', 'template = "../default"', "../default"),
                 ("[log]", "[log", "host.toml:")]
        for old, new, named in cases:
            with self.subTest(new):
                path.write_text(good.replace(old, new, 1))
                done = self.host.command(*self.host.run_arguments(["boris@example.org"], "example.org", self.host.until, DAY),
                                         want=1)
                self.assertIn(named, done.stderr)
                self.assertEqual(self.host.queued(), [])

    def test_failure_is_told_and_costs_only_its_report(self):
        """What cannot be read or written fails the report, by name; once it is mended the same run succeeds."""
        boris = self.host.quarantine("boris@example.org")
        images = self.host.root / "migadmin/www/admin/images"
        cases = [
            ("the spool is a file", self.host.root / "var/spool/velmar", b"", "var/spool/velmar"),
            ("the state store is none", self.host.root / "var/lib/velmar/state.db", b"no database " * 400, "state.db"),
            ("the quarantine leads round in a circle", boris / "new", None, "boris~example.org/quarantine/new"),
            ("an icon is too large", images / "icon_delete.png", bytes(2 << 20), "icon_delete.png"),
        ]
        for name, path, content, named in cases:
            with self.subTest(name):
                aside = self.host.directory / ("aside of " + path.name)
                if path.exists():
                    path.rename(aside)
                path.parent.mkdir(parents=True, exist_ok=True)
                path.symlink_to(path) if content is None else path.write_bytes(content)
                events = self.host.run("boris@example.org", want=1)
                self.assertEqual(events[-1].name, "report-failed")
                self.assertIn(named, events[-1].fields["error"])
                path.unlink()
                if aside.exists():
                    aside.rename(path)
                self.assertEqual(self.host.queued(), [])
                self.host.report("boris@example.org")
                self.host.empty_queue()

    def test_several_mailboxes_in_order(self):
        events = self.host.run("chiyo@example.org", "felix@example.org", "boris@example.org")
        self.assert_events(events, [self.built("chiyo@example.org"), ("report-disabled", {"mailbox": "felix@example.org"}),
                                    self.built("boris@example.org")])
        self.assertEqual([mail.mailbox for mail in self.host.queued()], ["chiyo@example.org", "boris@example.org"])

    def test_log_file_holds_the_same_events(self):
        events = self.host.run("boris@example.org", "emil@example.org")
        self.assertEqual(self.host.log_file(), events)

    def test_links_between_addresses(self):
        """A confirmed link decides who gets the report; a one-sided one is removed once, and logged once."""
        kim = "kim+lists@example.net"
        built = self.built(kim, "kim@example.net,postmaster@example.net")
        self.assert_events(self.host.run(kim), [("list-links-repaired", {"removed": "old.kim@example.net", "mailbox": kim}),
                                                built])
        self.assert_events(self.host.run(kim), [built])
        self.assertEqual([mail.mailbox for mail in self.host.queued()], [kim, kim])

    def test_deleted_user_is_left_alone(self):
        (self.host.quarantine("boris@example.org").parent / ".deleted").touch()
        self.assert_events(self.host.run("boris@example.org"), [])
        self.assertEqual(self.host.queued(), [])

    def test_period_is_half_open(self):
        until, period = self.host.until, 3600
        for name, seconds in [("first", until - period), ("before", until - period - 1), ("last", until - 1), ("after", until)]:
            self.host.hold("edge@example.org", "%d.%s.mail" % (seconds, name), harmless(name))
        page = Page(self.host.report("edge@example.org", period=period).html)
        self.assertEqual([row["subject"] for row in page.rows], ["Subject of last", "Subject of first"])
        earlier = Page(self.host.report("edge@example.org", period=period, until=until - period).html)
        self.assertEqual([row["subject"] for row in earlier.rows], ["Subject of before"])

    def test_identifier_survives_a_change_of_flags(self):
        seconds = self.host.until - 60
        self.host.hold("flags@example.org", "%d.M1P2.mail,S=10:2," % seconds, harmless("flags"), "cur")
        first = Page(self.host.report("flags@example.org").html)
        folder = self.host.quarantine("flags@example.org") / "cur"
        (folder / ("%d.M1P2.mail,S=10:2," % seconds)).rename(folder / ("%d.M1P2.mail,S=10:2,RS" % seconds))
        second = Page(self.host.report("flags@example.org").html)
        self.assertEqual(first.rows[0]["links"], second.rows[0]["links"])
        want = expected.report(self.host, "flags@example.org").rows[0].links
        self.assertEqual(first.rows[0]["links"], want[expected.WEB] + want[expected.MAIL])

    def test_large_quarantine(self):
        """Many messages, many of them in the same second: all listed, in order, in a mail that stays correct."""
        for number in range(1200):
            self.host.hold("many@example.org", "%d.M%06d.mail" % (self.host.until - 100 - number // 300, number),
                           harmless("m%04d" % number))
        mail = self.host.report("many@example.org")
        page = Page(mail.html)
        listed = [line.removeprefix("Subject: ") for line in mail.text.split("\n") if line.startswith("Subject: ")]
        for got in ([row["subject"] for row in page.rows], listed):
            self.assertEqual(len(got), 1200)
            for number, subject in enumerate(got):
                self.assertEqual(subject, "Subject of m%04d" % number)

    def test_several_runs_at_once(self):
        """Processes that share state, log and spool make the same reports as one after the other."""
        events = self.host.run_at_once(*expected.ACTIONS)
        self.assertEqual(sorted(map(repr, self.host.log_file())), sorted(map(repr, events)))
        self.assert_all_reports()

    def test_whole_host_on_several_threads(self):
        done = self.host.command("run", "--verbose", "--root", self.host.root, "--all", "--jobs", 4, "--period", DAY,
                                 "--until", self.host.until)
        names = [event.name for event in parse_events(done.stderr)]
        self.assertEqual({name: names.count(name) for name in names},
                         {"report-built": 6, "nothing-held": 1, "report-disabled": 2, "no-recipients": 1,
                          "list-links-repaired": 1})
        self.assert_all_reports()

    def assert_all_reports(self):
        """One report for each mailbox that gets one, each with its own rows and its own images."""
        mails = self.host.queued()
        self.assertEqual(sorted(mail.mailbox for mail in mails), sorted(expected.ACTIONS))
        for mail in mails:
            with self.subTest(mailbox=mail.mailbox):
                page, want = Page(mail.html), expected.report(self.host, mail.mailbox)
                self.assertEqual([row["subject"] for row in page.rows], [row.subject for row in want.rows])
                images = [part["Content-ID"] for part in mail.mail.walk() if part.get_content_maintype() == "image"]
                used = {image["src"] for row in page.rows for image in row["images"]} | {i["src"] for i in page.images}
                self.assertEqual({"<%s>" % source.removeprefix("cid:") for source in used}, set(images))
                self.assertEqual(len(images), 4)

    def test_local_time(self):
        seconds = self.host.until - 60
        self.host.hold("zone@example.org", "%d.zone.mail" % seconds, harmless("zone"))
        for zone, shift in [("UTC0", 0), ("XST-5:30", 19800), ("YST8", -28800)]:
            with self.subTest(zone=zone):
                page = Page(self.host.report("zone@example.org", zone=zone).html)
                self.assertEqual(expected.plain_blanks(page.rows[0]["date"]), expected.english_date(seconds + shift))

    def test_queue_shows_what_waits(self):
        mail = self.host.report("boris@example.org")
        listed = self.host.command("queue", "list", "--root", self.host.root).stdout
        for value in (mail.id, "boris@example.org"):
            self.assertIn(value, listed)
        shown = self.host.command("queue", "show", mail.id, "--root", self.host.root).stdout
        self.assertIn(mail.mail["Message-ID"], shown)

    def test_preview_queues_nothing(self):
        out = self.host.directory / "preview"
        self.host.command("preview", "boris@example.org", "--root", self.host.root, "--period", DAY, "--until",
                          self.host.until, "--output", out)
        self.assertEqual(self.host.queued(), [])
        pages = list(out.glob("*.html"))
        self.assertEqual(len(pages), 1)
        want = [row.subject for row in expected.report(self.host, "boris@example.org").rows]
        self.assertEqual([row["subject"] for row in Page(pages[0].read_text()).rows], want)


class TemplateTest(unittest.TestCase):
    """A site's own templates and logo."""

    def setUp(self):
        self.host = Host()
        self.addCleanup(self.host.__exit__)
        self.host.lay_out()
        self.templates = self.host.root / "etc/velmar/templates"

    def own(self, *place, html=None, header=None):
        directory = self.templates.joinpath(*place)
        directory.mkdir(parents=True, exist_ok=True)
        for source in (SHARE / "templates/default").glob("*.tpl"):
            shutil.copy(source, directory / source.name)
        if html is not None:
            (directory / "body.html.tpl").write_text(html)
        if header is not None:
            (directory / "header.tpl").write_text(header)

    def configure(self, old, new):
        path = self.host.root / "etc/velmar/host.toml"
        text = path.read_text()
        self.assertIn(old, text)
        path.write_text(text.replace(old, new))

    def test_own_template_replaces_the_default(self):
        self.own("default", html="<p>{{QUARANTINE_MESSAGES_COUNT}} held &amp; <b>{{RELEASE_CONTROL_USER}}</b></p>",
                 header="From: Post für dich <post@example.org>\nSubject: {{QUARANTINE_MESSAGES_COUNT}} × Spam\n"
                        "Envelope-From: bounces@example.org\n")
        mail = self.host.report("lone@example.net")
        self.assertEqual(mail.html.strip(), "<p>1 held &amp; <b>release@example.org</b></p>")
        self.assertEqual(mail.mail["From"], "Post für dich <post@example.org>")
        self.assertEqual(mail.mail["Subject"], "1 × Spam")
        self.assertEqual(mail.values("Sender")[0].strip("<>"), "bounces@example.org")
        self.assertFalse([part for part in mail.mail.walk() if part.get_content_maintype() == "image"])

    def test_template_of_a_domain(self):
        self.own("example.net", "branded", html="<p>only for example.net</p>")
        self.configure('[[domain]]\nname = "example.net"', '[[domain]]\nown_template = true\ntemplate = "branded"\nname = "example.net"')
        self.assertEqual(self.host.report("lone@example.net").html.strip(), "<p>only for example.net</p>")
        self.assertIn("Messages held", self.host.report("boris@example.org").html)

    def test_unusable_template_gives_the_default(self):
        cases = [("missing", None), ("broken", "{{#QUARANTINE_MESSAGES_TABLE}} never closed"),
                 ("unescaped", "<p>{{#QUARANTINE_MESSAGES_TABLE}}{{ORIG_SUBJECT:none}}{{/QUARANTINE_MESSAGES_TABLE}}</p>")]
        for name, html in cases:
            with self.subTest(template=name):
                if html:
                    self.own(name, html=html)
                before = (self.host.root / "etc/velmar/host.toml").read_text()
                self.configure('template = "default"', 'template = "%s"' % name)
                self.assertIn("Messages held", self.host.report("lone@example.net").html)
                (self.host.root / "etc/velmar/host.toml").write_text(before)

    def test_own_page_without_escaping_mark_is_escaped(self):
        self.own("default", html="<ul>{{#QUARANTINE_MESSAGES_TABLE}}<li>{{ORIG_SUBJECT}}</li>{{/QUARANTINE_MESSAGES_TABLE}}</ul>")
        self.host.hold("list@example.org", "%d.a.mail" % (self.host.until - 5),
                       "From: a\nSubject: <b>&\nMessage-Id: <aaa@a>\n\n")
        self.assertEqual(self.host.report("list@example.org").html.strip(), "<ul><li>&lt;b&gt;&amp;</li></ul>")

    def test_own_logo_of_each_format(self):
        png = (SHARE / "images/icon_release.png").read_bytes()
        default = (SHARE / "images/icon_titlelogo.png").read_bytes()
        gif, jpeg = b"GIF89a" + bytes(20), b"\xff\xd8\xff\xe0" + bytes(20)
        cases = [("a GIF", gif, "image/gif", gif), ("a JPEG", jpeg, "image/jpeg", jpeg), ("a PNG", png, "image/png", png),
                 ("too short", b"GIF89a" + bytes(9), "image/png", default), ("no image", b"<svg>" + bytes(30), "image/png", default)]
        for name, content, kind, want in cases:
            with self.subTest(name):
                (self.host.root / "migadmin/www/admin/images/icon_titlelogo").write_bytes(content)
                mail = self.host.report("lone@example.net")
                logo = [image for image in Page(mail.html).images if image["alt"] == "Logo"]
                part = [part for part in mail.mail.walk() if part["Content-ID"] == "<%s>" % logo[0]["src"][len("cid:"):]]
                self.assertEqual((part[0].get_content_type(), part[0].get_content()), (kind, want))


if __name__ == "__main__":
    unittest.main()
