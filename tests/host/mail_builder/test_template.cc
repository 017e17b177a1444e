// Report templates: where they are found, what makes them faulty, and that no held text becomes markup.

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "host/mail_builder/customized_template.h"
#include "host/mail_builder/inert_text.h"
#include "host/mail_builder/template_store.h"
#include "host/mail_builder/text_modifiers.h"
#include "platform/mail_builder.h"
#include "tests/support/temp_root.h"
#include "tests/support/thrown_by.h"

namespace Velmar {
namespace {

namespace fs = std::filesystem;
using Host::ReportTemplate;
using Host::TemplateTexts;
using ::testing::HasSubstr;
using Testing::thrownBy;
using VlmCMsg::VXCustomizedEmailTemplate;

constexpr char kHeader[] = "From: Quarantine <q@example.org>\nSubject: Held: {{N}}\nEnvelope-From:\n";

boost::shared_ptr<VXCustomizedEmailTemplate> filled(const TemplateTexts& texts) {
  return Host::customize(std::make_shared<const ReportTemplate>(texts, "t"));
}

TEST(ReportTemplateTest, FaultsAreNamed) {
  const std::string none = "a held text takes no modifier but";
  const std::string open = "File ended before all sections were closed";
  const struct {
    const char* why;
    TemplateTexts texts;
    std::string want;
  } cases[] = {
      {"byte order mark, CR LF", {"\uFEFFFrom: q@x\r\nSubject: s\r\nEnvelope-From: \r\n", "h", "t"}, ""},
      {"no subject", {"From: q@x\nEnvelope-From:\n", "h", "t"}, "header.tpl: no line Subject:"},
      {"over two lines", {"From: {{#A}}a\nSubject: b{{/A}}\nEnvelope-From:", "h", "t"}, "header.tpl:1: " + open},
      {"open section", {kHeader, "{{#A}}x", "t"}, "body.html.tpl:1: " + open},
      {"unquoted link", {kHeader, "<a href={{X}}>", "t"}, "body.html.tpl:1: Auto-Escape: Value of URL attribute"},
      {"second of three", {kHeader, "{{#A}}{{X}}\n{{#B}}x\n{{/A}}{{/B}}{{Y}}", "t"}, "body.html.tpl:3: Found end of"},
      {"in a tag", {kHeader, "{{#A}}{{X}}\n<a href=\"{{X}}\"\nid={{X:up}}>{{/A}}", "t"}, "body.html.tpl:3: Unknown"},
      {"unended marker", {kHeader, "h", "{{X}}\n{{X}}\n{{X"}, "body.txt.tpl:3: No ending '}}'"},
      {"second language", {"Language: de\nLanguage: fr\n" + std::string(kHeader), "h", "t"}, "header.tpl:2: a second"},
      {"include", {kHeader, "a\nb{{>F}}", "t"}, "body.html.tpl:2: includes are not supported"},
      {"delimiters", {kHeader, "{{=<% %>=}}<%X%>", "t"}, "body.html.tpl:1: other delimiters are not supported"},
      {"held text as it is", {kHeader, "\n{{ORIG_SUBJECT:none}}", "t"}, "body.html.tpl:2: " + none},
      {"by a later modifier", {kHeader, "{{ORIG_FROM}}{{ORIG_FROM:x-a:none}}", "t"}, "body.html.tpl:1: " + none},
      {"no language", {"Language: d e\n" + std::string(kHeader), "h", "t"}, "header.tpl:1: no language tag"},
      {"no width", {std::string(kHeader) + "Wrap: 7x\n", "h", "t"}, "header.tpl:4: no number of columns"},
      {"not by this modifier", {kHeader, "{{SENDER_NAME:x-inert=9:none}}", "t"}, "body.html.tpl:1: " + none},
      {"made inert", {kHeader, "{{SENDER_NAME:x-inert=9}}{{ORIG_SUBJECT:x-inert=9:h}}", "t"}, ""},
      {"not UTF-8", {kHeader, "\xFF", "t"}, "body.html.tpl: is not UTF-8 text"},
  };
  for (const auto& c : cases) {
    const auto one = filled(c.texts);
    EXPECT_EQ(one->good(), c.want.empty()) << c.why;
    one->set("X", "x");
    const std::string want = c.want.empty() ? "nothing thrown" : "template t: " + c.want;
    EXPECT_THAT(thrownBy([&] { one->htmlbody(); }), ::testing::StartsWith(want)) << c.why;
  }
}

TEST(TemplateHtmlTest, HeldTextStaysInert) {
  const auto expanded = [](const std::string& held) {
    const auto one = filled({kHeader,
                             "<title>{{X}}</title><i title='{{X}}' onclick=\"f('{{X}}')\" {{X}}>{{X:h}}</i>"
                             "<img src=\"{{X}}\"><a href=\"{{X}}\">a</a><script>var a={{X}},b='{{X}}';</script>"
                             "<textarea>{{X}}</textarea><!-- {{X}} -->{{#ROW}}<td>{{X}}</td>{{/ROW}}",
                             "t"});
    one->beginSection("ROW");
    one->endSection();
    one->subject(held, "X");
    return one->htmlbody();
  };
  const auto markup = [](const std::string& html) {
    return std::count_if(html.begin(), html.end(), [](char c) { return std::strchr("<>\"'", c); });
  };
  const std::string html = expanded(R"(<i>"'javascript:alert(1) onx=1 --></script></style></title>&)");
  EXPECT_EQ(markup(html), markup(expanded("word"))) << html;
  const std::string link = expanded("javascript:alert(1)");
  EXPECT_EQ(link.find("=\"javascript:"), std::string::npos) << link;
}

TEST(TemplateValuesTest, HeldTextsAreDecodedOnceWithTheCallersFallbacks) {
  class Cyrillic final : public QRLStaticCharSetFallbacks {
    std::vector<std::string> names_{"koi8-r"};
    const std::vector<std::string>& charsets() const override { return names_; }
  } cyrillic;
  const auto one = filled({kHeader, "h", "{{F}}|{{S}}|{{R}}"});
  one->headerFrom("=?utf-8?Q?M=C3=BCller?=\r\n <m@x>", "F");
  one->fallon(&cyrillic);
  one->subject("\xF0\xD2\xC9\xD7\xC5\xD4\tb", "S");
  one->set("R", "=?utf-8?Q?x?=");
  EXPECT_EQ(one->textbody(), "Müller <m@x>|Привет b|=?utf-8?Q?x?=");
}

TEST(TemplateValuesTest, HeldTextsAreCutBetweenCharacters) {
  std::string thousand;
  for (int i = 0; i < 1000; ++i) thousand += "é";
  for (const auto& [held, want] : {std::pair(thousand, thousand), std::pair(thousand + "é", thousand + "…")}) {
    const auto one = filled({kHeader, "h", "{{S}}"});
    one->subject(held, "S");
    EXPECT_EQ(one->textbody(), want);
  }
}

TEST(TemplateValuesTest, SenderIsNameAndAddress) {
  const std::pair<const char*, const char*> cases[] = {
      {"Ann <a@x>", "+Ann|+a@x|"},
      {"a@x", "|+a@x|"},
      {"\"bank@safe\" <evil@x>", "+bank@safe|+evil@x|"},
      {" bank@safe <evil@x> ", "+bank@safe|+evil@x|"},  // not by the grammar
      {"=?utf-8?Q?a=40safe_=3Cb=40safe=3E?=\r\n\t<evil@x>", "+a@safe <b@safe>|+evil@x|"},
      {"M\xFCller <m@x>", "+Müller|+m@x|"},
      {"a@x, b@x", "+a@x, b@x||"},
      {"a@x, B <b@x>", "+a@x, B <b@x>||"},
      {"B, Inc. <b@x>", "+B, Inc.|+b@x|"},
      {"<>", "+<>||"},
      {"=?utf-8?Q?=E2=80=8B=C2=A0?= <a@x>", "|+a@x|"},
      {"=?utf-8?Q?=E2=80=AE_=E2=A0=80?=", "||none"},
      {" \t ", "||none"},
  };
  for (const auto& [raw, want] : cases) {
    const auto one = filled({kHeader, "h",
                             "{{#WITH_SENDER_NAME}}+{{/WITH_SENDER_NAME}}{{SENDER_NAME}}|{{#WITH_SENDER_ADDRESS}}+"
                             "{{/WITH_SENDER_ADDRESS}}{{SENDER_ADDRESS}}|{{#NO_SENDER}}none{{/NO_SENDER}}"});
    one->headerFrom(raw, "ORIG_FROM");
    EXPECT_EQ(one->textbody(), want) << raw;
  }
}

TEST(TemplateValuesTest, CountSectionFollowsTheTemplatesLanguage) {
  const std::string all =
      "{{#COUNT_ONE}}one{{/COUNT_ONE}}{{#COUNT_FEW}}few{{/COUNT_FEW}}{{#COUNT_OTHER}}other{{/COUNT_OTHER}}";
  const struct {
    const char *language, *count, *want;
  } cases[] = {
      {"", "1", "one"},
      {"", "0", "other"},
      {"Language: ru\n", "21", "one"},
      {"Language: ru\n", "3", "few"},
      {"Language: ru\n", "5", "other"},  // MANY, of which there is no section
      {"Language: zh-Hant\n", "1", "other"},
  };
  for (const auto& [language, count, want] : cases) {
    const auto one = filled({language + std::string(kHeader), "h", all});
    one->set("QUARANTINE_MESSAGES_COUNT", count);
    EXPECT_EQ(one->textbody(), want) << language << count;
  }
}

TEST(TemplateValuesTest, RowsAreNumberedAndLinesWrapped) {
  const auto one = filled({"Wrap: 40\n" + std::string(kHeader), "h",
                           "{{#QUARANTINE_MESSAGES_TABLE}}  {{ROW_NUMBER}} {{S}}\n{{/QUARANTINE_MESSAGES_TABLE}}"});
  const std::string address = "a-long-address-without-a-blank@mail.example";
  for (const std::string& value :
       {std::string("short"), "to " + address + " and so on", std::string(50, 'w') + "…", std::string(40, '!'),
        std::string("日本語の長い文章は文字のあいだで折り返されることになっています。"),
        "(" + std::string(99, ' ') + "é"}) {
    one->beginSection("QUARANTINE_MESSAGES_TABLE");
    one->set("S", value);
    one->endSection();
  }
  const std::string deeper = "\n        ";
  EXPECT_EQ(one->textbody(), "  1 short\n  2 to" + deeper + address + deeper + "and so on\n  3" + deeper +
                                 std::string(32, 'w') + deeper + std::string(18, 'w') + "…\n  4" + deeper +
                                 std::string(32, '!') + deeper + std::string(8, '!') +
                                 "\n  5 日本語の長い文章は文字のあいだで折り" + deeper +
                                 "返されることになっています。\n  6" + deeper + "(" + deeper + "é\n");
}

TEST(InertTextTest, DisguisesAreTakenOffAndLinksBroken) {
  const std::string z = "\u200B";
  const struct {
    std::string held, page, text;
  } cases[] = {
      {"invoice\u202Efdp.exe", "invoicefdp." + z + "exe", "invoicefdp[.]exe"},
      {"p\u200Ba\u00ADy\uFEFF\u2066p\u2069\U000E0041\u3164\uFFF9", "payp", "payp"},
      {"👩🏽\u200D🚀❤\uFE0F\u200D🔥\u200B", "👩🏽\u200D🚀❤\uFE0F\u200D🔥",
       "👩🏽\u200D🚀❤\uFE0F\u200D🔥"},
      {"\uFE0F\uFE10a\uFE00\u0080", "\uFE10a\uFE00\u0080", "\uFE10a\uFE00\u0080"},  // FE10: a comma, no selector
      {"क्\u200Dष क्\u200Cष a\u200Db", "क्\u200Dष क्\u200Cष ab", "क्\u200Dष क्\u200Cष ab"},
      {"\u0301a\u0301\u0301\u0301\u0301\u0301\u0301\uFE0F", "a\u0301\u0301\u0301\u0301", "a\u0301\u0301\u0301\u0301"},
      {"://Re: a:b/ http://a.bc//d://", ":" + z + "//Re: a:b/ http:" + z + "//a." + z + "bc//d:" + z + "//",
       "[:]//Re: a:b/ http[:]//a[.]bc//d[:]//"},
      {"mail@x.org", "mail" + z + "@x." + z + "org", "mail@x[.]org"},
      {"3.50 a. b ... V2.x", "3." + z + "50 a. b ... V2." + z + "x", "3.50 a. b ... V2.x"},
      {"9.0 Z.A z.a .net 2.a1 b.", "9." + z + "0 Z." + z + "A z." + z + "a .net 2." + z + "a1 b.",
       "9.0 Z.A z.a .net 2[.]a1 b."},
      {"\U0001D41A\uFF0Ebc\u3002d\uFF61e", "\U0001D41A\uFF0E" + z + "bc\u3002" + z + "d\uFF61" + z + "e",
       "\U0001D41A[\uFF0E]bc\u3002d\uFF61e"},
      {"abcdefghijk\u0301lmn", "abcdefghijk\u0301…", "abcdefghijk\u0301…"},
      {"ab日本語日本語日本語", "ab日本語日本語…", "ab日本語日本語…"},
      {"ab日本語日本語cdef", "ab日本語日本語cdef", "ab日本語日本語cdef"},
      {"abcdef&&&&&", "abcdef&&&…", "abcdef&&&&&"},
      {"ab.cd.ef.gh.ij.kl", "ab." + z + "cd." + z + "ef." + z + "gh…", "ab[.]cd[.]ef[.]gh…"},
      {" " + std::string(34, 'w'), " " + std::string(30, 'w') + z + "wwww", " " + std::string(34, 'w')},
      {"👩\u200D🚀👩\u200D🚀👩\u200D🚀👩\u200D🚀👩\u200D🚀👩\u200D🚀👩\u200D🚀👩\u200D🚀👩\u200D🚀", "👩\u200D🚀…", "👩\u200D🚀…"},
  };
  for (const auto& [held, page, text] : cases) {
    const std::size_t limit = held.starts_with("ab") || held.starts_with("👩\u200D🚀👩") ? 12 : 40;
    const std::string longer = held + "x";  // which is not looked at
    const std::string_view view = std::string_view(longer).substr(0, held.size());
    EXPECT_EQ(Host::inertText(view, limit, Host::LinkBreak::kHidden), page) << held;
    EXPECT_EQ(Host::inertText(view, limit, Host::LinkBreak::kVisible), text) << held;
  }
  const auto one = filled({kHeader, "{{ORIG_SUBJECT:x-inert=9}}", "t"});
  one->subject("<b>\"\u202E&<<<<<", "ORIG_SUBJECT");
  EXPECT_EQ(one->htmlbody(), "&lt;b&gt;&quot;…");
}

TEST(InertTextTest, NumberOfCharactersIsTheModifiersArgument) {
  for (const std::string argument :
       {"1", "9", "999", "1001", "0", "9x", "-9", "", "+9", "1e2", "99999999999999999999"}) {
    const bool sound = argument == "1" || argument == "9" || argument == "999";
    const std::size_t want = sound ? std::stoul(argument) : 1000;
    const auto one = filled({kHeader, "h", "{{S:x-inert-text=" + argument + "}}"});
    one->set("S", std::string(1100, 'a'));
    EXPECT_EQ(one->textbody(), std::string(want - 1, 'a') + "…") << argument;
  }
}

TEST(TemplateHeaderTest, Sender) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"\"Example, Inc.\" <q@example.org>", "\"Example, Inc.\" <q@example.org>"},
      {"Example, Inc. (mail) <q@example.org>", "\"Example, Inc. (mail)\" <q@example.org>"},
      {"Quarantäne <q@bücher.example>", "=?UTF-8?Q?Quarant=C3=A4ne?= <q@xn--bcher-kva.example>"},
      {"{{V}}", "v@example.org"},
      {"", ""},
      {"a@b, c@d", ""},
      {"a@b <c@d", ""},
  };
  for (const auto& [line, want] : cases) {
    const auto one = filled({"From: " + line + "\nSubject: s\nEnvelope-From:", "h", "t"});
    one->set("V", "v@example.org");
    std::string got;
    const std::string failure = thrownBy([&] { got = one->headerFromRFC2047(); });
    EXPECT_EQ(got, want) << line;
    EXPECT_EQ(failure,
              want.empty() ? "template t: header.tpl: From is no mail address: \"" + line + "\"" : "nothing thrown");
  }
}

TEST(TemplateHeaderTest, SubjectAndEnvelope) {
  const auto one = filled({"Subject:  {{N}} für dich \nFrom: q@x\nEnvelope-From: <{{E}}>", "h", "t"});
  one->set("N", "3\r\nBcc: evil@x\r\n");
  EXPECT_EQ(one->subjectRFC2047(), "=?UTF-8?Q?3__Bcc=3A_evil=40x___f=C3=BCr_dich?=");
  one->set("N", "4");  // values may still come after a header value was asked for
  EXPECT_EQ(one->subjectRFC2047(), "=?UTF-8?Q?4_f=C3=BCr_dich?=");
  EXPECT_EQ(one->envFrom(), "");
  one->set("E", "bounce@x");
  EXPECT_EQ(one->envFrom(), "bounce@x");
  one->set("E", "no address");
  EXPECT_EQ(thrownBy([&] { one->envFrom(); }),
            "template t: header.tpl: Envelope-From is no mail address: \"<no address>\"");
}

TEST(TextModifierTest, MailtoLinks) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"mailto:r@x?subject=delete_all: a@b:1f:2:s", "r@x|delete_all: a@b:1f:2:s"},
      {"mailto:r?e@x?subject=a&b@x:%2B", "r?e@x|a&b@x:+"},
      {"mailto:r@x?subject=%0d%0aX: y%00%ff", "r@x|  X: y \uFFFD"},
      {"mailto:r@x?subject=100%&%411%4", "r@x|100%&A1%4"},
      {"r@x", "r@x|"},
  };
  for (const auto& [link, want] : cases) {
    const auto one = filled({kHeader, "h", "{{L:x-mailto-to}}|{{L:x-mailto-subject}}"});
    one->set("L", link);
    EXPECT_EQ(one->textbody(), want) << link;
  }
  EXPECT_EQ(Host::mailtoSubject(std::string_view("?subject=%41").substr(0, 11)), "%4") << "what follows was read";
}

class TemplateStoreTest : public ::testing::Test {
 protected:
  TemplateStoreTest() {
    root.write(
        "etc/velmar/host.toml",
        "[global]\nhost_name = \"mail.example.org\"\n[antispam]\nrelease_account = \"r\"\ndelete_account = \"d\"\n");
  }

  void writeTemplate(const std::string& directory, const std::string& text) const {
    root.write(directory + "/header.tpl", kHeader);
    root.write(directory + "/body.html.tpl", "<p>h</p>");
    root.write(directory + "/body.txt.tpl", text);
  }

  /// The text of the template that is found, "none", or what is wrong.
  static std::string found(const std::string& name, const std::string& domain, int type = 38) {
    try {
      const auto one = VXCustomizedEmailTemplate::create(type, name, domain, 0);
      return one ? one->good() ? one->textbody() : "not good" : "none";
    } catch (const Exception& e) {
      return "exception: " + e.text();
    }
  }

  const Testing::TempRoot root;
  const Testing::ScopedVariable share{"VELMAR_SHARE", root / "share"};
  const std::string own = "etc/velmar/templates/";
  const fs::path brief = root / "etc/velmar/templates/brief";
};

TEST_F(TemplateStoreTest, Places) {
  writeTemplate("share/templates/default", "shipped default");
  writeTemplate("share/templates/brief", "shipped brief");
  writeTemplate(own + "brief", "own brief");
  writeTemplate(own + "example.org/brief", "brief of example.org");
  writeTemplate("etc/secret", "outside");
  root.write(own + "partial/header.tpl", kHeader);
  const struct {
    std::string name, domain, want;
  } cases[] = {
      {"default", "", "shipped default"},
      {"brief", "", "own brief"},
      {"brief", "example.org", "brief of example.org"},
      {"default", "example.org", "none"},  // the caller falls back, not the store
      {"partial", "", "not good"},
      {"..", "", "none"},
      {"../../secret", "", "none"},
      {"secret", "../..", "none"},
      {"example.org/brief", "", "none"},
      {std::string("brief\0x", 7), "", "none"},
      {std::string(256, 'a'), "", "none"},
  };
  for (const auto& c : cases) EXPECT_EQ(found(c.name, c.domain), c.want) << c.domain << "/" << c.name;
  EXPECT_EQ(found("brief", "", 37), "none");
}

TEST_F(TemplateStoreTest, NotBeingAbleToLookIsNoAnswer) {
  writeTemplate("share/templates/brief", "shipped");
  fs::create_directories(brief / "body.txt.tpl");
  EXPECT_THAT(found("brief", ""), HasSubstr("brief/body.txt.tpl: is not a regular file"));
  fs::remove_all(brief);
  fs::create_directory_symlink("brief", brief);
  EXPECT_THAT(found("brief", ""), HasSubstr("exception: template file " + brief.string()));
  writeTemplate(own + "large", std::string((1 << 20) + 1, 'x'));
  EXPECT_THAT(found("large", ""), HasSubstr("is larger than 1048576 bytes"));
}

TEST_F(TemplateStoreTest, KeepsTheParsedTemplateUntilAFileChanges) {
  writeTemplate(own + "brief", "one");
  for (const auto& file : fs::directory_iterator(brief)) {  // not written this very moment
    fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(1));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(80));
  const auto first = Host::findReportTemplate("brief", "");
  EXPECT_EQ(Host::findReportTemplate("brief", "").get(), first.get());

  for (int i = 100; i < 200; ++i) {  // as long as before and, perhaps, within the same tick of the clock
    root.write(own + "brief/body.txt.tpl", std::to_string(i));
    ASSERT_EQ(found("brief", ""), std::to_string(i));
  }
  root.write(own + "brief/new", "{{#A}}");
  fs::rename(brief / "new", brief / "body.txt.tpl");
  EXPECT_EQ(found("brief", ""), "not good");
  fs::remove_all(brief);
  EXPECT_EQ(found("brief", ""), "none");
  writeTemplate(own + "brief", "back");
  EXPECT_EQ(found("brief", ""), "back");
  EXPECT_EQ(first->error(), "");  // whoever still holds the first one may go on
}

TEST_F(TemplateStoreTest, ThreadsReadWhileFilesChange) {
  writeTemplate(own + "brief", "a");
  std::atomic<bool> stop{false};
  std::vector<std::thread> readers(4);
  for (auto& reader : readers) {
    reader = std::thread([&] {
      while (!stop) EXPECT_THAT(found("brief", ""), ::testing::AnyOf("a", "b"));
    });
  }
  for (int i = 0; i < 100; ++i) {
    root.write(own + "brief/new", i % 2 ? "a" : "b");
    fs::rename(brief / "new", brief / "body.txt.tpl");
  }
  stop = true;
  for (auto& reader : readers) reader.join();
}

}  // namespace
}  // namespace Velmar
