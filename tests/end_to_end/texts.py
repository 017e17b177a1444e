"""Sender and subject of each message of the example host, as a reader must see them."""

import os
from email import message_from_bytes
from email.header import decode_header, make_header
from pathlib import Path

MESSAGES = Path(os.environ["VELMAR_SHARE"]) / "demo" / "messages"

# file: (sender, subject), written by hand where Python's email package reads otherwise or may in another version
TEXTS = {
    "hebrew-8859-8-i": ("Shuk <shuk@bazaar.example>", "מבצע להיום בלבד"),
    "language-tag": ("Bureau <bureau@plume.example>", "Votre colis est arrivé"),
    "folded-plain": ("Folded <plain@words.example>", "A subject that continues on the next line"),
    "unclosed-word": ("Unclosed <unclosed@words.example>", "Offer =?UTF-8?B?SGVsbG8 ends here"),
    "unknown-encoding": ("Encoding <x@words.example>", "=?UTF-8?X?abc?= is no encoding"),
    "unknown-charset": ("Charset <y@words.example>", "Grüße"),
    "wrong-charset": ("Wrong <wrong@words.example>", "Grüße vom Meer"),
    "cp1252-as-latin1": ("Quotes <quotes@words.example>", "“Only 5€”"),
    "q-stray-equals": ("Stray <stray@words.example>", "100=ZZ sure"),
    "raw-utf8": ("Müller Söhne <post@mueller.example>", "Ungeschützt: Öl für 5 €"),
    "raw-latin1": ("Müller <post@mueller.example>", "Schöne Grüße ohne Kodierung"),
    "html-attribute": ("\" onmouseover=\"alert(3) <three@evil.example>", "\" onmouseover=\"alert(3)\" x='"),
    "crlf-encoded": ("Six  Bcc: all@evil.example <six@evil.example>", "Hello  Bcc: all@evil.example    <b>body</b>"),
    "controls-encoded": ("Seven <seven@evil.example>", "a b c [31md e"),
    "bidi-override": ("Bank gnaB <eight@evil.example>", "invoicefdp.exe"),
    "combining-pile": ("Nine <nine@evil.example>", "Z\u0301\u0323\u0336\u0301algo"),
    "fake-lines": ("Ten <ten@evil.example>", "Nothing Release on the web:   https://evil.example/"),
    "line-separators": ("Twelve <twelve@evil.example>", "one two three"),
    "from-quoted": ("O\"Brien, Pat <pat@quoted.example>", "A quoted name"),
    "from-comment": ("<lee@comment.example>", "A name in a comment"),
    "from-bare": ("<bare@sender.example>", "A bare address"),
    "from-idn": ("Bücher <post@bücher.example>", "An international domain"),
    "long-subject": ("Long <long@shape.example>", "Long" + "".join(" word%03d" % i * 8 for i in range(40))),
}


def of(name, raw):
    """Sender and subject of a message, which is the file `name` of MESSAGES or none of them."""
    if name in TEXTS:
        return TEXTS[name]
    header = message_from_bytes(raw)
    return tuple(str(make_header(decode_header(header[field] or ""))) for field in ("From", "Subject"))
