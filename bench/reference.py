#!/usr/bin/env python3
"""What an administrator would write instead: quarantine reports by mailbox, email and Jinja2, in one process.

  reference.py rows N...            rows to a finished mail, the median of several runs, in milliseconds of processor time
  reference.py run HOME SPOOL SINCE UNTIL
                                    reports for all mailboxes below HOME/DOMAIN/*, one file a mail in SPOOL; seconds of
                                    processor time

The benchmarks run it beside the product on the same data. It escapes what it shows, and does no more than it must.
"""
import email.parser
import email.policy
import os
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

PAGE = """<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"><title>Spam quarantine</title></head>
<body><img src="cid:{{ images[0] }}" alt="Logo"><h1>{{ rows|length }} messages held in your spam quarantine</h1>
<p>{{ mailbox }}, {{ since }} to {{ until }}</p>
<table><tr><th>Message</th><th>On the web</th><th>By mail</th></tr>
{% for row in rows %}<tr class="{{ loop.cycle('odd', 'even') }}">
<td><b dir="auto">{{ row.name }}</b> &lt;{{ row.address }}&gt;<br>{{ row.subject }}<br>{{ loop.index }}, {{ row.date }}</td>
<td><a href="{{ row.release }}"><img src="cid:{{ images[1] }}" alt="">Release</a>
<a href="{{ row.delete }}"><img src="cid:{{ images[2] }}" alt="">Delete</a></td>
<td><a href="mailto:{{ row.release_mail }}">Release by mail</a>
<a href="mailto:{{ row.delete_mail }}">Delete by mail</a></td></tr>
{% endfor %}</table>
<p><a href="{{ all }}"><img src="cid:{{ images[3] }}" alt="">Delete all</a></p></body></html>
"""
TEXT = """{{ rows|length }} messages held for {{ mailbox }}
{{ since }} to {{ until }}
{% for row in rows %}
{{ loop.index }}. {{ row.date }}
   {{ row.name }} <{{ row.address }}>
   {{ row.subject }}
   Release: {{ row.release }}
   Delete: {{ row.delete }}
   Release by mail: {{ row.release_mail }}
   Delete by mail: {{ row.delete_mail }}
{% endfor %}
Delete all: {{ all }}
"""


class Reporter:
    def __init__(self):
        self.page = jinja2.Environment(autoescape=True).from_string(PAGE)
        self.text = jinja2.Environment().from_string(TEXT)
        self.images = [open(path, "rb").read() for path in IMAGES]

    def mail(self, mailbox, rows, since, until):
        ids = [make_msgid(domain="bench.example") for _ in self.images]
        values = {"mailbox": mailbox, "rows": rows, "since": date(since), "until": date(until),
                  "images": [one[1:-1] for one in ids],
                  "all": "https://mail.example.org/delete_all?mailbox=%s&since=%d&until=%d" % (quote(mailbox), since, until)}
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
    return {"name": person, "address": address, "subject": subject, "date": date(moment),
            "release": "https://mail.example.org/release?id=" + key, "delete": "https://mail.example.org/delete?id=" + key,
            "release_mail": "release@example.org?subject=" + key, "delete_mail": "delete@example.org?subject=" + key}


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
