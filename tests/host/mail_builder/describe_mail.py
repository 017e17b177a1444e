"""Reads a mail (a file named as argument) with Python's email package and prints what a reader sees in it: header
fields, parts, and whatever the package or the rules for lines find wrong. The C++ tests compare the output."""

import email
import email.header
import email.policy
import email.utils
import hashlib
import json
import sys


def line_faults(raw):
    """Lines end with CR LF and hold at most 998 ASCII bytes, those of the header 78 where they can be folded."""
    header = raw.split(b"\r\n\r\n")[0].split(b"\r\n")
    yield from (f"header line of {len(line)} bytes" for line in header if len(line) > 78 and b" " in line.strip())
    for number, line in enumerate(raw.split(b"\r\n"), 1):
        if len(line) > 998 or set(line) & set(b"\r\n\0") or not line.isascii():
            yield f"line {number}: {line[:1000]}"


def describe_part(part, depth):
    line = "  " * depth + part.get_content_type()
    if part.is_multipart():
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


def decoded_sender(value):
    """By the package's older reader: the newer one puts blanks between the encoded words of a name."""
    name, address = email.utils.parseaddr(value)
    return f"{email.header.make_header(email.header.decode_header(name))} <{address}>"


def describe(raw):
    message = email.message_from_bytes(raw, policy=email.policy.default)
    older = email.message_from_bytes(raw)
    for name, value in message.items():
        if name != "Content-Type":
            yield f"{name}: " + {"Date": "1", "From": decoded_sender(older["From"])}.get(name, value)
    yield from describe_part(message, 0)
    for part in message.walk():
        yield from map(repr, [*part.defects, *(d for value in part.values() for d in value.defects)])
    yield from line_faults(raw)


with open(sys.argv[1], "rb") as mail:
    print("\n".join(describe(mail.read())))
