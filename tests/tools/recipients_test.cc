// Which recipients a run accepts.

#include "tools/spamreport/recipients.h"

#include <gmock/gmock.h>

#include "tools/spamreport/commands.h"

namespace {

using Velmar::Tool::Mailbox;
using Velmar::Tool::parseRecipients;

const std::string kLongDomain = std::string(60, 'd') + "." + std::string(57, 'e') + ".org";  // 122 bytes

TEST(ParseRecipients, TakesMailboxesOfTheDomains) {
  const std::string longest = std::string(115, 'x') + "@example.org";
  const std::pair<std::string, std::vector<Mailbox>> cases[] = {
      {" b@example.org\t, a@EXAMPLE.org ,,b@example.org,",
       {{"example.org", "b@example.org"}, {"example.org", "a@example.org"}}},
      {"A~b+l@example.org,a~b+l@example.org",
       {{"example.org", "A~b+l@example.org"}, {"example.org", "a~b+l@example.org"}}},
      {"a@example.org,a@Example.NET", {{"example.org", "a@example.org"}, {"example.net", "a@example.net"}}},
      {longest, {{"example.org", longest}}},
  };
  for (const auto& [list, want] : cases) EXPECT_EQ(parseRecipients({"example.org", "example.net"}, list), want) << list;
  EXPECT_EQ(parseRecipients({kLongDomain}, "xx@" + kLongDomain).size(), 1U);
}

TEST(ParseRecipients, RefusesTheWholeListAndNamesTheCulprit) {
  const struct {
    std::string domain, list, culprit, reason;
  } cases[] = {
      {"example.org", " , ,", " , ,", "names no recipient"},
      {"example.org", "a@example.org,b", "b", "not a mail address"},
      {"example.org", "a/b@example.org", "a/b@example.org", "\"/\""},
      {"example.org", "a@sub.example.org", "a@sub.example.org", "not of the domain example.org or example.net"},
      {"example.org", "Anna <a@example.org>", "Anna <a@example.org>", "write a@example.org"},
      {"example.org", "\"a@b\"@example.org", "\"a@b\"@example.org", "two \"@\""},
      {"example.org", std::string(116, 'x') + "@example.org", "@example.org", "longer than 127 bytes"},
      {kLongDomain, "xxx@" + kLongDomain, "xxx@" + kLongDomain, "more than 254 bytes"},
  };
  for (const auto& c : cases) {
    try {
      parseRecipients({c.domain, "example.net"}, c.list);
      ADD_FAILURE() << "accepted " << c.list;
    } catch (const Velmar::Tool::WrongUse& e) {
      EXPECT_THAT(e.what(), testing::HasSubstr(c.culprit + "\": "));
      EXPECT_THAT(e.what(), testing::HasSubstr(c.reason));
    }
  }
}

}  // namespace
