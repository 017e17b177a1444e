// Finished mails as another program reads them, and what the builder refuses.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <functional>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "host/host.h"
#include "host/mail_builder/header_encoding.h"
#include "platform/mail_builder.h"
#include "tests/host/mail_builder/temporary_root.h"

namespace Velmar {
namespace {

using namespace std::string_literals;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

std::string outputOf(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), &::pclose);
  std::string output;
  std::array<char, 4096> block{};
  while (const std::size_t got = std::fread(block.data(), 1, block.size(), pipe.get()))
    output.append(block.data(), got);
  return output;
}

std::string thrownBy(const std::function<void()>& call) {
  try {
    call();
  } catch (const Exception& e) {
    return e.text();
  }
  return "nothing thrown";
}

class MailTest : public TemporaryRoot {
 protected:
  MailTest() {
    Host::setMailSink([this](const Host::QueuedMail& mail) { sent.push_back(mail); });
  }
  ~MailTest() override { Host::setMailSink(nullptr); }

  /// A mail that lacks nothing.
  static void fill(VXMPopulateEmail& mail) {
    mail.header_to("u@example.org");
    mail.header_from("Quarantine <q@example.org>");
    mail.header_subject("Held: 3");
    mail.header_message_id("<20251122190000.abc@example.org>");
    mail.alternative_plain("plain\n", "utf-8");
    mail.alternative_html("<p>html</p>\n", "utf-8");
  }

  /// What Python's email package sees in the mail that was sent last.
  std::string described() {
    writeFile(root() / "mail", sent.back().content);
    return outputOf("python3 " DESCRIBE_MAIL " " + (root() / "mail").string());
  }

  static std::string head(const std::string& subject) {
    return "Date: 1\nFrom: Quarantine <q@example.org>\nTo: u@example.org\nSubject: " + subject +
           "\nMessage-ID: <20251122190000.abc@example.org>\nAuto-Submitted: auto-generated\nMIME-Version: 1.0\n";
  }

  std::vector<Host::QueuedMail> sent;
};

TEST_F(MailTest, WithoutImages) {
  VXMPopulateEmail mail;
  fill(mail);
  EXPECT_EQ(mail.send_queued_not_scanned("u@example.org"), 0);
  EXPECT_EQ(described(), head("Held: 3") +
                             "multipart/alternative\n"
                             "  text/plain utf-8 quoted-printable \"plain\\n\"\n"
                             "  text/html utf-8 quoted-printable \"<p>html</p>\\n\"\n");
}

TEST_F(MailTest, WithImages) {
  writeFile(images() / "icon_release.png", "own icon");
  writeFile(share() / "images/icon_titlelogo.png", "shipped logo\0\r\n"s);
  VXMPopulateEmail mail;
  fill(mail);
  const std::string first =
      mail.add_image_inline("/migadmin/www/admin/images/icon_release.png", ContentType::SUBTYPE_PNG);
  const std::string second =
      mail.add_image_inline("/migadmin/www/admin/images/icon_titlelogo.png", ContentType::SUBTYPE_GIF);
  EXPECT_THAT(first, MatchesRegex("img1\\.[0-9a-f]{16}@velmar"));
  EXPECT_THAT(second, MatchesRegex("img2\\.[0-9a-f]{16}@velmar"));
  mail.send_queued_not_scanned("u@example.org");
  EXPECT_EQ(described(), head("Held: 3") +
                             "multipart/alternative\n"
                             "  text/plain utf-8 quoted-printable \"plain\\n\"\n"
                             "  multipart/related type=text/html\n"
                             "    text/html utf-8 quoted-printable \"<p>html</p>\\n\"\n"
                             "    image/png inline icon_release.png <" +
                             first +
                             "> 5c73129c9c149a9d\n"
                             "    image/gif inline icon_titlelogo.png <" +
                             second + "> 988390e9b8ff9ad3\n");
}

TEST_F(MailTest, BodiesComeThroughAsTheyAre) {
  struct Case {
    const char* why;
    std::string body, want;
  };
  const std::vector<Case> cases = {
      {"empty", "", "\"\""},
      {"no line end", "a", "\"a\""},
      {"umlauts and astral characters", "Grüße 😀\n", "\"Grüße 😀\\n\""},
      {"line ends of all kinds", "a\r\nb\rc\nd\r\r\n", "\"a\\nb\\nc\\nd\\n\\n\""},
      {"controls",
       "a\0b\x01"
       "c\td\x7f\n"s,
       "\"a b c\\td \\n\""},
      {"not UTF-8",
       "a\xFF"
       "b\n",
       "\"a\uFFFDb\\n\""},
      {"blanks at line ends", "a \nb\t\n \n", "\"a \\nb\\t\\n \\n\""},
      {"looks like SMTP and mbox", ".\n.\nFrom x\nQUIT\n", "\".\\n.\\nFrom x\\nQUIT\\n\""},
      {"looks like a boundary", "--=_alternative.20251122190000.abcexample.org--\n",
       "\"--=_alternative.20251122190000.abcexample.org--\\n\""},
      {"looks like an encoding", "=3D=\n=?utf-8?Q?x?=\n", "\"=3D=\\n=?utf-8?Q?x?=\\n\""},
  };
  for (const Case& c : cases) {
    VXMPopulateEmail mail;
    fill(mail);
    mail.alternative_plain(c.body, "utf-8");
    mail.send_queued_not_scanned("u@example.org");
    EXPECT_THAT(described(), HasSubstr("  text/plain utf-8 quoted-printable " + c.want + "\n  text/html")) << c.why;
  }
}

TEST_F(MailTest, LongLinesAndLargeBodies) {
  VXMPopulateEmail mail;
  fill(mail);
  mail.alternative_html(std::string(100000, 'x') + "\n", "utf-8");
  std::string large;
  for (int i = 0; i < 40000; ++i) large += "ü=" + std::to_string(i) + "\n";
  mail.alternative_plain(large, "utf-8");
  mail.send_queued_not_scanned("u@example.org");
  EXPECT_EQ(
      described(),
      head("Held: 3") +
          "multipart/alternative\n"
          "  text/plain utf-8 quoted-printable 73cc3e635e0675247a9c4d2336827eae13bde3d8732c988c7680c1c65888e435\n"
          "  text/html utf-8 quoted-printable bfea3d32f999b72aa62c59ea58089c7d910d03a088fea16033b5fc1c4824e525\n");
}

TEST_F(MailTest, SubjectsComeThroughAsTheyAre) {
  const std::vector<std::string> subjects = {
      "plain",
      "",
      "a  b",
      "Quarantänebericht: 12 zurückgehaltene Nachrichten, von gestern 18:00 Uhr bis heute 18:00 Uhr",
      "隔離レポート: 保留されたメッセージが届いています。内容を確認して、必要なものを解放してください。",
      "=?utf-8?Q?not_encoded?=",
      "ends with ü",
      "😀😀😀😀😀😀😀😀😀😀😀😀😀😀😀😀😀😀😀😀",
      std::string(1500, 'x'),
      "many words " + std::string(30, 'y') +
          " that need a second line and a third one, because there are so many of them " + std::string(70, 'z') +
          " end",
  };
  for (const std::string& subject : subjects) {
    VXMPopulateEmail mail;
    fill(mail);
    mail.header_subject(Host::encodeUnstructured(subject));
    mail.send_queued_not_scanned("u@example.org");
    const std::string seen = described();
    EXPECT_THAT(seen, StartsWith(head(subject) + "multipart/alternative\n  text/plain"));
    EXPECT_THAT(seen, EndsWith("html</p>\\n\"\n"));  // and nothing wrong behind it
  }
}

TEST_F(MailTest, DisplayNamesComeThroughAsTheyAre) {
  const std::vector<std::string> names = {
      "Quarantine",    "Example, Inc. \"mail\" \\",
      "Quarantäne",    "Größe, Inc. <evil@x>",
      "=?utf-8?Q?x?=", "隔離レポートを送るシステムのとても長い名前です、一行には入りません",
  };
  for (const std::string& name : names) {
    VXMPopulateEmail mail;
    fill(mail);
    mail.header_from(Host::encodeMailbox(name, "q@x.org"));
    mail.send_queued_not_scanned("u@example.org");
    const std::string seen = described();
    EXPECT_THAT(seen, StartsWith("Date: 1\nFrom: " + name + " <q@x.org>\nTo: u@example.org\n"));
    EXPECT_THAT(seen, EndsWith("html</p>\\n\"\n"));  // and nothing wrong behind it
  }
}

TEST_F(MailTest, EnvelopeAndTexts) {
  VXMPopulateEmail mail;
  fill(mail);
  mail.sender("bounce@example.org");
  mail.suppress_dsn(true);
  mail.alternative_html("<img src=\"cid:x\">\r\n", "UTF-8");
  mail.send_queued_not_scanned("b@x.org, a@x.org,,b@x.org,\"c,d\"@x.org");
  const Host::QueuedMail& got = sent.back();
  EXPECT_EQ(got.sender, "bounce@example.org");
  EXPECT_TRUE(got.suppressDsn);
  EXPECT_THAT(got.recipients, ::testing::UnorderedElementsAre("a@x.org", "b@x.org", "\"c,d\"@x.org"));
  EXPECT_EQ(got.html, "<img src=\"cid:x\">\n");
  EXPECT_EQ(got.text, "plain\n");
  EXPECT_THAT(got.id, MatchesRegex("[0-9]{14}-[0-9]+-[0-9]+-[0-9a-f]{16}"));
  mail.send_queued_not_scanned("a@x.org");
  EXPECT_NE(sent[0].id, sent[1].id);
}

TEST_F(MailTest, RefusedValuesChangeNothing) {
  using Setter = std::function<void(VXMPopulateEmail&, const std::string&)>;
  const std::vector<Setter> headers = {
      [](auto& m, auto& v) { m.header_to(v); },      [](auto& m, auto& v) { m.header_from(v); },
      [](auto& m, auto& v) { m.header_subject(v); }, [](auto& m, auto& v) { m.header_message_id(v); },
      [](auto& m, auto& v) { m.sender(v); },         [](auto& m, auto& v) { m.send_queued_not_scanned(v); },
  };
  const std::vector<std::string> hostile = {"a@b\r\nBcc: evil@x", "a@b\nBcc: evil@x", "a@b\rBcc: evil@x", "a@b\0"s,
                                            "a@b\x01"};
  VXMPopulateEmail mail;
  fill(mail);
  for (std::size_t i = 0; i < headers.size(); ++i) {
    for (const std::string& value : hostile) {
      EXPECT_THAT(thrownBy([&] { headers[i](mail, value); }), HasSubstr("a@b")) << i << value;
    }
  }
  for (const char* id : {"", "<>", "a b", "<a>b>", "<a@b> <c@d>"}) {
    EXPECT_THAT(thrownBy([&] { mail.header_message_id(id); }), HasSubstr("Message-ID is no identifier"));
  }
  for (const char* sender : {"nobody", "<a@b>", "A <a@b>", "a@b,c@d", " "}) {
    EXPECT_THAT(thrownBy([&] { mail.sender(sender); }), HasSubstr("envelope sender is no mail address"));
  }
  for (const char* recipients : {"", ",", "a@b,nobody", "a@b;c@d", "a@b> NOTIFY=x"}) {
    EXPECT_NE(thrownBy([&] { mail.send_queued_not_scanned(recipients); }), "nothing thrown") << recipients;
  }
  EXPECT_THAT(thrownBy([&] { mail.alternative_plain("x", "koi8-r"); }), HasSubstr("koi8-r"));
  EXPECT_TRUE(sent.empty());
  mail.send_queued_not_scanned("u@example.org");
  EXPECT_THAT(described(), StartsWith(head("Held: 3")));
  EXPECT_EQ(sent.back().sender, "");
}

TEST_F(MailTest, RefusedImagesAttachNothing) {
  const auto add = [](VXMPopulateEmail& mail, const std::string& path, int type) {
    return thrownBy([&] { mail.add_image_inline(path, static_cast<ContentType::SubType>(type)); });
  };
  VXMPopulateEmail mail;
  fill(mail);
  writeFile(root() / "big.png", std::string((1 << 20) + 1, 'x'));
  writeFile(root() / "fits.png", std::string(1 << 20, 'x'));
  std::filesystem::create_directories(root() / "directory.png");
  writeFile(share() / "images/directory.png", "not looked at");
  EXPECT_EQ(add(mail, "/no/such.png", 14), "image /no/such.png cannot be opened: No such file or directory");
  EXPECT_EQ(add(mail, "/directory.png", 14), "image /directory.png cannot be opened: is not a regular file");
  EXPECT_EQ(add(mail, "/big.png", 14), "image /big.png is larger than 1048576 bytes");
  EXPECT_EQ(add(mail, "/fits.png", 0), "unknown image type 0");
  EXPECT_EQ(add(mail, "/fits.png", 99), "unknown image type 99");
  mail.send_queued_not_scanned("u@example.org");
  EXPECT_THAT(described(), ::testing::Not(HasSubstr("image/")));
  EXPECT_EQ(add(mail, "/fits.png", 12), "nothing thrown");
  mail.send_queued_not_scanned("u@example.org");
  EXPECT_THAT(described(), HasSubstr("image/jpeg inline fits.png <img1."));
}

TEST_F(MailTest, IncompleteMailsAreRefused) {
  const std::vector<std::pair<std::string, std::function<void(VXMPopulateEmail&)>>> steps = {
      {"To", [](auto& m) { m.header_to("u@x"); }},
      {"From", [](auto& m) { m.header_from("q@x"); }},
      {"Subject", [](auto& m) { m.header_subject(""); }},
      {"Message-ID", [](auto& m) { m.header_message_id("a@b"); }},
      {"plain-text body", [](auto& m) { m.alternative_plain("", "utf-8"); }},
      {"HTML body", [](auto& m) { m.alternative_html("", "utf-8"); }},
  };
  VXMPopulateEmail mail;
  for (const auto& [what, step] : steps) {
    EXPECT_EQ(thrownBy([&] { mail.send_queued_not_scanned("u@x.org"); }), "mail without " + what);
    step(mail);
  }
  EXPECT_EQ(mail.send_queued_not_scanned("u@x.org"), 0);
}

TEST_F(MailTest, HeaderLineThatCannotBeFolded) {
  VXMPopulateEmail mail;
  fill(mail);
  mail.header_to(std::string(1000, 'x') + "@example.org");
  EXPECT_THAT(thrownBy([&] { mail.send_queued_not_scanned("u@x.org"); }), HasSubstr("To: a line would be longer"));
  EXPECT_TRUE(sent.empty());
}

TEST_F(MailTest, WhatTheSinkThrowsPasses) {
  Host::setMailSink([](const Host::QueuedMail&) { throw Exception("T", 4, "T", 1, "sink is full"); });
  VXMPopulateEmail mail;
  fill(mail);
  EXPECT_EQ(thrownBy([&] { mail.send_queued_not_scanned("u@x.org"); }), "sink is full");
}

TEST(FoldedFieldTest, Lines) {
  const std::string x40(40, 'x');
  struct Case {
    std::string value, want;
  };
  const std::vector<Case> cases = {
      {"", "To: \r\n"},
      {"a b", "To: a b\r\n"},
      {"a b  ", "To: a b\r\n"},
      {x40 + " " + x40, "To: " + x40 + "\r\n " + x40 + "\r\n"},
      {std::string(90, 'x'), "To: " + std::string(90, 'x') + "\r\n"},
      {std::string(90, 'x') + " y", "To: " + std::string(90, 'x') + "\r\n y\r\n"},
      {x40 + "   " + x40, "To: " + x40 + "  \r\n " + x40 + "\r\n"},
  };
  for (const Case& c : cases) EXPECT_EQ(Host::foldedField("To", c.value), c.want) << c.value;
}

TEST(AddressValueTest, ForAToField) {
  EXPECT_EQ(stringToValidEmailAddressRfc822HeaderValue("u@example.org"), "u@example.org");
  EXPECT_EQ(stringToValidEmailAddressRfc822HeaderValue("\"a b\"@xn--bcher-kva.example"),
            "\"a b\"@xn--bcher-kva.example");
  EXPECT_EQ(stringToValidEmailAddressRfc822HeaderValue("\"Example, Inc.\" <u@x>"), "\"Example, Inc.\" <u@x>");
  for (const std::string bad : {"", "nobody", "a@b,c@d", "a@b\r\nBcc: evil@x", "a@b; c@d"}) {
    EXPECT_EQ(thrownBy([&] { stringToValidEmailAddressRfc822HeaderValue(bad); }),
              "not a mail address: \"" + bad + "\"");
  }
}

TEST(IdentifierTest, MessageIdentifiers) {
  std::tm when{};
  when.tm_year = 125;
  when.tm_mon = 10;
  when.tm_mday = 2;
  when.tm_hour = 3;
  struct Case {
    std::string domain, want;
  };
  const std::vector<Case> cases = {
      {"example.org", "example.org"},
      {"bücher.example", "xn--bcher-kva.example"},
      {"", "localhost.invalid"},
      {"a..b", "localhost.invalid"},
      {".a", "localhost.invalid"},
      {"a b", "localhost.invalid"},
      {"a>\r\nBcc: x", "localhost.invalid"},
      {"[127.0.0.1]", "localhost.invalid"},
      {std::string(5000, 'a'), "localhost.invalid"},
  };
  for (const Case& c : cases) {
    const std::string id = LW::createHeaderMessageIdValue(c.domain, when);
    EXPECT_THAT(id, StartsWith("<20251102030000."));
    EXPECT_EQ(id.substr(id.find('@')), "@" + c.want + ">") << c.domain;
  }
  EXPECT_NE(LW::createHeaderMessageIdValue("x", when), LW::createHeaderMessageIdValue("x", when));
}

TEST(IdentifierTest, QueueIdsDifferBetweenThreads) {
  std::tm when{};
  std::array<std::vector<std::string>, 4> ids;
  std::vector<std::thread> threads;
  for (auto& mine : ids) {
    threads.emplace_back([&mine, &when] {
      for (int i = 0; i < 500; ++i) mine.push_back(LW::createQueueId(&when));
    });
  }
  for (auto& thread : threads) thread.join();
  std::set<std::string> all;
  for (const auto& mine : ids) all.insert(mine.begin(), mine.end());
  EXPECT_EQ(all.size(), 2000U);
}

}  // namespace
}  // namespace Velmar
