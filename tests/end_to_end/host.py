"""An example host in a directory of its own, the command run on it, and what it left behind.

Used by the test_*.py files beside this one. It knows the formats of the host on disk and nothing of the code.
The environment names the command (SPAMREPORT) and the installed files (VELMAR_SHARE).
"""

import email
import email.policy
import os
import re
import shutil
import subprocess
import tempfile
import time
from collections import namedtuple
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path

COMMAND = os.environ["SPAMREPORT"]
SHARE = Path(os.environ["VELMAR_SHARE"])
DAY = 86400
Event = namedtuple("Event", "code name fields")
QUOTED = r'"(?:[^"\\]|\\.)*"'
EVENT = re.compile(r'^(?P<time>\S+) 0x(?P<code>[0-9a-f]+) (?P<name>[a-z-]+) (?P<text>%s)(?P<fields>(?: \w+=%s)*)$'
                   % (QUOTED, QUOTED))
FIELD = re.compile(r' (\w+)="((?:[^"\\]|\\.)*)"')


def parse_events(text):
    """The events of a log; a line of any other form fails the test."""
    events = []
    for line in text.splitlines():
        match = EVENT.match(line)
        if not match:
            raise AssertionError("not the line of an event: %r" % line)
        events.append(Event(int(match["code"], 16), match["name"], dict(FIELD.findall(match["fields"]))))
    return events


@dataclass
class Queued:
    """One file of the spool."""
    id: str
    envelope: list
    raw: bytes
    mail: email.message.EmailMessage

    @property
    def mailbox(self):
        return self.mail["To"].addresses[0].addr_spec

    @property
    def images(self):
        """The content of each attached image by its source in the page."""
        parts = [part for part in self.mail.walk() if part.get_content_maintype() == "image"]
        images = {"cid:" + part["Content-ID"].strip("<>"): part.get_content() for part in parts}
        if len(images) != len(parts) or {part.get_content_disposition() for part in parts} - {"inline"}:
            raise AssertionError("images: %s" % [part.items() for part in parts])
        return images

    def body(self, kind):
        """The HTML or plain body with LF line ends."""
        return self.mail.get_body((kind,)).get_content().replace("\r\n", "\n")


def read_queued(path):
    head, _, raw = path.read_bytes().partition(b"\n\n")
    envelope = [tuple(part.strip() for part in line.split(":", 1)) for line in head.decode("ascii").split("\n")]
    return Queued(path.name, envelope, raw, email.message_from_bytes(raw, policy=email.policy.default))


# One file of a quarantine.
Held = namedtuple("Held", "path name time flags")


def read_held(path):
    return Held(path, path.name, int(path.name.split(".", 1)[0]), path.name.partition(":2,")[2])


class Host:
    """An example host as `demo` lays it out. self.until ends a period of one day that holds what index.tsv says."""

    def __init__(self, add_cleanup):
        self.directory = Path(tempfile.mkdtemp(prefix="velmar-e2e-"))
        add_cleanup(shutil.rmtree, self.directory)
        self.root = self.directory / "host"
        self.command("demo", self.root)
        self.until = int(time.time())

    def command(self, *arguments, want=0, zone="UTC0"):
        environment = {k: v for k, v in os.environ.items() if k not in ("VELMAR_ROOT", "LANG", "LANGUAGE", "LC_ALL")}
        environment.update(TZ=zone, LC_ALL="C")
        done = subprocess.run([COMMAND, *map(str, arguments)], env=environment, capture_output=True, timeout=240)
        done.stdout, done.stderr = done.stdout.decode(), done.stderr.decode()
        if done.returncode != want and want is not None:
            raise AssertionError("%s: exit %s, want %s\n%s%s" % (
                " ".join(map(str, arguments)), done.returncode, want, done.stdout, done.stderr))
        return done

    def configure(self, old, new):
        """Replaces the first such words of the configuration."""
        path = self.root / "etc/velmar/host.toml"
        text = path.read_text()
        if old not in text:
            raise AssertionError("not in the configuration: " + old)
        path.write_text(text.replace(old, new, 1))

    def run(self, *recipients, until=None, period=DAY, want=0):
        """The exported call for some mailboxes; returns the events that it logged to stderr."""
        done = self.command("run", "--verbose", "--root", self.root, "--domain", recipients[0].rpartition("@")[2],
                            "--recipients", ",".join(recipients), "--period", period, "--until", until or self.until,
                            want=want)
        return parse_events(done.stderr)

    def run_at_once(self, *mailboxes):
        """One process for each mailbox, all at the same time; returns their events."""
        with ThreadPoolExecutor(len(mailboxes)) as pool:
            return [event for events in pool.map(self.run, mailboxes) for event in events]

    def quarantine(self, mailbox):
        local, _, domain = mailbox.rpartition("@")
        return self.root / "home" / domain / ("%s~%s" % (local, domain)) / "quarantine"

    def held(self, mailbox):
        """The files of a quarantine in the order of their delivery: by time, in one second by name."""
        files = [read_held(path) for sub in ("new", "cur") for path in (self.quarantine(mailbox) / sub).glob("*")]
        return sorted(files, key=lambda held: (held.time, held.name))

    def hold(self, mailbox, name, text):
        """Puts one more message into a quarantine."""
        path = self.quarantine(mailbox) / "new" / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    def queued(self):
        """What waits in the spool, oldest first."""
        directory = self.root / "var/spool/velmar/new"
        return [read_queued(path) for path in sorted(directory.glob("*"), key=lambda p: (p.stat().st_mtime_ns, p.name))]

    def empty_queue(self):
        for path in (self.root / "var/spool/velmar/new").glob("*"):
            path.unlink()

    def report(self, mailbox, **options):
        """Runs one report and returns its mail."""
        self.empty_queue()
        self.run(mailbox, **options)
        mails = self.queued()
        if len(mails) != 1:
            raise AssertionError("%d mails for %s, want 1" % (len(mails), mailbox))
        return mails[0]
