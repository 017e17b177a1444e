"""The library in the process of another program: what that program may have done to it before or between calls."""

import os
import subprocess
import unittest

from host import Host, parse_events

PATHS = "nobody,anna@example.org,nowhere"  # an event before and one after the report


class CallerTest(unittest.TestCase):
    def test_states_of_a_process(self):
        cases = [  # what the program does, how often it reports, whether some of them fail
            (["closed"], 1, False),
            (["limited"], 1, False),
            (["reloaded"], 10, False),
            (["closed", "limited", "reloaded"], 10, True),
            (["children", "10"], 80, False),
        ]
        host = Host(self.addCleanup)
        log = host.root / "var/log/velmar/spamreport.log"
        for does, reports, some_fail in cases:
            with self.subTest(does=does):
                host.empty_queue()
                log.unlink(missing_ok=True)
                subprocess.run([os.environ["CALLER"], os.environ["LIBRARY"], "example.org", PATHS, str(host.until), *does],
                               env=dict(os.environ, VELMAR_ROOT=str(host.root)), stderr=subprocess.DEVNULL,
                               check=True, timeout=240)
                names = [event.name for event in parse_events(log.read_text())]
                failed = names.count("report-failed")
                self.assertEqual(failed > 0, some_fail)
                self.assertEqual(len({mail.mail["Message-ID"] for mail in host.queued()}), reports - failed)
                self.assertEqual(names.count("no-address-in-path"), 2 * reports)
                self.assertEqual({mail.mailbox for mail in host.queued()}, {"anna@example.org"})


if __name__ == "__main__":
    unittest.main()
