"""Reads mails (files named as arguments) with Python's email package and prints what a reader sees in each: header
fields, parts, and whatever the package or the rules for lines find wrong. The C++ tests compare the output."""

import email
import email.header
import email.policy
import email.utils
import hashlib
import json
import sys

FIELDS = ("Date", "From", "To", "Subject", "Message-ID", "Auto-Submitted", "MIME-Version")


def line_faults(raw):
    """Lines end with CR LF, hold no NUL and at most 998 bytes; bytes above 127 have no place in these mails."""
    lines = raw.split(b"\r\n")
    if lines[-1]:
        yield "no line end at the end"
    for number, line in enumerate(lines, 1):
        if len(line) > 998:
            yield f"line {number}: {len(line)} bytes"
        if b"\r" in line or b"\n" in line or b"\0" in line:
            yield f"line {number}: lone CR, lone LF or NUL"
        if not line.isascii():
            yield f"line {number}: not ASCII"
    header = raw.split(b"\r\n\r\n")[0].split(b"\r\n")
    yield from (f"header line of {len(line)} bytes" for line in header if len(line) > 78 and b" " in line.strip())


def describe_part(part, depth):
    line = "  " * depth + part.get_content_type()
    if part.is_multipart():
        boundary = part.get_boundary()
        if "=_" not in boundary:
            yield f"boundary {boundary}"
        yield line + (f' type={part.get_param("type")}' if part.get_param("type") else "")
        for child in part.iter_parts():
            yield from describe_part(child, depth + 1)
    elif part.get_content_maintype() == "text":
        text = part.get_content().replace("\r\n", "\n")  # line ends are those of the wire
        shown = json.dumps(text, ensure_ascii=False) if len(text) < 500 else hashlib.sha256(text.encode()).hexdigest()
        yield f'{line} {part.get_content_charset()} {part["Content-Transfer-Encoding"]} {shown}'
    else:
        content = hashlib.sha256(part.get_content()).hexdigest()[:16]
        yield f'{line} {part.get_content_disposition()} {part.get_filename()} {part["Content-ID"]} {content}'


def decoded_sender(raw):
    """The From field by the package's older reader: the newer one puts blanks between the encoded words of a name."""
    senders = email.utils.getaddresses(email.message_from_bytes(raw).get_all("From", []))
    for name, address in senders:
        yield f"{email.header.make_header(email.header.decode_header(name))} <{address}>"


def describe(raw):
    message = email.message_from_bytes(raw, policy=email.policy.default)
    others = [name for name in message.keys() if name not in FIELDS and name != "Content-Type"]
    for name in FIELDS:
        values = list(decoded_sender(raw)) if name == "From" else message.get_all(name, [])
        yield f"{name}: {' || '.join(values)}" if name != "Date" else f"Date: {len(values)}"
    if others:
        yield f"other fields: {others}"
    yield from describe_part(message, 0)
    for part in message.walk():
        defects = list(part.defects) + [d for value in part.values() for d in getattr(value, "defects", ())]
        yield from (f"defect: {defect!r}" for defect in defects)
    yield from line_faults(raw)


for path in sys.argv[1:]:
    with open(path, "rb") as file:
        print("\n".join(describe(file.read())))
