"""What a report must hold, worked out a second time from the held messages and the formats of links and actions."""

import base64
import email
import hashlib
import struct
import time
import urllib.parse
from dataclasses import dataclass

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

MONTHS = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"]


def english_date(seconds):
    t = time.gmtime(seconds)
    return "%s %d, %d, %d:%02d %s" % (MONTHS[t.tm_mon - 1], t.tm_mday, t.tm_year, (t.tm_hour + 11) % 12 + 1, t.tm_min,
                                      "PM" if t.tm_hour >= 12 else "AM")


DATES = {
    "en": english_date,
    "de": lambda seconds: time.strftime("%d.%m.%Y, %H:%M", time.gmtime(seconds)),
    "ja": lambda seconds: time.strftime("%Y/%m/%d %H:%M", time.gmtime(seconds)).replace(" 0", " "),
}


def plain_blanks(text):
    """Languages differ in which blank they use inside a date."""
    return text.replace("\u202f", " ").replace("\u00a0", " ")


def access_hash(address):
    words = struct.unpack("<4I", hashlib.md5(address.encode()).digest())
    return struct.pack("<4I", *(word ^ KEY for word in words)).hex()


def hexadecimal(number):
    return "%x" % (number & 0xffffffffffffffff)


@dataclass
class Row:
    """One held message as the report lists it."""
    time: int
    sender: str
    subject: str
    email_id: str
    links: dict


@dataclass
class Report:
    mailbox: str
    rows: list
    delete_all: dict
    delete_all_subject: str


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
        in_window = until - period <= held.time < until
        if not in_window or "T" in held.flags or "P" in held.flags or len(identifier(raw).strip()) <= 2:
            continue
        sender, subject = texts.of(names.get(raw), raw)
        email_id = base64.b64encode(held.name.rpartition(",")[0].encode() if "," in held.name else
                                    held.name.encode()).decode()
        rows.append(Row(held.time, sender, subject, email_id, row_links(mailbox, email_id)))
    rows.sort(key=lambda row: -row.time)
    token = "%s:%s:%s:%s" % (mailbox, hexadecimal(until ^ KEY), hexadecimal(period ^ KEY), access_hash(mailbox))
    delete_all = {WEB: BASE + "/releasecontrol?release=3:" + token, MAIL: "mailto:%s?subject=delete_all: %s" % (DELETE, token)}
    return Report(mailbox, rows, delete_all, "delete_all:" + token)


def text_body(report, actions, dates, preferences):
    """The plain-text body of the default template, whole."""
    line, double = "-" * 70, "=" * 70
    out = ["QUARANTINE REPORT", "", "Messages held: %d" % len(report.rows), "From: " + dates[0], "To:   " + dates[1], "",
           "These messages were taken for spam and kept out of your inbox.",
           "Those that you do not want need no action.", ""]
    for row, date in zip(report.rows, dates[2:]):
        out += [line, "Date:    " + date, "From:    " + row.sender, "Subject: " + row.subject]
        if WEB in actions:
            out += ["Release on the web:", "  " + row.links[WEB][0], "Delete on the web:", "  " + row.links[WEB][1]]
        if MAIL in actions:
            subject = "  %s:%s" % (report.mailbox, row.email_id)
            out += ["Release by mail: write to %s with the subject" % RELEASE, subject,
                    "Delete by mail: write to %s with the subject" % DELETE, subject]
    out += [double]
    if WEB in actions:
        out += ["", "Delete all messages of this report on the web:", "  " + report.delete_all[WEB]]
    if MAIL in actions:
        out += ["", "Delete all messages of this report by mail: write to %s with the subject" % DELETE,
                "  " + report.delete_all_subject]
    if WEB in actions:
        out += ["", "Preferences:", "  " + preferences, "",
                "The links act on your quarantine without a password. Please do not forward this mail."]
    return out
