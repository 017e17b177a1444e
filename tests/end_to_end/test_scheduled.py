"""Scheduled runs: each message is reported once, whatever is missed, fails or happens twice."""

import sqlite3
import time
import unittest
from concurrent.futures import ThreadPoolExecutor

from host import DAY, Host
from page import Page

EDGE = "edge@example.org"


class ScheduledTest(unittest.TestCase):
    """The example host reports at 8, 12 and 16 o'clock UTC; times are hours after midnight two days ago."""

    def setUp(self):
        self.host = Host(self.addCleanup)
        self.midnight = (int(time.time()) // DAY - 2) * DAY

    def hold(self, mailbox, **hours):
        for name, hour in hours.items():
            self.host.hold(mailbox, "%d.%s.mail" % (self.midnight + hour * 3600, name),
                           "Subject: %s\nMessage-Id: <a@b>\n\n" % name)

    def at(self, hour, *options, want=0):
        """Runs at this hour; returns what the mailbox EDGE got, and what the command wrote."""
        self.host.empty_queue()
        done = self.host.command("run", "--scheduled", "--root", self.host.root, "--now",
                                 int(self.midnight + hour * 3600), *options, want=want)
        reports = {mail.mailbox: [row["subject"] for row in Page(mail.body("html")).rows] for mail in self.host.queued()}
        return reports.get(EDGE), done

    def test_periods_tile_the_calendar(self):
        second = 1 / 3600
        self.hold(EDGE, early=-8 - second, a=-8, b=8 - second, c=8, d=12 - second, e=12, f=16, g=32 - second, h=32)
        for hour, want in [(8.1, ["b", "a"]), (12.002, ["d", "c"]), (32.2, ["g", "f", "e"])]:
            self.assertEqual(self.at(hour)[0], want, hour)
            reports, done = self.at(hour + 0.5)
            self.assertEqual((reports, done.stdout, done.stderr), (None, "", ""))
        self.assertEqual(self.at(32.3, "--afresh")[0], ["g", "f"])
        self.assertIsNone(self.at(32.4)[0])

    def test_what_was_missed_longer_than_the_bound_is_left_out(self):
        self.host.configure("[spam_report]", "[spam_report]\ncatch_up_hours = 20")
        self.hold(EDGE, lost=8, kept=12, late=31)
        self.at(8)
        self.assertEqual(self.at(32)[0], ["late", "kept"])

    def test_runs_at_once_report_once(self):
        for number in range(40):
            self.hold("user%d@example.org" % number, a=7)
        call = ["run", "--scheduled", "--root", self.host.root, "--jobs", 3, "--now", self.midnight + 8 * 3600]
        with ThreadPoolExecutor(3) as pool:
            done = list(pool.map(lambda _: self.host.command(*call), range(3)))
        reported = [mail.mailbox for mail in self.host.queued() if mail.mailbox.startswith("user")]
        self.assertEqual((len(reported), len(set(reported))), (40, 40))
        self.assertEqual(sum("mailboxes:" in one.stdout for one in done), 1)

    def test_ends_when_what_was_sent_cannot_be_noted(self):
        for number in range(5):
            self.hold("user%d@example.org" % number, a=7)
        with sqlite3.connect(self.host.root / "var/lib/velmar/state.db") as state:
            self.at(-7)
            state.execute("CREATE TRIGGER full BEFORE INSERT ON reported WHEN NEW.address LIKE 'user1@%' "
                          "BEGIN SELECT RAISE(ABORT, 'no room'); END")
            state.commit()
            done = self.at(8, want=1)[1]
            self.assertRegex(done.stdout, r"\AFAILED  user2@example.org  left out: .*no room\n(FAILED  user.*\n){2}\d")
            sent = {mail.mailbox for mail in self.host.queued()}
            state.execute("DROP TRIGGER full")
            state.commit()
        self.at(8.3)
        self.assertEqual([sorted(name[4] for name in names if name.startswith("user"))
                          for names in (sent, [mail.mailbox for mail in self.host.queued()])], [["0", "1"], ["2", "3", "4"]])

    def test_nothing_is_scheduled(self):
        self.host.configure("schedule = [8, 12, 16]", "schedule = []")
        self.assertEqual(self.at(8)[1].stderr, "spamreport: no hour is scheduled: [spam_report] schedule is empty\n")
