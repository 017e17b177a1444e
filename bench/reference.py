#!/usr/bin/env python3
"""What an administrator would write instead: quarantine reports by mailbox, email and Jinja2, in one process.

  reference.py rows N...            rows to a finished mail, the median of several runs, in milliseconds of processor time
  reference.py run HOME SPOOL SINCE UNTIL
                                    reports for all mailboxes below HOME/DOMAIN/*, one file a mail in SPOOL; seconds of
                                    processor time

The benchmarks run it beside the product on the same data and with the same page. It escapes what it shows, and does no
more than it must.
"""
import email.parser
import email.policy
import os
import re
import statistics
import sys
import time
from email.header import decode_header, make_header
from email.message import EmailMessage
from email.utils import formatdate, make_msgid, parseaddr
from urllib.parse import quote

import jinja2

IMAGES = [os.path.join(os.path.dirname(__file__), "../share/images", name + ".png")
          for name in ("icon_titlelogo", "icon_release", "icon_delete", "icon_deleteall")]

HASH = "0123456789abcdef0123456789abcdef"
TEMPLATES = os.path.join(os.environ["VELMAR_SHARE"], "templates/default")
OF_ROWS = {"ROW_NUMBER", "ORIG_DATE", "ORIG_SUBJECT", "SENDER_NAME", "SENDER_ADDRESS", "RELEASE_URL", "DELETE_URL",
           "RELEASE_EMAIL_ADDR", "DELETE_EMAIL_ADDR", "NO_SENDER", "NO_SUBJECT", "WITH_SENDER_NAME", "WITH_SENDER_ADDRESS"}


def translated(file):
    """A template of the product in the language of Jinja2. Its modifiers are left out, but for those of mail links."""
    def tag(match):
        kind, name, modifiers = match.groups()
        if kind in ("!", "%"):
            return ""
        value = "row." + name if name in OF_ROWS else name
        value = {"EVEN_ROW": "loop.index is even", "ROW_NUMBER": "loop.index"}.get(name, value)
        if name == "QUARANTINE_MESSAGES_TABLE":
            return "{% for row in rows %}" if kind == "#" else "{% endfor %}"
        if kind:
            return "{% if " + value + " %}" if kind == "#" else "{% endif %}"
        if "x-img-cid" in modifiers:
            return '<img src="cid:{{ %s }}" alt="">' % value
        return "{{ " + value + {":x-mailto-to": "[0]", ":x-mailto-subject": "[1]"}.get(modifiers, "") + " }}"
    with open(os.path.join(TEMPLATES, file), encoding="utf-8") as source:
        return re.sub(r"\{\{([!%#/]?)([A-Z_]*)(.*?)\}\}", tag, source.read(), flags=re.S)


class Reporter:
    def __init__(self):
        self.page = jinja2.Environment(autoescape=True, trim_blocks=True).from_string(translated("body.html.tpl"))
        self.text = jinja2.Environment().from_string(translated("body.txt.tpl"))
        self.images = [open(path, "rb").read() for path in IMAGES]

    def mail(self, mailbox, rows, since, until):
        ids = [make_msgid(domain="bench.example") for _ in self.images]
        subject = "delete_all:%s:%d:%d" % (mailbox, since, until)
        values = {"rows": rows, "MAILBOX_ADDRESS": mailbox, "SITE_NAME": "mail.example.org", "TIME_ZONE": "UTC",
                  "QUARANTINE_PERIOD_FROM": date(since), "QUARANTINE_PERIOD_TO": date(until),
                  "QUARANTINE_MESSAGES_COUNT": len(rows), "COUNT_ONE": len(rows) == 1, "COUNT_OTHER": len(rows) != 1,
                  "TABLE_HEADER": True, "SPAM_WEB_ACTION": True, "SPAM_EMAIL_ACTION": True, "SPAM_OTHER_ACTION": True,
                  "DELETE_ALL_URL": "https://mail.example.org/releasecontrol?release=3:" + quote(subject),
                  "DELETE_ALL_EMAIL_ADDR": "mailto:delete@example.org?subject=" + quote(subject),
                  "DELETE_CONTROL_USER": "delete@example.org", "DELETE_ALL_SUBJECT": subject,
                  "PREFERENCE_URL": "https://mail.example.org/mail"}
        values.update(zip(("TITLE_LOGO", "ICON_RELEASE", "ICON_DELETE", "ICON_DELALL"), (one[1:-1] for one in ids)))
        mail = EmailMessage()
        mail["From"], mail["To"] = "Quarantine <release@example.org>", mailbox
        mail["Subject"] = "Quarantine report, messages held: %d" % len(rows)
        mail["Date"], mail["Message-ID"] = formatdate(), make_msgid(domain="bench.example")
        mail.set_content(self.text.render(values), cte="quoted-printable")
        mail.add_alternative(self.page.render(values), subtype="html", cte="quoted-printable")
        for one, image in zip(ids, self.images):
            mail.get_payload()[1].add_related(image, "image", "png", cid=one, filename="image.png")
        return mail.as_bytes()


def date(moment):
    return time.strftime("%b %d, %Y, %I:%M %p", time.localtime(moment))


def row(mailbox, name, sender, subject, moment):
    key = quote("%s:%s" % (mailbox, name.split(",")[0]))
    person, address = parseaddr(sender)
    return {"SENDER_NAME": person, "SENDER_ADDRESS": address, "ORIG_SUBJECT": subject, "ORIG_DATE": date(moment),
            "WITH_SENDER_NAME": person, "WITH_SENDER_ADDRESS": address, "NO_SENDER": not sender, "NO_SUBJECT": not subject,
            "RELEASE_URL": "https://mail.example.org/releasecontrol?release=0:" + key + ":" + HASH,
            "DELETE_URL": "https://mail.example.org/releasecontrol?release=1:" + key + ":" + HASH,
            "RELEASE_EMAIL_ADDR": MailLink("release@example.org", key),
            "DELETE_EMAIL_ADDR": MailLink("delete@example.org", key)}


class MailLink(tuple):
    def __new__(cls, address, subject):
        return super().__new__(cls, (address, subject))

    def __str__(self):
        return "mailto:%s?subject=%s" % self


def held(mailbox, directory, since, until):
    parser = email.parser.BytesHeaderParser()
    rows = []
    for part in ("new", "cur"):
        for name in os.listdir(os.path.join(directory, part)):
            moment = int(name.split(".")[0])
            if not since <= moment < until:
                continue
            with open(os.path.join(directory, part, name), "rb") as file:
                head = parser.parse(file)
            sender, subject = (str(make_header(decode_header(head[field] or ""))) for field in ("From", "Subject"))
            rows.append((moment, row(mailbox, name, sender, subject, moment)))
    return [one for _, one in sorted(rows, key=lambda pair: -pair[0])]


def measure_rows(counts):
    reporter = Reporter()
    for count in counts:
        rows = [row("bench@example.org", "%d.M%dP1.bench:2,S" % (1700000000 - i, i), "Sender %d <s%d@example.com>" % (i, i),
                    "Offer number %d" % i, 1700000000 - i) for i in range(count)]
        times = []
        for _ in range(max(3, min(31, 1000 // count))):
            start = time.process_time()
            reporter.mail("bench@example.org", rows, 1699000000, 1700000000)
            times.append(time.process_time() - start)
        print("%.6f" % (statistics.median(times) * 1e3), flush=True)


def run(home, spool, since, until):
    start = time.process_time()
    reporter = Reporter()
    for domain in os.listdir(home):
        for user in sorted(os.listdir(os.path.join(home, domain))):
            mailbox = user.replace("~", "@")
            rows = held(mailbox, os.path.join(home, domain, user, "quarantine"), since, until)
            if rows:
                with open(os.path.join(spool, user), "wb") as file:
                    file.write(reporter.mail(mailbox, rows, since, until))
    print("%.6f" % (time.process_time() - start))


if sys.argv[1] == "rows":
    measure_rows(int(count) for count in sys.argv[2:])
else:
    run(sys.argv[2], sys.argv[3], int(sys.argv[4]), int(sys.argv[5]))
