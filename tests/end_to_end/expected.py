"""What a report must hold, worked out a second time from the held messages and the formats of links and actions."""

import base64
import email
import hashlib
import re
import struct
import time
import urllib.parse
from collections import namedtuple

import texts

KEY = 0x5d2a7c31
BASE = "https://quarantine.example.org"
RELEASE = "release@example.org"
DELETE = "delete@example.org"
WEB, MAIL = "web", "mail"

# What the profile of each mailbox of the example host offers.
ACTIONS = {
    "anna@example.org": {WEB, MAIL},
    "boris@example.org": {MAIL},
    "chiyo@example.org": {WEB},
    "dana@example.net": {WEB, MAIL},
    "kim+lists@example.net": {WEB, MAIL},
    "lone@example.net": {WEB, MAIL},
}


def english_date(seconds):
    return time.strftime("%b %-d, %Y, %-I:%M %p", time.gmtime(seconds))


def plain_blanks(text):
    """Languages differ in which blank they use inside a date."""
    return text.replace("\u202f", " ").replace("\u00a0", " ")


def access_hash(address):
    words = struct.unpack("<4I", hashlib.md5(address.encode()).digest())
    return struct.pack("<4I", *(word ^ KEY for word in words)).hex()


Row = namedtuple("Row", "time sender subject email_id links")
Report = namedtuple("Report", "mailbox rows delete_all delete_all_subject")


def identifier(raw):
    """The message id that decides whether a message can be listed."""
    header = email.message_from_bytes(raw)
    value = header["X-VX-MESSAGE-ID"]
    return (header["Message-Id"] or "") if value is None else value


def row_links(mailbox, email_id):
    web = ":%s:%s:%s" % (mailbox, email_id, access_hash(mailbox))
    mail = "%s:%s" % (mailbox, urllib.parse.quote(email_id, safe="-._~"))
    return {
        WEB: [BASE + "/releasecontrol?release=0" + web, BASE + "/releasecontrol?release=1" + web],
        MAIL: ["mailto:%s?subject=%s" % (RELEASE, mail), "mailto:%s?subject=%s" % (DELETE, mail)],
    }


def report(host, mailbox, period=86400, until=None):
    until = until or host.until
    names = {path.read_bytes(): path.stem for path in texts.MESSAGES.glob("*.eml")}
    rows = []
    for held in host.held(mailbox):
        raw = held.path.read_bytes()
        if not until - period <= held.time < until or set("TP") & set(held.flags) or len(identifier(raw).strip()) <= 2:
            continue
        sender, subject = texts.of(names.get(raw), raw)
        email_id = base64.b64encode(re.sub(",[^,]*$", "", held.name).encode()).decode()
        rows.append(Row(held.time, sender, subject, email_id, row_links(mailbox, email_id)))
    rows.sort(key=lambda row: -row.time)
    token = "%s:%x:%x:%s" % (mailbox, until ^ KEY, period ^ KEY, access_hash(mailbox))
    delete_all = {WEB: BASE + "/releasecontrol?release=3:" + token,
                  MAIL: "mailto:%s?subject=delete_all: %s" % (DELETE, token)}
    return Report(mailbox, rows, delete_all, "delete_all:" + token)


def heading(count):
    return "%d message%s held in your spam quarantine" % (count, "" if count == 1 else "s")


def cut(text, characters):
    return text if len(text) <= characters else text[:characters - 1] + "…"


def sender(row, characters=40):
    name, _, address = row.sender.rpartition("<")
    if not row.sender.endswith(">"):
        name, address = row.sender, ""
    name = cut(name.strip(), characters)
    return ("%s <%s" % (name, address) if address else name).strip() or "(no sender)"


def subject(row, characters=100):
    return cut(row.subject, characters) or "(no subject)"


def without_links(text):
    """What is not to become a link, as the plain text writes it."""
    return re.sub(r"(?<=[^\W_])\.(?=[^\W\d_][^\W_])", "[.]", text).replace("://", "[:]//")


def text_rows(report, actions, dates):
    """The plain text of each message without its blanks and line ends: lines are wrapped."""
    for row, date in zip(report.rows, dates):
        text = date + "From:" + without_links(sender(row, 200)) + "Subject:" + without_links(subject(row, 300))
        if WEB in actions:
            text += "Release on the web:%s Delete on the web:%s" % tuple(row.links[WEB])
        if MAIL in actions:
            for way, address in ("Release", RELEASE), ("Delete", DELETE):
                text += "%s by mail: To: %s Subject: %s:%s" % (way, address, report.mailbox, row.email_id)
        yield "".join(text.split())
