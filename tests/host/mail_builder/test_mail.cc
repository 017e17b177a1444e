// Finished mails as another program reads them, and what the builder refuses.

#include <gmock/gmock.h>

#include <cstdlib>
#include <functional>
#include <vector>

#include "host/host.h"
#include "host/mail_builder/header_encoding.h"
#include "host/mail_builder/quoted_printable.h"
#include "platform/mail_builder.h"
#include "tests/support/temp_root.h"
#include "tests/support/thrown_by.h"

namespace Velmar {
namespace {

using namespace std::string_literals;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;
using Testing::thrownBy;

class MailTest : public ::testing::Test {
 protected:
  MailTest() {
    Host::setMailSink([this](const Host::QueuedMail& one) { sent.push_back(one); });
    mail.header_to(stringToValidEmailAddressRfc822HeaderValue("u@example.org"));
    mail.header_from("Quarantine <q@example.org>");
    mail.header_subject("Held: 3");
    mail.header_message_id("<20251122190000.abc@example.org>");
    mail.alternative_plain("plain\n", "utf-8");
    mail.alternative_html("<p>html</p>\n", "utf-8");
  }
  ~MailTest() override { Host::setMailSink(nullptr); }

  /// What Python's email package sees in the mail once it is sent.
  std::string sentAndDescribed() {
    mail.send_queued_not_scanned("u@example.org");
    root.write("mail", sent.back().content);
    const std::string command = "python3 " DESCRIBE_MAIL " " + root / "mail" + " > " + root / "described";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return root.read("described");
  }

  static std::string head(const std::string& from, const std::string& subject) {
    return "Date: 1\nFrom: " + from + "\nTo: u@example.org\nSubject: " + subject +
           "\nMessage-ID: <20251122190000.abc@example.org>\nAuto-Submitted: auto-generated\nMIME-Version: 1.0\n";
  }

  const std::string soundHead = head("Quarantine <q@example.org>", "Held: 3");
  // The last line when nothing is wrong.
  const std::string soundHtml = "\n  text/html utf-8 quoted-printable \"<p>html</p>\\n\"\n";
  const Testing::TempRoot root;
  const Testing::ScopedVariable share{"VELMAR_SHARE", root / "share"};
  std::vector<Host::QueuedMail> sent;
  VXMPopulateEmail mail;  // lacks nothing
};

TEST_F(MailTest, WithImages) {
  root.write("migadmin/www/admin/images/icon_release.png", "own icon");
  root.write("share/images/icon_titlelogo.png", "shipped logo\0\r\n"s);
  const std::string directory = "/migadmin/www/admin/images/";
  const std::string first = mail.add_image_inline(directory + "icon_release.png", ContentType::SUBTYPE_PNG);
  const std::string second = mail.add_image_inline(directory + "icon_titlelogo.png", ContentType::SUBTYPE_GIF);
  EXPECT_THAT(first, MatchesRegex("img1\\.[0-9a-f]{16}@velmar"));
  EXPECT_EQ(sentAndDescribed(),
            soundHead +
                "multipart/alternative\n  text/plain utf-8 quoted-printable \"plain\\n\"\n"
                "  multipart/related type=text/html\n    text/html utf-8 quoted-printable \"<p>html</p>\\n\"\n"
                "    image/png inline icon_release.png <" +
                first + "> 5c73129c9c149a9d\n    image/gif inline icon_titlelogo.png <" + second +
                "> 988390e9b8ff9ad3\n");
}

TEST_F(MailTest, BodiesComeThroughAsTheyAre) {
  std::string large = std::string(3000, 'x') + "\n";
  for (int i = 0; i < 40000; ++i) large += "ü=" + std::to_string(i) + "\n";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "\"\""},
      {"Grüße 😀", "\"Grüße 😀\""},
      {"a\r\nb\rc\nd\r\r\n", "\"a\\nb\\nc\\nd\\n\\n\""},
      {"a\0b\x01z\ty\x7f\xFFz\n"s, "\"a b z\\ty \uFFFDz\\n\""},
      {"a \nb\t\n \n", "\"a \\nb\\t\\n \\n\""},
      {".\n.\nFrom x\nQUIT\n", "\".\\n.\\nFrom x\\nQUIT\\n\""},
      {"--=_alternative.20251122190000.abcexample.org--\n", "\"--=_alternative.20251122190000.abcexample.org--\\n\""},
      {"=3D=\n=?utf-8?Q?x?=\n", "\"=3D=\\n=?utf-8?Q?x?=\\n\""},
      {large, "c611b4a885b164ae02f2cf54eb55ceb76b2cafa04e1347defcc5dbe4eb7bce5d"},
  };
  for (const auto& [body, want] : cases) {
    mail.alternative_plain(body, "utf-8");
    EXPECT_THAT(sentAndDescribed(), EndsWith("\n  text/plain utf-8 quoted-printable " + want + soundHtml)) << want;
  }
}

TEST_F(MailTest, SubjectsAndNamesComeThroughAsTheyAre) {
  const auto x = [](std::size_t count) { return std::string(count, 'x'); };
  const auto word = [](const std::string& text) { return "=?UTF-8?" + text + "?="; };
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"Example,  Inc. \"mail\" \\", "Example,  Inc. \"mail\" \\"},
      {"<azAZ09 !*+-/ é", word("Q?=3CazAZ09_!*+-/_=C3=A9")},
      {"abcdefé", word("Q?abcdef=C3=A9")},  // as long as in base64
      {"abcdefgé", word("B?YWJjZGVmZ8Op")},
      {"xé" + x(45) + "y", word("Q?x=C3=A9" + x(45)) + " " + word("Q?y")},
      {"日日日日日日日日日日日日日日",
       word("B?5pel5pel5pel5pel5pel5pel5pel5pel5pel5pel5pel5pel5pel") + " " + word("B?5pel")},
      {"=?utf-8?Q?not?=", word("B?PT91dGYtOD9RP25vdD89")},
      {x(201), word("Q?" + x(52)) + " " + word("Q?" + x(52)) + " " + word("Q?" + x(52)) + " " + word("Q?" + x(45))},
  };
  for (const auto& [text, want] : cases) {
    EXPECT_EQ(Host::encodeUnstructured(text), want);
    mail.header_subject(want);
    mail.header_from(Host::encodeMailbox(text, EmailAddress::rfc5322Parse("q@x.org", true)));
    EXPECT_THAT(sentAndDescribed(), AllOf(StartsWith(head(text + " <q@x.org>", text)), EndsWith(soundHtml)));
  }
  EXPECT_EQ(Host::encodeUnstructured("a\x7f"), word("Q?a=7F"));
  EXPECT_EQ(Host::encodeUnstructured(x(200) + " " + x(200)), x(200) + " " + x(200));
  const std::string first = x(36) + " " + x(35), second = " b " + x(73);
  EXPECT_EQ(Host::foldedField("A", first + second), "A: " + first + "\r\n" + second + "\r\n");
}

TEST_F(MailTest, Envelope) {
  mail.sender("bounce@example.org");
  mail.suppress_dsn(true);
  mail.send_queued_not_scanned("b@x.org, a@x.org,,b@x.org,\"c,d\"@x.org");
  const Host::QueuedMail& got = sent.back();
  EXPECT_EQ(got.sender, "bounce@example.org");
  EXPECT_TRUE(got.suppressDsn);
  EXPECT_THAT(got.recipients, ::testing::UnorderedElementsAre("a@x.org", "b@x.org", "\"c,d\"@x.org"));
  EXPECT_THAT(got.id, MatchesRegex("[0-9]{14}-[0-9]+-[0-9]+-[0-9a-f]{16}"));
}

TEST_F(MailTest, RefusedValuesChangeNothing) {
  struct Case {
    std::function<void(VXMPopulateEmail&, const std::string&)> set;
    std::vector<std::string> values;
    const char* want;
  };
  const std::vector<std::string> hostile = {"a@b\r\nBcc: evil@x", "a@b\nBcc: evil@x", "a@b\rX: y", "a@b\0"s, "a@b\x01"};
  const std::vector<Case> cases = {
      {&VXMPopulateEmail::header_to, hostile, "a@b"},
      {&VXMPopulateEmail::header_from, hostile, "a@b"},
      {&VXMPopulateEmail::header_subject, hostile, "a@b"},
      {&VXMPopulateEmail::header_message_id, hostile, "a@b"},
      {&VXMPopulateEmail::header_message_id, {"", "<>", "a b", "<a>b>", "<a@b> <c@d>"}, "Message-ID is no identifier"},
      {&VXMPopulateEmail::sender, hostile, "a@b"},
      {&VXMPopulateEmail::sender, {"nobody", "<a@b>", "a@b,c@d", " "}, "envelope sender is no mail address"},
      {&VXMPopulateEmail::send_queued_not_scanned, {"a@b,nobody", "a@b;c@d", "a@b> N=x", "a@b\r\nX: y"}, "address"},
      {&VXMPopulateEmail::send_queued_not_scanned, {"", ","}, "no recipients"},
      {[](auto& m, auto& charset) { m.alternative_plain("x", charset); }, {"koi8-r"}, "koi8-r"},
      {[](auto&, auto& to) { stringToValidEmailAddressRfc822HeaderValue(to); },
       {"", "nobody", "a@b,c@d", "a@b\r\nBcc: c@d"},
       "not a mail address: \""},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    for (const std::string& value : cases[i].values) {
      EXPECT_THAT(thrownBy([&] { cases[i].set(mail, value); }), HasSubstr(cases[i].want)) << i << ": " << value;
    }
  }
  EXPECT_TRUE(sent.empty());
  EXPECT_THAT(sentAndDescribed(), StartsWith(soundHead));
  EXPECT_EQ(sent.back().sender, "");
}

TEST_F(MailTest, RefusedImagesAttachNothing) {
  const auto add = [this](const std::string& path, int type) {
    return thrownBy([&] { mail.add_image_inline(path, static_cast<ContentType::SubType>(type)); });
  };
  root.write("big.png", std::string((1 << 20) + 1, 'x'));
  root.write("fits.png", std::string(1 << 20, 'x'));
  root.makeDirectory("directory.png");
  root.write("share/images/directory.png", "not looked at");
  EXPECT_EQ(add("/no/such.png", 14), "image /no/such.png cannot be opened: No such file or directory");
  EXPECT_EQ(add("/directory.png", 14), "image /directory.png cannot be opened: is not a regular file");
  EXPECT_EQ(add("/big.png", 14), "image /big.png is larger than 1048576 bytes");
  EXPECT_EQ(add("/a\".png", 14), "image \"/a\".png\" has no name that a mail can carry");
  EXPECT_EQ(add("/fits.png", 99), "unknown image type 99");
  EXPECT_THAT(sentAndDescribed(), ::testing::Not(HasSubstr("image/")));
  EXPECT_EQ(add("/fits.png", 12), "nothing thrown");
  EXPECT_THAT(sentAndDescribed(), HasSubstr("image/jpeg inline fits.png <img1."));
}

TEST_F(MailTest, IncompleteMailsAreRefused) {
  const std::vector<std::pair<std::string, std::function<void(VXMPopulateEmail&)>>> steps = {
      {"mail without To", [](auto& m) { m.header_to(std::string(1000, 'x') + "@x"); }},
      {"mail without From", [](auto& m) { m.header_from("q@x"); }},
      {"mail without Subject", [](auto& m) { m.header_subject(""); }},
      {"mail without Message-ID", [](auto& m) { m.header_message_id("a@b"); }},
      {"mail without plain-text body", [](auto& m) { m.alternative_plain("", "utf-8"); }},
      {"mail without HTML body", [](auto& m) { m.alternative_html("", "utf-8"); }},
      {"To: a line would be longer than 998 bytes", [](auto& m) { m.header_to("u@x"); }},
  };
  VXMPopulateEmail bare;
  for (const auto& [want, step] : steps) {
    EXPECT_EQ(thrownBy([&] { bare.send_queued_not_scanned("u@x.org"); }), want);
    EXPECT_TRUE(sent.empty());
    step(bare);
  }
  EXPECT_EQ(bare.send_queued_not_scanned("u@x.org"), 0);
}

TEST(IdentifierTest, MessageIdentifiers) {
  const std::vector<std::pair<std::string, std::string>> cases = {{"bücher.example", "xn--bcher-kva.example"},
                                                                  {"", "localhost.invalid"},
                                                                  {"a>\r\nBcc: x", "localhost.invalid"},
                                                                  {std::string(5000, 'a'), "localhost.invalid"}};
  for (const auto& [domain, want] : cases) {
    const std::string id = LW::createHeaderMessageIdValue(domain, std::tm{});
    EXPECT_EQ(id.substr(id.find('@')), "@" + want + ">") << domain;
    EXPECT_NE(LW::createHeaderMessageIdValue(domain, std::tm{}), id);
  }
}

TEST(QuotedPrintable, LinesAreAsTheyTravel) {
  const auto x = [](std::size_t count) { return std::string(count, 'x'); };
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"\n\na", "\r\n\r\na"},
      {"a \nb\t\n ", "a=20\r\nb=09\r\n=20"},  // a blank at the end would be lost on the way
      {" ~!\t<\r\n", " ~!\t<=0D\r\n"},
      {"\ta", "\ta"},
      {"\t", "=09"},
      {x(70) + "\n" + x(10), x(70) + "\r\n" + x(10)},
      {x(74) + "yz", x(74) + "y=\r\nz"},
      {"=\x7f\x1f\xff", "=3D=7F=1F=FF"},
      {x(75), x(75)},
      {x(76), x(75) + "=\r\nx"},
      {x(151), x(75) + "=\r\n" + x(75) + "=\r\nx"},
      {x(72) + "=", x(72) + "=3D"},
      {x(73) + "=" + x(73), x(73) + "=\r\n=3D" + x(72) + "=\r\nx"},
      {x(72) + "==", x(72) + "=3D=\r\n=3D"},
      {x(73) + " ", x(73) + "=\r\n=20"},
  };
  for (const auto& [text, want] : cases) {
    std::string got;
    Host::appendQuotedPrintable(text, got);
    EXPECT_EQ(got, want) << text;
  }
}

}  // namespace
}  // namespace Velmar
