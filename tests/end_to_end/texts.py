"""Sender and subject of each message of the example host, as a reader must see them. Written by hand."""

import email
import os
from pathlib import Path

MESSAGES = Path(os.environ["VELMAR_SHARE"]) / "demo" / "messages"

# file: (sender, subject)
TEXTS = {
    "plain-ascii": ("Amber Finch <offers@lantern.example>", "Your parcel is waiting at the depot"),
    "latin1-q": ("Café Crème <hallo@creme.example>", "Frühstück für alle: nur 3 £"),
    "latin9-euro": ("Kontor <kontor@nordhafen.example>", "Nur 99 € im Monat"),
    "latin2-polish": ("Żółta Łódź <biuro@lodz.example>", "Pilne: zaległa płatność"),
    "cp1250-czech": ("Obchod <obchod@kramek.example>", "Příliš žluťoučký kůň: sleva"),
    "latin5-turkish": ("Magaza <bilgi@pazar.example>", "Büyük çekiliş: şansınız açık"),
    "greek-iso": ("Νίκος Παππάς <nikos@elia.example>", "Κερδίσατε ένα ταξίδι"),
    "koi8-russian": ("Отдел продаж <sales@torg.example>", "Скидки до конца недели"),
    "cp1251-russian": ("Бухгалтерия <buh@schet.example>", "Счёт на оплату № 118"),
    "utf8-ukrainian": ("Їжак і Ґава <info@yizhak.example>", "Ваш виграш чекає"),
    "arabic-utf8": ("مكتب الجوائز <prize@souq.example>", "لقد ربحت جائزة كبيرة"),
    "arabic-cp1256": ("Souq <souq@bazaar.example>", "عرض خاص ليوم واحد"),
    "hebrew-utf8": ("משרד הפרסים <pras@shuk.example>", "זכית בפרס גדול"),
    "hebrew-8859-8-i": ("Shuk <shuk@bazaar.example>", "מבצע להיום בלבד"),
    "chinese-gb2312": ("王小明 <wang@shangdian.example>", "恭喜您获得大奖"),
    "chinese-big5": ("陳先生 <chen@yeshi.example>", "限時特價,立即購買"),
    "korean-euc-kr": ("김민수 <kim@sijang.example>", "축하합니다! 당첨되셨습니다"),
    "korean-ksc5601": ("Sijang <shop@sijang.example>", "오늘만 특가"),
    "japanese-utf8": ("山田太郎 <yamada@ichiba.example>", "お荷物のお届けについて"),
    "japanese-2022": ("鈴木商店 <suzuki@ichiba.example>", "本日限りの特別価格お急ぎください"),
    "japanese-sjis": ("Ichiba <info@ichiba.example>", "当選おめでとうございます"),
    "japanese-euc": ("Ichiba <news@ichiba.example>", "無料でお試し"),
    "thai-tis620": ("Talat <talat@talat.example>", "คุณได้รับรางวัล"),
    "hindi-utf8": ("पुरस्कार कार्यालय <inaam@mela.example>", "आपने इनाम जीता है"),
    "emoji": ("🎁 Gift Desk <gift@ribbon.example>", "👩\u200d🚀 You won 🇪🇺 a trip 🎉"),
    "language-tag": ("Bureau <bureau@plume.example>", "Votre colis est arrivé"),

    "adjacent-padded": ("Two Words <two@words.example>", "Hello world, again"),
    "split-character": ("Split <split@words.example>", "日本の宝くじ"),
    "folded-words": ("Folded <folded@words.example>", "Ein Angebot, das über Nacht endet"),
    "folded-plain": ("Folded <plain@words.example>", "A subject that continues on the next line"),
    "mixed-words": ("Mixed <mixed@words.example>", "Re: größer and bolder"),
    "unclosed-word": ("Unclosed <unclosed@words.example>", "Offer =?UTF-8?B?SGVsbG8 ends here"),
    "unknown-encoding": ("Encoding <x@words.example>", "=?UTF-8?X?abc?= is no encoding"),
    "unknown-charset": ("Charset <y@words.example>", "Grüße"),
    "wrong-charset": ("Wrong <wrong@words.example>", "Grüße vom Meer"),
    "cp1252-as-latin1": ("Quotes <quotes@words.example>", "“Only 5€”"),
    "q-stray-equals": ("Stray <stray@words.example>", "100=ZZ sure"),
    "raw-utf8": ("Müller Söhne <post@mueller.example>", "Ungeschützt: Öl für 5 €"),
    "raw-latin1": ("Müller <post@mueller.example>", "Schöne Grüße ohne Kodierung"),
    "utf7-script": ("Seven <seven@words.example>", "<script>alert(7)</script>"),

    "html-script": ("<script>alert(1)</script> <one@evil.example>",
                    "<script>document.location='https://evil.example/'</script>"),
    "html-encoded": ("<img src=x onerror=alert(2)> <two@evil.example>",
                     "</div></td></tr></table><h1>Your account is closed</h1>"),
    "html-attribute": ("\" onmouseover=\"alert(3) <three@evil.example>", "\" onmouseover=\"alert(3)\" x='"),
    "html-entities": ("Entities <four@evil.example>", "&lt;b&gt; &amp;amp; &#60;i&#62; &copy"),
    "template-markers": ("{{RELEASE_URL}} <five@evil.example>",
                         "{{#QUARANTINE_MESSAGES_TABLE}}{{%AUTOESCAPE context=\"JAVASCRIPT\"}}{{DELETE_URL:none}}"),
    "crlf-encoded": ("Six  Bcc: all@evil.example <six@evil.example>", "Hello  Bcc: all@evil.example    <b>body</b>"),
    "controls-encoded": ("Seven <seven@evil.example>", "a b c [31md e"),
    "bidi-override": ("Bank gnaB <eight@evil.example>", "invoicefdp.exe"),
    "combining-pile": ("Nine <nine@evil.example>", "Z\u0301\u0323\u0336\u0301algo"),
    "fake-lines": ("Ten <ten@evil.example>", "Nothing Release on the web:   https://evil.example/"),
    "javascript-link": ("javascript:alert(11) <eleven@evil.example>", "javascript:alert(11)"),
    "line-separators": ("Twelve <twelve@evil.example>", "one two three"),

    "from-quoted": ("O\"Brien, Pat <pat@quoted.example>", "A quoted name"),
    "from-comment": ("<lee@comment.example>", "A name in a comment"),
    "from-two": ("Ann <ann@pair.example>, Ben <ben@pair.example>", "Two senders"),
    "from-group": ("Friends: ann@group.example, ben@group.example;", "A group of senders"),
    "from-bare": ("<bare@sender.example>", "A bare address"),
    "from-no-address": ("The Management", "A sender without an address"),
    "from-idn": ("Bücher <post@bücher.example>", "An international domain"),
    "from-long": ("A" + " very" * 60 + " long name <" + "long." * 12 + "name@sender.example>", "A long sender"),
    "no-from": ("", "Nobody sent this"),
    "no-subject": ("Silent <silent@sender.example>", ""),
    "empty-subject": ("Empty <empty@sender.example>", ""),
    "no-from-no-subject": ("", ""),

    "mbox-from-line": ("Mbox <mbox@shape.example>", "After an mbox line"),
    "crlf-lines": ("Windows <crlf@shape.example>", "Lines that end with CR LF"),
    "lower-case-fields": ("Lower <lower@shape.example>", "Field names in lower case"),
    "two-subjects": ("Twice <twice@shape.example>", "The first subject counts"),
    "subject-in-body": ("Body <body@shape.example>", ""),
    "long-subject": ("Long <long@shape.example>", "Long" + "".join(" word%03d" % i * 8 for i in range(40))),
    "long-word": ("Wide <wide@shape.example>", "W" * 900),
    "long-header": ("Far <far@shape.example>", "After many trace lines"),
    "large-body": ("Large <large@shape.example>", "A large message"),
    "nested-message": ("Outer <outer@shape.example>", "The outer message"),
    "header-only": ("Short <short@shape.example>", "A header without a body"),

    "id-of-host": ("Marked <marked@ident.example>", "Known by the identifier of the filter"),
    "id-of-host-only": ("Marked <only@ident.example>", "Only the identifier of the filter"),
    "id-three-characters": ("Three <three@ident.example>", "The shortest identifier"),
    "same-second-1": ("First <first@second.example>", "Three in one second: one"),
    "same-second-2": ("Second <second@second.example>", "Three in one second: two"),
    "same-second-3": ("Third <third@second.example>", "Three in one second: three"),
    "state-seen": ("Seen <seen@state.example>", "Looked at, still held"),
    "too-old": ("Old <old@state.example>", "Older than the period: not in a report of one day"),
}


def shown(text):
    """As much of a held text as a report shows."""
    return text if len(text) <= 1000 else text[:1000] + "\u2026"


def of(name, raw):
    """Sender and subject of a message: by the table, or as written for a harmless one that a test made."""
    if name is None:
        header = email.message_from_bytes(raw)
        return header["From"] or "", header["Subject"] or ""
    return tuple(shown(text) for text in TEXTS[name])
