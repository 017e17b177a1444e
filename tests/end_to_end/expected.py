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


def text_lines(report, actions, preferences):
    """The lines of the plain-text body that name a message or say how to act on it."""
    out = []
    for row in report.rows:
        out += ["From:    " + row.sender, "Subject: " + row.subject]
        out += ["  " + link for link in row.links[WEB] if WEB in actions]
        out += ["  %s:%s" % (report.mailbox, row.email_id)] * 2 if MAIL in actions else []
    out += ["  " + report.delete_all[WEB]] if WEB in actions else []
    out += ["  " + report.delete_all_subject] if MAIL in actions else []
    return out + ["  " + link for link in preferences]
