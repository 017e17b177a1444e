// Which recipients a run accepts.

#include "tools/spamreport/recipients.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/spamreport/commands.h"

namespace {

using testing::HasSubstr;
using Velmar::Tool::chooseDomain;
using Velmar::Tool::mailboxAddress;
using Velmar::Tool::parseRecipients;
using Velmar::Tool::WrongUse;
using Strings = std::vector<std::string>;

/// The text with which `call` refuses, or "accepted".
template <class Call>
std::string refusal(Call call) {
  try {
    call();
  } catch (const WrongUse& e) {
    return e.what();
  }
  return "accepted";
}

TEST(ParseRecipients, TakesMailboxesOfTheDomain) {
  const struct {
    std::string list;
    Strings want;
  } cases[] = {
      {"a@example.org", {"a@example.org"}},
      {"b@example.org,a@example.org", {"b@example.org", "a@example.org"}},
      {" a@example.org\t, b@example.org ,", {"a@example.org", "b@example.org"}},
      {",,a@example.org,,a@example.org", {"a@example.org"}},
      {"a@EXAMPLE.org", {"a@example.org"}},
      {"A@example.org,a@example.org", {"A@example.org", "a@example.org"}},
      {"a~b@example.org", {"a~b@example.org"}},
      {"kim+lists@example.org", {"kim+lists@example.org"}},
      {"gr\xc3\xbc\xc3\x9f@example.org", {"gr\xc3\xbc\xc3\x9f@example.org"}},
      {std::string(64, 'x') + "@example.org", {std::string(64, 'x') + "@example.org"}},
  };
  for (const auto& c : cases) EXPECT_EQ(parseRecipients("example.org", c.list), c.want) << c.list;
}

TEST(ParseRecipients, RefusesTheWholeListAndNamesTheCulprit) {
  const struct {
    std::string list;
    std::string culprit;
    std::string reason;
  } cases[] = {
      {"", "", "names no recipient"},
      {" , ,", " , ,", "names no recipient"},
      {"a@example.org,b", "b", "not a mail address"},
      {"a@example.org b@example.org", "a@example.org b@example.org", "not a mail address"},
      {"a@example.org;b@example.org", "a@example.org;b@example.org", "not a mail address"},
      {"../x@example.org", "../x@example.org", ""},
      {"a/b@example.org", "a/b@example.org", "\"/\""},
      {"a@example.net", "a@example.net", "not of the domain example.org"},
      {"a@sub.example.org", "a@sub.example.org", "not of the domain example.org"},
      {"Anna <a@example.org>", "Anna <a@example.org>", "write a@example.org"},
      {"\"a@b\"@example.org", "\"a@b\"@example.org", "two \"@\""},
      {"a\n@example.org", "a\n@example.org", ""},
  };
  for (const auto& c : cases) {
    const std::string text = refusal([&] { parseRecipients("example.org", c.list); });
    EXPECT_THAT(text, HasSubstr("\"" + c.culprit + "\": ")) << c.list;
    EXPECT_THAT(text, HasSubstr(c.reason)) << c.list;
  }
}

TEST(ParseRecipients, RefusesWhatTheLibraryWouldCut) {
  const auto ofLength = [](std::size_t length, const std::string& domain) {
    return std::string(length - domain.size() - 1, 'x') + "@" + domain;
  };
  EXPECT_EQ(parseRecipients("example.org", ofLength(127, "example.org")).size(), 1U);
  EXPECT_THAT(refusal([&] { parseRecipients("example.org", ofLength(128, "example.org")); }),
              HasSubstr("longer than 127 bytes"));
  // "/home/" DOMAIN "/" LOCAL "~" DOMAIN is 8 + local + 2 * domain bytes long.
  const std::string domain = std::string(60, 'd') + "." + std::string(57, 'e') + ".org";  // 122
  EXPECT_EQ(parseRecipients(domain, "xx@" + domain).size(), 1U);
  EXPECT_THAT(refusal([&] { parseRecipients(domain, "xxx@" + domain); }), HasSubstr("more than 254 bytes"));
}

TEST(ChooseDomain, KnowsConfiguredOnesByAnySpelling) {
  EXPECT_EQ(chooseDomain("EXAMPLE.Org", {"example.net", "example.org"}), "example.org");
  EXPECT_EQ(refusal([] {
              chooseDomain("example.com", {"example.net", "example.org"});
            }),
            "\"example.com\": not a configured domain (example.net, example.org)");
  EXPECT_EQ(refusal([] { chooseDomain("", {}); }), "\"\": no domain is configured");
}

TEST(MailboxAddress, IsTakenAsWritten) {
  EXPECT_EQ(mailboxAddress("Anna.B@Example.org"), "Anna.B@Example.org");
  for (const char* text :
       {"", "anna", "@example.org", "anna@", "anna@example.org (home)", " anna@example.org", "\"a,b\"@example.org"}) {
    EXPECT_NE(refusal([&] { mailboxAddress(text); }), "accepted") << text;
  }
}

}  // namespace
