"""Hostile arguments of the exported call: every one has its event, none leads out of the root or to another mailbox."""

import os
import re
import subprocess
import unittest

from host import Host, parse_events

DOMAIN, BORIS = "example.org", "boris@example.org"
LONG = "x" * 115 + "@example.org"  # 127 bytes, the longest
BUILT = [("report-built", BORIS)]

# Domain, recipients, the events that follow and the mailbox or path that they name; None: whatever they name.
CASES = [
    # ways out of the directory
    (DOMAIN, "../boris@example.org", [("report-failed", "../boris@example.org")]),
    (DOMAIN, "../../../etc/passwd", [("no-address-in-path", "/home/example.org/../../../etc/passwd")]),
    (DOMAIN, "/boris@example.org,a/../../boris@example.org", [("report-failed", None)] * 2),
    (DOMAIN, '"../boris"@example.org,boris@[../..]', [("report-failed", None)] * 2),
    ("../..", BORIS, [("report-failed", "../boris@example.org")]),
    ("../../etc", BORIS, [("report-failed", "../etc/boris@example.org")]),
    ("x/y", BORIS, [("report-failed", "y/boris@example.org")]),
    # the domain only makes the path; whose report it is says the address
    ("..", BORIS, BUILT),
    ("", "\tboris@example.org,", BUILT),
    ("%s%n", BORIS + " ", BUILT),
    (DOMAIN, "boris~example.org", BUILT),
    # line ends, bytes, formats, quotes
    (DOMAIN, "boris@example.org\r\nBcc: x@y", [("report-failed", r"boris@example.org\x0d\nBcc: x@y")]),
    (DOMAIN, b"\xff%n@example.org", [("report-failed", r"\xff%n@example.org")]),
    (DOMAIN, "%s%n@example.org", [("nothing-held", "%s%n@example.org")]),
    (DOMAIN, '"boris,chiyo"@example.org',
     [("no-address-in-path", r'/home/example.org/\"boris'), ("report-failed", r'chiyo\"@example.org')]),
    # the last "~" becomes "@"
    ("d~example.org", "boris@d~example.org", [("nothing-held", "boris~d@example.org")]),
    (DOMAIN, "~,@", [("report-failed", "@")] * 2),
    # the cut
    (DOMAIN, LONG[1:] + "," + LONG, [("nothing-held", LONG[1:]), ("report-built", LONG)]),
    (DOMAIN, LONG + ".au," + LONG + "ü", [("report-built", LONG)] * 2),
    (DOMAIN, LONG[1:] + "ü", [("report-failed", LONG[1:] + r"\xc3")]),
    (DOMAIN, "x" * 126 + "ü@example.org", [("no-address-in-path", None)]),
    ("d" * 1100, BORIS, [("no-address-in-path", None)]),
    # lists of a megabyte
    (DOMAIN, "," * 500_000 + BORIS + "," * 500_000, BUILT),
    (DOMAIN, "x" * 1_000_000, [("no-address-in-path", None)]),
]


class ArgumentsTest(unittest.TestCase):
    def setUp(self):
        self.host = Host(self.addCleanup)
        self.host.hold(LONG, "%d.long" % (self.host.until - 60), "Message-Id: <long@example.org>\n\n")

    def call(self, cases):
        """The events of these calls, and the paths outside the root that the process named or opened on its way."""
        texts = [text if isinstance(text, bytes) else text.encode() for case in cases for text in case[:2]]
        trace = self.host.directory / "trace"
        # The sanitizer's search for leaks does not work under a tracer.
        environment = dict(os.environ, VELMAR_ROOT=str(self.host.root), TZ="UTC0", LC_ALL="C",
                           ASAN_OPTIONS="detect_leaks=0")
        done = subprocess.run(["strace", "-f", "-qq", "-y", "-s", "4096", "-e", "trace=%file", "-o", trace,
                               os.environ["CALL_BY_RECIPIENTS"]], env=environment, input=b"".join(t + b"\0" for t in texts),
                              capture_output=True, timeout=240, check=True)
        named = re.findall(r'"(/[^"]*)"|= \d+<(/[^>]*)>', trace.read_text())
        paths = {os.path.normpath(path) for pair in named for path in pair if path}
        outside = (path for path in paths if not path.startswith(str(self.host.root)))
        # A sanitizer looks at files that are named by the number of the process.
        return parse_events(done.stderr.decode()), {re.sub(r"\d+", "#", path) for path in outside}

    def test_each_has_its_event_and_stays_where_it_belongs(self):
        _, harmless = self.call([(DOMAIN, BORIS)])
        self.host.empty_queue()
        events, outside = self.call(CASES)
        self.assertEqual(outside - harmless, set())
        for domain, recipients, want in CASES:
            got = [(event.name, event.fields.get("mailbox", event.fields.get("path"))) for event in events[:len(want)]]
            del events[:len(want)]
            with self.subTest(domain=domain[:100], recipients=recipients[:200]):
                self.assertEqual([(name, named if other else None) for (name, named), (_, other) in zip(got, want)], want)
        self.assertEqual(events, [])
        built = [mailbox for _, _, want in CASES for name, mailbox in want if name == "report-built"]
        self.assertEqual([mail.mailbox for mail in self.host.queued()], built)
        for mail in self.host.queued():
            self.assertEqual([line[1] for line in mail.envelope if line[0] == "Recipient"], [mail.mailbox])
