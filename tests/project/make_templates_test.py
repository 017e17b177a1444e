"""scripts/make_templates on catalogues of its own: what it takes over, what it falls back to, what it refuses."""

import contextlib
import importlib.machinery
import importlib.util
import io
import os
import tempfile
import unittest
from pathlib import Path

HEAD = 'msgid ""\nmsgstr ""\n"Plural-Forms: nplurals=%d; plural=%s;\\n"\n\n'
SLAVIC = "(n%10==1 && n%100!=11 ? 0 : (n%10>=2 && n%10<=4 && (n%100<12 || n%100>14) ? 1 : 2))"


def tool():
    path = os.environ["VELMAR_SCRIPTS"] + "/make_templates"
    loader = importlib.machinery.SourceFileLoader("make_templates", path)
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("make_templates", loader))
    loader.exec_module(module)
    return module


class MakeTemplatesTest(unittest.TestCase):
    def made(self, language, catalogue, page="<p title=\"@@Hold {{N}}@@\">@@{{N}} day||{{N}} days@@</p>"):
        """The page in a language, and what the tool says."""
        module = tool()
        with tempfile.TemporaryDirectory() as directory:
            module.SHARE = Path(directory)
            for name, text in {"templates/source/header.tpl": "@@=lang@@ @@=dir@@\n", "po/LINGUAS": language + "\n",
                               "templates/source/body.html.tpl": "@# Remark.\n" + page,
                               "templates/source/body.txt.tpl": "@@Hold {{N}}@@",
                               "po/%s.po" % language: catalogue}.items():
                (module.SHARE / name).parent.mkdir(parents=True, exist_ok=True)
                (module.SHARE / name).write_text(text)
            with contextlib.redirect_stdout(io.StringIO()) as said:
                module.write_sets(Path(directory) / "out")
            return (Path(directory) / "out" / ("default-" + language) / "body.html.tpl").read_text(), said.getvalue()

    def test_words_plurals_and_fallback(self):
        one = 'msgid "Hold {{N}}"\nmsgstr "Halt \\"{{N}}\\" "\n"<an>"\n'
        days = ('msgid "{{N}} day"\nmsgid_plural "{{N}} days"\n'
                'msgstr[0] "{{N}} день"\nmsgstr[1] "{{N}} дня"\nmsgstr[2] "{{N}} дней"\n')
        english = "{{#COUNT_ONE}}{{N}} day{{/COUNT_ONE}}{{#COUNT_OTHER}}{{N}} days{{/COUNT_OTHER}}"
        russian = ("{{#COUNT_ONE}}{{N}} день{{/COUNT_ONE}}{{#COUNT_FEW}}{{N}} дня{{/COUNT_FEW}}"
                   "{{#COUNT_MANY}}{{N}} дней{{/COUNT_MANY}}{{#COUNT_OTHER}}{{N}} дней{{/COUNT_OTHER}}")
        translated, original = "Halt &quot;{{N}}&quot; &lt;an&gt;", "Hold {{N}}"
        for language, catalogue, title, text, said in [
            ("de", HEAD % (2, "n != 1") + one, translated, english,
             'de lacks 1 of its words, English stands in: "{{N}} day"'),
            ("ru", HEAD % (3, SLAVIC) + one + "\n" + days, translated, russian, ""),
            ("de", HEAD % (2, "n != 1") + "#, fuzzy\n" + one, original, english, "de lacks 2 of its words"),
        ]:
            page, output = self.made(language, catalogue)
            self.assertEqual(page, '<p title="%s">%s</p>' % (title, text))
            self.assertIn(said, output)
            self.assertEqual(bool(said), bool(output))

    def test_refused(self):
        hold = 'msgid "Hold {{N}}"\nmsgstr '
        days = 'msgid "{{N}} day"\nmsgid_plural "{{N}} days"\nmsgstr[0] "ein Tag"\nmsgstr[1] "Tage"\n'
        german = HEAD % (2, "n != 1")
        for catalogue in (german + hold + '"Halt"\n', german + days, hold + "oops\n", HEAD % (1, "open(n)"),
                          HEAD % (1, "n n")):
            with self.assertRaisesRegex(Exception, "de.po"):
                self.made("de", catalogue)


if __name__ == "__main__":
    unittest.main()
