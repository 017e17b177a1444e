"""The HTML page of a report, taken apart with the standard library's parser."""

from html.parser import HTMLParser

VOID = {"img", "meta", "br", "hr", "link", "input"}
PLACES = {"th": "sender", "b": "sender", "span": "sender", "div": "subject", "small": "date"}  # within a row


class Page(HTMLParser):
    """rows: the table's messages; unclosed: elements that have not ended."""

    def __init__(self, html):
        super().__init__(convert_charrefs=True)
        self.unclosed, self.rows, self.links, self.images, self.head = [], [], [], [], ""
        self.feed(html)
        self.close()

    def handle_starttag(self, tag, attributes):
        values = dict(attributes)
        if tag not in VOID:
            self.unclosed.append(tag)
        if tag == "tr" and "tbody" in self.unclosed:
            self.rows.append(dict(values, sender="", subject="", date="", links=[]))
        if tag == "a":
            (self.rows[-1]["links"] if "tbody" in self.unclosed else self.links).append(values["href"])
        if tag == "img":
            self.images.append(values)

    def handle_endtag(self, tag):
        if not self.unclosed or self.unclosed[-1] != tag:
            raise AssertionError("</%s> closes %s at %s" % (tag, self.unclosed[-1:], self.getpos()))
        self.unclosed.pop()

    def handle_data(self, data):
        innermost = self.unclosed[-1] if self.unclosed else ""
        if "tbody" in self.unclosed and innermost in PLACES:
            self.rows[-1][PLACES[innermost]] += data.replace("\u200b", "")  # stands where a link would be
        elif innermost in ("h1", "p"):
            self.head += data + "\n"

    def handle_comment(self, data):
        raise AssertionError("a remark in the page: %r" % data)
