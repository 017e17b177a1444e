"""The HTML page of a report, taken apart with the standard library's parser."""

from html.parser import HTMLParser

VOID = {"img", "meta", "br", "hr", "link", "input"}


class Page(HTMLParser):
    """elements: every start tag as (name, attributes); rows: the table's messages."""

    def __init__(self, html):
        super().__init__(convert_charrefs=True)
        self.elements, self.unclosed, self.rows, self.links, self.images, self.head = [], [], [], [], [], ""
        self.feed(html)
        self.close()

    def handle_starttag(self, tag, attributes):
        values = dict(attributes)
        self.elements.append((tag, tuple(attributes)))
        if tag not in VOID:
            self.unclosed.append((tag, values.get("class", "")))
        if tag == "tr" and values.get("class") in ("odd", "even"):
            self.rows.append(dict(values, sender="", subject="", date="", links=[], images=[]))
        if tag == "a":
            (self.rows[-1]["links"] if self.inside("tr", "odd", "even") else self.links).append(values["href"])
        if tag == "img":
            (self.rows[-1]["images"] if self.inside("tr", "odd", "even") else self.images).append(values)

    def handle_endtag(self, tag):
        if not self.unclosed or self.unclosed[-1][0] != tag:
            raise AssertionError("</%s> closes %s at %s" % (tag, self.unclosed[-1:], self.getpos()))
        self.unclosed.pop()

    def handle_data(self, data):
        if self.inside("tr", "odd", "even"):
            for _, place in self.unclosed:
                if place in ("sender", "subject", "date"):
                    self.rows[-1][place] += data.replace("\u200b", "")  # stands where a link would be
        elif self.unclosed and self.unclosed[-1][0] in ("h1", "p"):
            self.head += data + "\n"

    def handle_comment(self, data):
        raise AssertionError("a remark in the page: %r" % data)

    def inside(self, tag, *classes):
        return any(name == tag and css in classes for name, css in self.unclosed)

    @property
    def shape(self):
        """Names of the elements and of their attributes, without any value."""
        return [(tag, tuple(name for name, _ in attributes)) for tag, attributes in self.elements]
