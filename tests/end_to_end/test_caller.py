"""The library in the process of another program: what that program may have done to it before or between calls."""

import os
import subprocess
import unittest

from host import Host, parse_events

PATHS = "nobody,anna@example.org,nowhere"  # an event before and one after the report


class CallerTest(unittest.TestCase):
    def test_states_of_a_process(self):
        cases = [  # what the program does, how often it reports
            (["closed"], 1),
            (["closed", "limited"], 1),
            (["reloaded"], 10),
            (["children", "10"], 80),
        ]
        # ctemplate's table of modifiers is in the memory of its library, which a leak check does not see here.
        environment = dict(os.environ, ASAN_OPTIONS="detect_leaks=0")
        host = Host(self.addCleanup)
        log = host.root / "var/log/velmar/spamreport.log"
        for does, reports in cases:
            with self.subTest(does=does):
                host.empty_queue()
                log.unlink(missing_ok=True)
                subprocess.run([os.environ["CALLER"], os.environ["LIBRARY"], "example.org", PATHS, str(host.until), *does],
                               env=dict(environment, VELMAR_ROOT=str(host.root)), stderr=subprocess.DEVNULL,
                               check=True, timeout=240)
                names = [event.name for event in parse_events(log.read_text())]
                self.assertEqual(len({mail.mail["Message-ID"] for mail in host.queued()}), reports)
                self.assertEqual(names.count("no-address-in-path"), 2 * reports)
                self.assertEqual({mail.mailbox for mail in host.queued()}, {"anna@example.org"})
