// Report templates: where they are found, what makes them faulty, and that no held text becomes markup.

#include <ctemplate/template_modifiers.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <iostream>
#include <sstream>
#include <thread>
#include <vector>

#include "host/mail_builder/customized_template.h"
#include "host/mail_builder/template_store.h"
#include "host/mail_builder/text_modifiers.h"
#include "platform/mail_builder.h"
#include "tests/host/mail_builder/temporary_root.h"

// What a modifier throws leaves an iterator of ctemplate's behind, and with it the template.
extern "C" VLM_EXPORT const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:CreateSectionIterator\nleak:TemplateCache::StringToTemplateCache\n";
}

namespace Velmar {
namespace {

namespace fs = std::filesystem;
using Host::ReportTemplate;
using Host::TemplateTexts;
using ::testing::HasSubstr;
using VlmCMsg::VXCustomizedEmailTemplate;

constexpr char kHeader[] = "From: Quarantine <q@example.org>\nSubject: Held: {{N}}\nEnvelope-From:\n";

boost::shared_ptr<VXCustomizedEmailTemplate> filled(const TemplateTexts& texts) {
  return Host::customize(std::make_shared<const ReportTemplate>(texts, "t"));
}

boost::shared_ptr<VXCustomizedEmailTemplate> withHtml(const std::string& html) { return filled({kHeader, html, "t"}); }
boost::shared_ptr<VXCustomizedEmailTemplate> withHeader(const std::string& header) {
  return filled({header, "<p>h</p>", "t"});
}

std::string errorOf(const TemplateTexts& texts) { return ReportTemplate(texts, "t").error(); }

std::string thrownBy(const std::function<void()>& call) {
  try {
    call();
  } catch (const Exception& e) {
    return e.text();
  }
  return "nothing thrown";
}

TEST(ReportTemplateTest, FaultsAreNamed) {
  struct Case {
    const char* why;
    TemplateTexts texts;
    std::string want;
  };
  const std::string from = "From: q@example.org\n";
  const std::string rest = "Subject: s\nEnvelope-From:\n";
  const std::vector<Case> cases = {
      {"sound", {kHeader, "<p>h</p>", "t"}, ""},
      {"comments and empty lines", {"{{! x }}\n\n" + from + rest, "h", "t"}, ""},
      {"CR LF and byte order mark",
       {"\xEF\xBB\xBF"
        "From: q@example.org\r\nSubject: s\r\nEnvelope-From: \r\n",
        "h", "t"},
       ""},
      {"nothing there", {"", "h", "t"}, "header.tpl: is missing or empty"},
      {"no HTML", {kHeader, "", "t"}, "body.html.tpl: is missing or empty"},
      {"no text", {kHeader, "h", " \n"}, "body.txt.tpl: is missing or empty"},
      {"no subject", {from + "Envelope-From:\n", "h", "t"}, "header.tpl: no line Subject:"},
      {"two senders", {from + from + rest, "h", "t"}, "header.tpl:2: a second From:"},
      {"unknown line", {from + "To: x\n" + rest, "h", "t"}, "header.tpl:2: neither From:, Subject: nor Envelope-From:"},
      {"section over two lines",
       {"From: {{#A}}a\nSubject: b{{/A}}\nEnvelope-From:", "h", "t"},
       "header.tpl: File ended before all sections were closed"},
      {"open section", {kHeader, "{{#A}}x", "t"}, "body.html.tpl: File ended before all sections were closed"},
      {"unknown modifier",
       {kHeader, "h", "{{X:nonsense}}"},
       "body.txt.tpl: Unknown modifier for variable X: 'nonsense'"},
      {"unquoted link",
       {kHeader, "<a href={{X}}>", "t"},
       "body.html.tpl: Auto-Escape: Value of URL attribute \"href\" must be enclosed in quotes."},
      {"escaping turned off", {kHeader, "{{%AUTOESCAPE context=\"TEXT\"}}{{X}}", "t"}, "body.html.tpl: "},
      {"include", {kHeader, "a\nb{{>F}}", "t"}, "body.html.tpl:2: includes are not supported"},
      {"include in the text", {kHeader, "h", "{{>F}}"}, "body.txt.tpl:1: includes are not supported"},
      {"other delimiters",
       {kHeader, "{{=<% %>=}}<%ORIG_SUBJECT:none%>", "t"},
       "body.html.tpl:1: other delimiters are not supported"},
      {"held text as it is",
       {kHeader, "\n{{ORIG_SUBJECT:none}}", "t"},
       "body.html.tpl:2: :none would let a held message write markup"},
      {"held text, later modifier",
       {kHeader, "{{ORIG_FROM}}{{ORIG_FROM:x-a:none}}", "t"},
       "body.html.tpl:1: :none would let a held message write markup"},
      {"not UTF-8", {kHeader, "\xFF", "t"}, "body.html.tpl: is not UTF-8 text"},
      {"NUL", {kHeader, "h", std::string("a\0b", 3)}, "body.txt.tpl: is not UTF-8 text"},
  };
  for (const Case& c : cases) {
    const std::string got = errorOf(c.texts);
    EXPECT_EQ(got.substr(0, c.want.empty() ? got.size() : c.want.size()), c.want) << c.why << ": " << got;
  }
}

TEST(ReportTemplateTest, FaultyOneIsNotGoodAndSaysWhy) {
  const auto faulty = withHtml("{{#A}}");
  EXPECT_FALSE(faulty->good());
  EXPECT_EQ(faulty->set("X", "y"), 0);
  EXPECT_THAT(thrownBy([&] { faulty->htmlbody(); }), HasSubstr("template t: body.html.tpl: File ended"));
}

TEST(ReportTemplateTest, ParseErrorsStayOffStandardErrorAndOtherThreadsDoNot) {
  std::ostringstream shown;
  std::streambuf* const before = std::cerr.rdbuf(shown.rdbuf());
  std::atomic<bool> stop{false};
  std::thread parser([&] {
    for (int i = 0; i < 200; ++i) errorOf({kHeader, "{{#A}}", "t"});
    stop = true;
  });
  std::size_t written = 0;
  while (!stop) {
    std::cerr.write("x", 1);
    ++written;
  }
  parser.join();
  std::cerr.rdbuf(before);
  EXPECT_EQ(shown.str(), std::string(written, 'x'));
}

TEST(TemplateHtmlTest, HeldTextStaysInert) {
  const std::string hostile = R"(<i>"'javascript:alert(1) onx=1 --></script></style></title>&)";
  struct Case {
    const char* why;
    std::string html;
  };
  const std::vector<Case> cases = {
      {"text", "<p>{{X}}</p>"},
      {"without a pragma", "<p>{{X}}</p>"},
      {"asked for :h too", "<p>{{X:h}}</p>"},
      {"quoted attribute", "<p title=\"{{X}}\">x</p>"},
      {"single quotes", "<p title='{{X}}'>x</p>"},
      {"bare attribute", "<p title={{X}}>x</p>"},
      {"link", "<a href=\"{{X}}\">x</a>"},
      {"part of a link", "<a href=\"https://h/?q={{X}}\">x</a>"},
      {"image", "<img src=\"{{X}}\">"},
      {"event handler", "<p onclick=\"f('{{X}}')\">x</p>"},
      {"style attribute", "<p style=\"color:{{X}}\">x</p>"},
      {"style", "<style>a{color:{{X}}}</style>"},
      {"script", "<script>var a={{X}},b='{{X}}';</script>"},
      {"title", "<title>{{X}}</title>"},
      {"text area", "<textarea>{{X}}</textarea>"},
      {"comment", "<!-- {{X}} -->"},
      {"attribute name", "<p {{X}}>x</p>"},
      {"row", "{{#ROW}}<td>{{X}}</td>{{/ROW}}"},
  };
  for (const Case& c : cases) {
    const auto plain = withHtml(c.html);
    const auto held = withHtml(c.html);
    ASSERT_TRUE(held->good()) << c.why;
    for (const auto& one : {plain, held}) {
      one->beginSection("ROW");
      one->endSection();
    }
    plain->set("X", "word");
    held->subject(hostile, "X");
    const auto markup = [](std::string text) {
      std::string kept;
      for (const char ch : text) {
        if (std::string("<>\"'").find(ch) != std::string::npos) kept += ch;
      }
      return kept;
    };
    const std::string html = held->htmlbody();
    EXPECT_EQ(markup(html), markup(plain->htmlbody())) << c.why << ": " << html;
    EXPECT_EQ(html.find("href=\"javascript:"), std::string::npos) << html;
  }
}

TEST(TemplateHtmlTest, LinksAndImagesOfShippedForms) {
  const auto one = withHtml(R"(<a href="{{U}}">u</a><a href="{{M:h:none}}">m</a>{{I:h:x-img-cid=I:none}})");
  one->set("U", "https://h:8/releasecontrol?release=0:a@b:M==:S&x");
  one->set("M", R"(mailto:r@b?subject=a"b@c:M%3D)");
  one->set("I", "Rel<ease>");
  EXPECT_EQ(one->htmlbody(), R"(<a href="https://h:8/releasecontrol?release=0:a@b:M==:S&amp;x">u</a>)"
                             R"(<a href="mailto:r@b?subject=a&quot;b@c:M%3D">m</a>Rel&lt;ease&gt;)");
}

TEST(TemplateValuesTest, SectionsNestAndLaterValuesWin) {
  const auto one = filled({kHeader, "h", "{{A}}{{#ROW}}[{{A}}{{B}}{{#IN}}<{{B}}>{{/IN}}]{{/ROW}}{{#NO}}never{{/NO}}"});
  one->set("A", "first");
  one->set("A", "top");
  for (const char* row : {"1", "2"}) {
    one->beginSection("ROW");
    one->set("B", row);
    one->beginSection("IN");
    one->set("B", std::string("in") + row);
    one->endSection();
    one->endSection();
  }
  EXPECT_EQ(one->textbody(), "top[top1<in1>][top2<in2>]");
  EXPECT_THAT(thrownBy([&] { one->endSection(); }), HasSubstr("no section is open"));
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

TEST(TemplateHeaderTest, Sender) {
  struct Case {
    std::string line;
    std::string want;
  };
  const std::vector<Case> cases = {
      {"q@example.org", "q@example.org"},
      {"<q@example.org>", "q@example.org"},
      {"Quarantine <q@example.org>", "Quarantine <q@example.org>"},
      {"\"Example, Inc.\" <q@example.org>", "\"Example, Inc.\" <q@example.org>"},
      {"Example, Inc. (mail) <q@example.org>", "\"Example, Inc. (mail)\" <q@example.org>"},
      {"Quarantäne <q@bücher.example>", "=?UTF-8?Q?Quarant=C3=A4ne?= <q@bücher.example>"},
      {"{{V}}", "v@example.org"},
      {"Nobody", ""},
      {"", ""},
      {"Name <>", ""},
      {"a@b, c@d", ""},
      {"a@b <c@d", ""},
  };
  for (const Case& c : cases) {
    const auto one = withHeader("From: " + c.line + "\nSubject: s\nEnvelope-From:");
    one->set("V", "v@example.org");
    if (c.want.empty()) {
      EXPECT_EQ(thrownBy([&] { one->headerFromRFC2047(); }), "template t: From is no mail address: \"" + c.line + "\"");
    } else {
      EXPECT_EQ(one->headerFromRFC2047(), c.want);
    }
  }
}

TEST(TemplateHeaderTest, SubjectAndEnvelope) {
  const auto one = withHeader("Subject:  {{N}} für {{#A}}dich{{/A}} \nFrom: q@x\nEnvelope-From: <{{E}}>");
  one->set("N", "3\r\nBcc: evil@x\r\n");
  one->beginSection("A");
  one->endSection();
  EXPECT_EQ(one->subjectRFC2047(), "=?UTF-8?Q?3__Bcc=3A_evil=40x___f=C3=BCr_dich?=");
  one->set("N", "4");  // values may still come after a header value was asked for
  EXPECT_EQ(one->subjectRFC2047(), "=?UTF-8?Q?4_f=C3=BCr_dich?=");
  EXPECT_EQ(one->envFrom(), "");
  one->set("E", "bounce@x");
  EXPECT_EQ(one->envFrom(), "bounce@x");
  one->set("E", "no address");
  EXPECT_EQ(thrownBy([&] { one->envFrom(); }), "template t: Envelope-From is no mail address: \"<no address>\"");
}

TEST(TextModifierTest, MailtoLinks) {
  struct Case {
    std::string link;
    std::string address;
    std::string subject;
  };
  const std::vector<Case> cases = {
      {"mailto:r@x?subject=a@b:M%3D%3D", "r@x", "a@b:M=="},
      {"mailto:r@x?subject=delete_all: a@b:1f:2:s", "r@x", "delete_all: a@b:1f:2:s"},
      {"mailto:r?e@x?subject=a&b@x:%2B", "r?e@x", "a&b@x:+"},
      {"mailto:r@x?subject=a?subject=b", "r@x", "a?subject=b"},
      {"mailto:r@x?subject=%0d%0aX: y%00%ff", "r@x", "  X: y \uFFFD"},
      {"mailto:r@x?subject=100%&%4", "r@x", "100%&%4"},
      {"mailto:r@x", "r@x", ""},
      {"r@x", "r@x", ""},
      {"", "", ""},
  };
  for (const Case& c : cases) {
    const auto one = filled({kHeader, "h", "{{L:x-mailto-to}}|{{L:x-mailto-subject}}"});
    one->set("L", c.link);
    EXPECT_EQ(one->textbody(), c.address + "|" + c.subject) << c.link;
  }
}

class Refuses final : public ctemplate::TemplateModifier {
  void Modify(const char*, std::size_t, const ctemplate::PerExpandData*, ctemplate::ExpandEmitter*,
              const std::string&) const override {
    throw Exception("TestException", 4, "Test", 1, "image refused");
  }
};

TEST(TextModifierTest, ExceptionsPassThroughAndTheTemplateStaysUsable) {
  ASSERT_TRUE(ctemplate::AddModifier("x-refuses", new Refuses));
  const auto one = filled({kHeader, "{{#R}}{{X:x-refuses}}{{/R}}", "{{X}}"});
  one->beginSection("R");
  one->endSection();
  one->set("X", "x");
  EXPECT_EQ(thrownBy([&] { one->htmlbody(); }), "image refused");
  EXPECT_EQ(one->textbody(), "x");
}

class TemplateStoreTest : public TemporaryRoot {
 protected:
  static void writeTemplate(const fs::path& directory, const std::string& text) {
    writeFile(directory / "header.tpl", kHeader);
    writeFile(directory / "body.html.tpl", "<p>h</p>");
    writeFile(directory / "body.txt.tpl", text);
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
};

TEST_F(TemplateStoreTest, Places) {
  writeTemplate(share() / "templates/default", "shipped default");
  writeTemplate(share() / "templates/brief", "shipped brief");
  writeTemplate(templates() / "brief", "own brief");
  writeTemplate(templates() / "example.org/brief", "brief of example.org");
  writeTemplate(root() / "etc/secret", "outside");
  writeFile(templates() / "partial/header.tpl", kHeader);
  struct Case {
    std::string name, domain, want;
  };
  const std::vector<Case> cases = {
      {"default", "", "shipped default"},
      {"brief", "", "own brief"},
      {"brief", "example.org", "brief of example.org"},
      {"default", "example.org", "none"},  // the caller falls back, not the store
      {"brief", "example.com", "none"},
      {"brief", "system", "none"},
      {"missing", "", "none"},
      {"example.org", "", "none"},
      {"partial", "", "not good"},
      {"", "", "none"},
      {".", "", "none"},
      {"..", "", "none"},
      {"../../secret", "", "none"},
      {"secret", "../..", "none"},
      {"secret", "..", "none"},
      {"example.org/brief", "", "none"},
      {"/etc", "", "none"},
      {std::string("brief\0x", 7), "", "none"},
      {std::string(256, 'a'), "", "none"},
      {"brief", std::string(256, 'a'), "none"},
  };
  for (const Case& c : cases) EXPECT_EQ(found(c.name, c.domain), c.want) << c.domain << "/" << c.name;
  EXPECT_EQ(found("brief", "", 37), "none");
}

TEST_F(TemplateStoreTest, NotBeingAbleToLookIsNoAnswer) {
  writeTemplate(share() / "templates/brief", "shipped");
  fs::create_directories(templates() / "brief/body.txt.tpl");
  EXPECT_THAT(found("brief", ""), HasSubstr("brief/body.txt.tpl: is not a regular file"));
  fs::remove_all(templates() / "brief");
  fs::create_directory_symlink("loop", templates() / "loop");
  EXPECT_THAT(found("loop", ""), HasSubstr("exception: template file " + (templates() / "loop").string()));
  writeTemplate(templates() / "large", std::string((1 << 20) + 1, 'x'));
  EXPECT_THAT(found("large", ""), HasSubstr("is larger than 1048576 bytes"));
}

/// Moves a file's times into the past, as those of a template that was not written this very moment.
void settle(const fs::path& directory) {
  for (const auto& file : fs::directory_iterator(directory)) {
    fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(1));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(80));
}

TEST_F(TemplateStoreTest, KeepsTheParsedTemplateUntilAFileChanges) {
  const fs::path directory = templates() / "brief";
  writeTemplate(directory, "one");
  settle(directory);
  const auto first = Host::findReportTemplate("brief", "");
  EXPECT_EQ(Host::findReportTemplate("brief", "").get(), first.get());

  writeFile(directory / "body.txt.tpl", "two");  // as long as before
  EXPECT_EQ(found("brief", ""), "two");
  writeFile(directory / "body.txt.tpl", "six");  // within the same tick, perhaps
  EXPECT_EQ(found("brief", ""), "six");
  settle(directory);
  EXPECT_EQ(found("brief", ""), "six");

  writeFile(directory / "new", "{{#A}}");
  fs::rename(directory / "new", directory / "body.txt.tpl");
  EXPECT_EQ(found("brief", ""), "not good");
  fs::remove_all(directory);
  EXPECT_EQ(found("brief", ""), "none");
  writeTemplate(directory, "back");
  EXPECT_EQ(found("brief", ""), "back");
  EXPECT_EQ(first->error(), "");  // whoever still holds the first one may go on
}

TEST_F(TemplateStoreTest, ThreadsReadWhileFilesChange) {
  const fs::path directory = templates() / "brief";
  writeTemplate(directory, "a");
  std::atomic<bool> stop{false};
  std::atomic<int> wrong{0};
  std::vector<std::thread> readers;
  for (int i = 0; i < 4; ++i) {
    readers.emplace_back([&] {
      while (!stop) {
        const std::string text = found("brief", "");
        if (text != "a" && text != "b") ++wrong;
      }
    });
  }
  for (int i = 0; i < 100; ++i) {
    writeFile(directory / "new", i % 2 ? "a" : "b");
    fs::rename(directory / "new", directory / "body.txt.tpl");
  }
  stop = true;
  for (auto& reader : readers) reader.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace Velmar
