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
from dataclasses import dataclass, field
from pathlib import Path

COMMAND = os.environ["SPAMREPORT"]
SHARE = Path(os.environ["VELMAR_SHARE"])
DAY = 86400


@dataclass
class Event:
    code: int
    name: str
    fields: dict

    def __repr__(self):
        return "%s %s" % (self.name, self.fields)


EVENT = re.compile(r'^(?P<time>\S+) 0x(?P<code>[0-9a-f]+) (?P<name>[a-z-]+)(?P<fields>(?: \w+="(?:[^"\\]|\\.)*")*)$')
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
    mail: email.message.EmailMessage = field(repr=False)

    def values(self, name):
        return [value for key, value in self.envelope if key == name]

    @property
    def mailbox(self):
        return self.mail["To"].addresses[0].addr_spec

    def part(self, content_type):
        return [p for p in self.mail.walk() if p.get_content_type() == content_type]

    def body(self, content_type):
        """A body with LF line ends."""
        return self.part(content_type)[0].get_content().replace("\r\n", "\n")

    @property
    def html(self):
        return self.body("text/html")

    @property
    def text(self):
        return self.body("text/plain")


def read_queued(path):
    head, _, raw = path.read_bytes().partition(b"\n\n")
    envelope = [tuple(part.strip() for part in line.split(":", 1)) for line in head.decode("ascii").split("\n")]
    return Queued(path.name, envelope, raw, email.message_from_bytes(raw, policy=email.policy.default))


@dataclass
class Held:
    """One file of a quarantine."""
    path: Path

    @property
    def name(self):
        return self.path.name

    @property
    def time(self):
        return int(self.name.split(".", 1)[0])

    @property
    def flags(self):
        return self.name.rpartition(":2,")[2] if ":2," in self.name else ""


class Host:
    """A laid-out example host; a context manager that removes it."""

    def __init__(self):
        self.directory = Path(tempfile.mkdtemp(prefix="velmar-e2e-"))
        self.root = self.directory / "host"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.directory)

    def command(self, *arguments, want=0, zone="UTC0"):
        environment = {k: v for k, v in os.environ.items() if k not in ("VELMAR_ROOT", "LANG", "LANGUAGE", "LC_ALL")}
        environment.update(TZ=zone, LC_ALL="C")
        done = subprocess.run([COMMAND, *map(str, arguments)], env=environment, capture_output=True, timeout=240)
        done.stdout, done.stderr = done.stdout.decode(), done.stderr.decode()
        if want is not None and done.returncode != want:
            raise AssertionError("%s: exit %s, want %s\n%s%s" % (
                " ".join(map(str, arguments)), done.returncode, want, done.stdout, done.stderr))
        return done

    def lay_out(self):
        """Runs `demo`; afterwards self.until ends a period of one day that holds what index.tsv says."""
        self.laid_from = int(time.time())
        self.command("demo", self.root)
        self.until = int(time.time())
        return self

    def run(self, *recipients, domain=None, until=None, period=DAY, want=0, zone="UTC0"):
        """The exported call for some mailboxes; returns the events that it logged to stderr."""
        domain = domain or recipients[0].rpartition("@")[2]
        done = self.command(*self.run_arguments(recipients, domain, until or self.until, period), want=want, zone=zone)
        return parse_events(done.stderr)

    def run_arguments(self, recipients, domain, until, period):
        return ["run", "--verbose", "--root", self.root, "--domain", domain, "--recipients", ",".join(recipients),
                "--period", period, "--until", until]

    def run_at_once(self, *mailboxes):
        """One process for each mailbox, all at the same time; returns their events."""
        commands = [[COMMAND, *map(str, self.run_arguments([mailbox], mailbox.rpartition("@")[2], self.until, DAY))]
                    for mailbox in mailboxes]
        running = [subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) for command in commands]
        events = []
        for process in running:
            events += parse_events(process.communicate(timeout=240)[1].decode())
            if process.returncode != 0:
                raise AssertionError("%s: exit %s" % (process.args, process.returncode))
        return events

    def quarantine(self, mailbox):
        local, _, domain = mailbox.rpartition("@")
        return self.root / "home" / domain / ("%s~%s" % (local, domain)) / "quarantine"

    def held(self, mailbox):
        """The files of a quarantine in the order of their delivery: by time, in one second by name."""
        files = [Held(path) for sub in ("new", "cur") for path in (self.quarantine(mailbox) / sub).glob("*")]
        return sorted(files, key=lambda held: (held.time, held.name))

    def hold(self, mailbox, name, text, sub="new"):
        """Puts one more message into a quarantine."""
        path = self.quarantine(mailbox) / sub / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(text if isinstance(text, bytes) else text.encode())

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

    def log_file(self):
        return parse_events((self.root / "var/log/velmar/spamreport.log").read_text())


def read_table(name):
    """Rows of a tab-separated file of the example host, without remarks."""
    lines = (SHARE / "demo" / name).read_text().splitlines()
    return [line.split("\t") for line in lines if line and not line.startswith("#")]
