"""One report, from the held messages of the example host to the mail in the queue."""

import base64
import re
import shutil
import time
import unittest
import urllib.parse

import expected
from expected import MAIL, WEB
from host import SHARE, Host
from page import Page

HELD_LINK = expected.BASE + "/mail/logincheck/bypass?access="
MONTHS = "янв. февр. мар. апр. мая июн. июл. авг. сент. окт. нояб. дек.".split()
DATES = {
    "boris@example.org": lambda seconds: time.strftime("%-d {} %Y г., %H:%M", time.gmtime(seconds)).format(
        MONTHS[time.gmtime(seconds).tm_mon - 1]),
    "chiyo@example.org": lambda seconds: time.strftime("%Y/%m/%d %-H:%M", time.gmtime(seconds)),
    "dana@example.net": lambda seconds: time.strftime("%d.%m.%Y, %H:%M", time.gmtime(seconds)),
}
RECIPIENTS = {
    "dana@example.net": ["dana@example.net", "postmaster@example.net"],
    "kim+lists@example.net": ["kim@example.net", "postmaster@example.net"],
    "lone@example.net": ["lone@example.net", "postmaster@example.net"],
}
# Beside words of the same meaning an image has no words of its own.
IMAGES = {("Logo", "icon_titlelogo.png"), ("", "icon_deleteall.png")}


def of_each_report(test):
    """Runs a test once for each report, naming the mailbox when it fails."""
    def run(self):
        for mailbox in expected.ACTIONS:
            with self.subTest(mailbox=mailbox):
                test(self, mailbox, self.mails[mailbox], self.wanted[mailbox], self.pages[mailbox])
    return run


class ReportTest(unittest.TestCase):
    """All reports of the example host, made once; each test looks at one side of all of them."""

    @classmethod
    def setUpClass(cls):
        cls.host = Host(cls.addClassCleanup)
        cls.started = int(time.time())
        cls.mails = {mailbox: cls.host.report(mailbox) for mailbox in expected.ACTIONS}
        cls.finished = int(time.time())
        cls.wanted = {mailbox: expected.report(cls.host, mailbox) for mailbox in expected.ACTIONS}
        cls.pages = {mailbox: Page(mail.body("html")) for mailbox, mail in cls.mails.items()}

    @of_each_report
    def test_header_and_envelope(self, mailbox, queued, wanted, _page):
        self.assertRegex(queued.mail["Message-ID"], r"^<[^<>\s@]+@example\.org>$")
        want = {"To": mailbox, "From": "Spam quarantine <%s>" % expected.RELEASE, "Auto-Submitted": "auto-generated",
                "Subject": expected.heading(len(wanted.rows)), "MIME-Version": "1.0"}
        self.assertEqual({name: value for name, value in queued.mail.items()
                          if name not in ("Date", "Message-ID", "Content-Type")}, want)
        recipients = [("Recipient", address) for address in RECIPIENTS.get(mailbox, [mailbox])]
        envelope = [line for line in queued.envelope if line[0] != "Queued"]
        self.assertEqual(envelope, [("Velmar-Spool", "2"), ("Id", queued.id), ("Sender", ""), *recipients,
                                    ("Notify", "never"), ("Attempts", "0"), ("Next", "0"), ("Reply", "")])

    @of_each_report
    def test_rows_hold_each_message_and_its_links(self, mailbox, _queued, wanted, page):
        self.assertGreater(len(wanted.rows), 0)
        offered = [kind for kind in (WEB, MAIL) if kind in expected.ACTIONS[mailbox]]
        want = [(expected.sender(row), expected.subject(row), [link for kind in offered for link in row.links[kind]])
                for row in wanted.rows]
        self.assertEqual([(row["sender"].strip(), row["subject"], row["links"]) for row in page.rows], want)
        self.assertEqual([row.get("class") for row in page.rows], [(None, "even")[n % 2] for n in range(len(page.rows))])
        self.assertIn(expected.heading(len(wanted.rows)), page.head)
        self.assertEqual(page.unclosed, [])
        self.assertEqual(page.links[:len(offered)], [wanted.delete_all[kind] for kind in offered])
        self.assertEqual(len(page.links), len(offered) + (WEB in offered))

    @of_each_report
    def test_preferences_link(self, mailbox, _queued, _wanted, page):
        """The access value names the mailbox and an end 24 hours from when it was made."""
        for link in page.links[len(expected.ACTIONS[mailbox]):]:
            self.assertTrue(link.startswith(HELD_LINK), link)
            access = urllib.parse.unquote(link[len(HELD_LINK):])
            owner, _, end = base64.urlsafe_b64decode(access + "=" * (-len(access) % 4))[1:-32].decode().rpartition(":")
            self.assertEqual(owner, mailbox)
            self.assertTrue(self.started <= int(end, 16) - 86400 <= self.finished, end)

    @of_each_report
    def test_images_are_attached_once(self, _mailbox, queued, _wanted, page):
        types = [part.get_content_type() for part in queued.mail.walk()]
        self.assertEqual(types, ["multipart/alternative", "text/plain", "multipart/related", "text/html",
                                 *["image/png"] * len(IMAGES)])
        self.assertEqual({image["src"] for image in page.images}, set(queued.images))
        self.assertEqual({(image["alt"], queued.images[image["src"]]) for image in page.images},
                         {(alt, (SHARE / "images" / name).read_bytes()) for alt, name in IMAGES})

    @of_each_report
    def test_dates_in_the_users_language(self, mailbox, _queued, wanted, page):
        date = DATES.get(mailbox, expected.english_date)
        self.assertEqual([expected.plain_blanks(row["date"]) for row in page.rows],
                         ["%d · %s" % (n, date(row.time)) for n, row in enumerate(wanted.rows, 1)])
        period = "%s to %s (UTC)" % (date(self.host.until - 86400), date(self.host.until))
        self.assertIn(period, expected.plain_blanks(page.head))

    @of_each_report
    def test_text_names_each_message_and_action(self, mailbox, queued, wanted, page):
        actions = expected.ACTIONS[mailbox]
        text = queued.body("plain")
        dates = [row["date"].replace(" · ", ".", 1) for row in page.rows]
        rest = "".join(text.split())
        for row in expected.text_rows(wanted, actions, dates):
            self.assertIn(row, rest)
            rest = rest[rest.index(row) + len(row):]
        all_of_them = ["ontheweb" + wanted.delete_all[WEB]] if WEB in actions else []
        all_of_them += ["To:%sSubject:%s" % (expected.DELETE, wanted.delete_all_subject)] if MAIL in actions else []
        for words in all_of_them + page.links[len(actions):]:
            self.assertIn(words, rest)
        for line in text.split("\n"):
            self.assertTrue(len(line) <= 76 or re.fullmatch(r" *(\w+: )?\S+", line), line)


class CrowdedReportTest(unittest.TestCase):
    """Sixty messages whose senders fill every text, held around the hour when clocks in Berlin were set back."""

    UNTIL = 1792929600  # noon of 25 October 2026, UTC

    def setUp(self):
        self.host = Host(self.addCleanup)
        shutil.rmtree(self.host.quarantine("anna@example.org"))
        (self.host.quarantine("anna@example.org") / "cur").mkdir(parents=True)
        for n in range(60):
            name = "%d.M%dP12345.mail.example.org,S=12345,W=12600:2," % (self.UNTIL - 60 - n, 100000 + n)
            words = ("日本&", "\"<&>", "क्षे", "👩‍🚀", "é", "a.b")[n % 6] * 300
            (self.host.quarantine("anna@example.org") / "cur" / name).write_text(
                "From: %s <%s@%s>\nSubject: %s\nMessage-Id: <a@b>\n\n" % (words, "&" * 60, "a.b." * 40 + "org", words))

    def previewed(self, zone, *options):
        out = self.host.directory / "out"
        self.host.command("preview", "anna@example.org", "--root", self.host.root, "--period", 86400, "--until",
                          self.UNTIL, "--output", out, *options, zone=zone)
        return out

    def test_no_sender_pushes_rows_beyond_where_webmail_cuts_a_page(self):
        pages = list(self.previewed("Europe/Berlin", "--all-languages").glob("default*.html"))
        self.assertEqual(len(pages), len(list((SHARE / "templates").iterdir())))
        for path in pages:
            page = re.sub(r'src="data:[^"]*"', 'src="cid:img1.0123456789abcdef@velmar"', path.read_text())
            self.assertEqual(page.count('<th scope="row">'), 60, path)
            self.assertLess(len(page.encode()), 102000, path)

    def test_zone_is_named_in_the_language_of_the_dates(self):
        for zone, language, want in [
            ("Europe/Berlin", "de", "Mitteleuropäische Sommerzeit, UTC+2 / Mitteleuropäische Normalzeit, UTC+1"),
            ("Asia/Kolkata", "ja", "インド標準時, UTC+5:30"),
            ("Etc/UTC", "fr", "UTC"),
            ("XST-5:30", "fr", "XST, UTC+5:30"),  # unknown to ICU
            ("<+05>-5", "fr", "UTC+5"),
        ]:
            text = (self.previewed(zone, "--language", language) / "report.txt").read_text()
            self.assertIn("(%s)" % want, " ".join(text.split()))
