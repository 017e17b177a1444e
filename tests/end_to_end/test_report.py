"""One report, from the held messages of the example host to the mail in the queue."""

import base64
import functools
import hmac
import re
import time
import unittest
import urllib.parse

import expected
from expected import MAIL, WEB
from host import SHARE, Host
from page import Page

HELD_LINK = expected.BASE + "/mail/logincheck/bypass?access="
LANGUAGES = {"boris@example.org": "ru", "chiyo@example.org": "ja", "dana@example.net": "de"}
RECIPIENTS = {
    "dana@example.net": ["dana@example.net", "postmaster@example.net"],
    "kim+lists@example.net": ["kim@example.net", "postmaster@example.net"],
    "lone@example.net": ["lone@example.net", "postmaster@example.net"],
}
IMAGES = {"Logo": "icon_titlelogo.png", "Release": "icon_release.png", "Delete": "icon_delete.png",
          "Delete All": "icon_deleteall.png"}


def of_each_report(test):
    """Runs a test once for each report, naming the mailbox when it fails."""
    @functools.wraps(test)
    def run(self):
        for mailbox in expected.ACTIONS:
            with self.subTest(mailbox=mailbox):
                test(self, mailbox, self.mails[mailbox], self.wanted[mailbox], self.pages[mailbox])
    return run


class ReportTest(unittest.TestCase):
    """All reports of the example host, made once; each test looks at one side of all of them."""

    @classmethod
    def setUpClass(cls):
        cls.host = Host()
        cls.addClassCleanup(cls.host.__exit__)
        cls.host.lay_out()
        cls.started = int(time.time())
        cls.mails = {mailbox: cls.host.report(mailbox) for mailbox in expected.ACTIONS}
        cls.finished = int(time.time())
        cls.wanted = {mailbox: expected.report(cls.host, mailbox) for mailbox in expected.ACTIONS}
        cls.pages = {mailbox: Page(mail.html) for mailbox, mail in cls.mails.items()}

    @of_each_report
    def test_mail_is_clean(self, mailbox, queued, _wanted, _page):
        for part in queued.mail.walk():
            self.assertEqual(part.defects, [], part.get_content_type())
            for name, value in part.items():
                self.assertEqual(tuple(value.defects), (), "%s: %s" % (name, value))
        self.assertNotRegex(queued.raw, rb"(?<!\r)\n|\r(?!\n)", "a bare line end")
        self.assertLess(max(len(line) for line in queued.raw.split(b"\r\n")), 999)
        self.assertTrue(queued.raw.isascii())
        names = [name.lower() for name in queued.mail.keys()]
        self.assertEqual(len(names), len(set(names)), "a field twice: %s" % names)

    @of_each_report
    def test_structure(self, mailbox, queued, _wanted, _page):
        types = [part.get_content_type() for part in queued.mail.walk()]
        images = [kind for kind in types if kind.startswith("image/")]
        self.assertEqual(types, ["multipart/alternative", "text/plain", "multipart/related", "text/html"] + images)
        for part in queued.part("text/plain") + queued.part("text/html"):
            self.assertEqual(part.get_content_charset(), "utf-8")

    @of_each_report
    def test_header(self, mailbox, queued, wanted, _page):
        self.assertEqual(queued.mail["To"], mailbox)
        self.assertEqual(queued.mail["From"], "Quarantine <%s>" % expected.RELEASE)
        self.assertEqual(queued.mail["Subject"], "Quarantine report, messages held: %d" % len(wanted.rows))
        self.assertRegex(queued.mail["Message-ID"], r"^<[^<>\s@]+@example\.org>$")
        self.assertEqual(queued.mail["MIME-Version"], "1.0")
        self.assertIsNone(queued.mail["Bcc"])

    @of_each_report
    def test_envelope(self, mailbox, queued, _wanted, _page):
        self.assertEqual(queued.envelope[0], ("Velmar-Spool", "1"))
        self.assertEqual(queued.values("Id"), [queued.id])
        self.assertIn(queued.values("Sender"), ([""], ["<>"]))
        self.assertEqual(queued.values("Recipient"), RECIPIENTS.get(mailbox, [mailbox]))
        self.assertEqual([value.lower() for value in queued.values("Notify")], ["never"])
        self.assertEqual({name for name, _ in queued.envelope},
                         {"Velmar-Spool", "Id", "Sender", "Recipient", "Notify", "Queued"})

    @of_each_report
    def test_rows_hold_each_message(self, mailbox, _queued, wanted, page):
        self.assertGreater(len(wanted.rows), 0)
        got = [(row["sender"], row["subject"]) for row in page.rows]
        self.assertEqual(len(got), len(wanted.rows))
        for texts, row in zip(got, wanted.rows):
            with self.subTest(row=row.sender):
                self.assertEqual(texts, (row.sender, row.subject))
        self.assertEqual([row["class"] for row in page.rows], [("odd", "even")[n % 2] for n in range(len(got))])
        self.assertIn("Messages held in your quarantine: %d" % len(wanted.rows), page.head)

    @of_each_report
    def test_links_of_rows(self, mailbox, _queued, wanted, page):
        for got, row in zip(page.rows, wanted.rows):
            want = [link for kind in (WEB, MAIL) if kind in expected.ACTIONS[mailbox] for link in row.links[kind]]
            self.assertEqual(got["links"], want)

    @of_each_report
    def test_links_of_report(self, mailbox, _queued, wanted, page):
        actions = expected.ACTIONS[mailbox]
        self.assertEqual(page.links[:len(actions)], [wanted.delete_all[kind] for kind in (WEB, MAIL) if kind in actions])
        rest = page.links[len(actions):]
        self.assertEqual(len(rest), 1 if WEB in actions else 0, "the preferences link: %s" % rest)
        for link in rest:
            self.assert_preferences(link, mailbox)

    def assert_preferences(self, link, mailbox):
        """The access value names the mailbox and an end 24 hours from when it was made, under this host's secret."""
        self.assertTrue(link.startswith(HELD_LINK), link)
        access = urllib.parse.unquote(link[len(HELD_LINK):])
        decoded = base64.urlsafe_b64decode(access + "=" * (-len(access) % 4))
        version, text, code = decoded[:1], decoded[1:-32], decoded[-32:]
        owner, _, end = text.decode().rpartition(":")
        self.assertEqual((version, owner), (b"\1", mailbox))
        self.assertTrue(self.started <= int(end, 16) - 86400 <= self.finished, end)
        secret = (self.host.root / "var/lib/velmar/secret").read_bytes()
        want = hmac.digest(secret, version + expected.KEY.to_bytes(4, "little") + text, "sha256")
        self.assertEqual(code, want)

    @of_each_report
    def test_images_are_attached_once(self, mailbox, queued, _wanted, page):
        parts = [part for part in queued.mail.walk() if part.get_content_maintype() == "image"]
        content = {part["Content-ID"].strip("<>"): part.get_content() for part in parts}
        self.assertEqual(len(content), len(parts), "the same content id twice")
        used = page.images + [image for row in page.rows for image in row["images"]]
        self.assertEqual({image["src"] for image in used}, {"cid:" + cid for cid in content})
        for image in used:
            want = (SHARE / "images" / IMAGES[image["alt"]]).read_bytes()
            self.assertEqual(content[image["src"][len("cid:"):]], want, image)
        for part in parts:
            self.assertEqual((part.get_content_type(), part.get_content_disposition()), ("image/png", "inline"))
        self.assertEqual({image["alt"] for image in used}, set(IMAGES))

    def test_nothing_from_a_message_becomes_an_element(self):
        """The page of harmless messages has the same elements with the same attributes, in the same order."""
        with Host() as other:
            other.lay_out()
            listed = [held for held in other.held("anna@example.org")
                      if len(expected.identifier(held.path.read_bytes()).strip()) > 2]
            for held in listed:
                held.path.write_bytes(b"From: harmless\nSubject: harmless\nMessage-Id: <h@h>\n\n")
            harmless = Page(other.report("anna@example.org").html)
        hostile = self.pages["anna@example.org"]
        self.assertEqual(len(hostile.rows), len(harmless.rows))
        self.assertEqual(hostile.shape, harmless.shape)
        self.assertEqual(hostile.unclosed, [])

    @of_each_report
    def test_page_loads_nothing(self, _mailbox, queued, _wanted, page):
        names = {name for _, attributes in page.elements for name, _ in attributes}
        self.assertEqual({name for name in names if name.startswith("on")}, set())
        tags = {tag for tag, _ in page.elements}
        self.assertEqual(tags & {"script", "link", "iframe", "object", "embed", "form", "base", "svg"}, set())
        sources = [value for _, attributes in page.elements for name, value in attributes if name in ("src", "background")]
        self.assertTrue(all(value.startswith("cid:") for value in sources))
        styles = re.search(r"<style>(.*?)</style>", queued.html, re.S)[1]
        self.assertNotRegex(styles, r"url\(|@import")

    @of_each_report
    def test_layout_tables_say_so(self, _mailbox, _queued, _wanted, page):
        tables = [dict(attributes) for tag, attributes in page.elements if tag == "table"]
        self.assertEqual([table.get("role") for table in tables], ["presentation", "presentation", None])

    @of_each_report
    def test_columns_follow_the_actions(self, mailbox, _queued, _wanted, page):
        titles = {WEB: "On the web", MAIL: "By mail"}
        want = ["Message"] + [titles[kind] for kind in (WEB, MAIL) if kind in expected.ACTIONS[mailbox]]
        self.assertEqual(page.header, want)

    @of_each_report
    def test_dates_in_the_users_language(self, mailbox, queued, wanted, page):
        language = LANGUAGES.get(mailbox, "en")
        got = [expected.plain_blanks(row["date"]) for row in page.rows]
        times = [row.time for row in wanted.rows]
        if language in expected.DATES:
            self.assertEqual(got, [expected.DATES[language](t) for t in times])
            period = "%s – %s" % tuple(expected.DATES[language](t) for t in (self.host.until - 86400, self.host.until))
            self.assertIn(period, expected.plain_blanks(page.head))
        else:
            for text, seconds in zip(got, times):
                self.assertRegex(text, time.strftime(r"^%d ", time.gmtime(seconds)).replace("^0", "^"))
                self.assertTrue(text.endswith(time.strftime("%H:%M", time.gmtime(seconds)).lstrip("0")), text)
                self.assertRegex(text, "[а-я]")

    @of_each_report
    def test_text_is_whole(self, mailbox, queued, wanted, page):
        dates = [row["date"] for row in page.rows]
        period = page.head.split("\n")[1].split(" – ")
        preferences = page.links[-1] if WEB in expected.ACTIONS[mailbox] else None
        want = expected.text_body(wanted, expected.ACTIONS[mailbox], period + dates, preferences)
        got = queued.text.rstrip("\n").split("\n")
        for number, line in enumerate(want):
            self.assertEqual(got[number], line, "line %d" % (number + 1))
        self.assertEqual(len(got), len(want), got[len(want):])

    def test_same_messages_same_report(self):
        first = self.mails["boris@example.org"]
        again = self.host.report("boris@example.org")
        self.assertEqual(self.without_identity(again), self.without_identity(first))
        self.assertNotEqual(again.id, first.id)
        self.assertNotEqual(again.mail["Message-ID"], first.mail["Message-ID"])

    @staticmethod
    def without_identity(queued):
        """What does not change from one mail to the next: all but the names that the mail gives itself."""
        html = re.sub(r'"cid:[^"]*"', '"cid:"', queued.html)
        images = [part.get_content() for part in queued.mail.walk() if part.get_content_maintype() == "image"]
        return queued.mail["Subject"], queued.envelope[2:-1], html, queued.text, images


if __name__ == "__main__":
    unittest.main()
