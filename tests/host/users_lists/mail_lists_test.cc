// Address lists and language preferences as their callers see them.

#include <gmock/gmock.h>

#include "tests/host/users_lists/lists.h"
#include "tests/host/users_lists/stores.h"

namespace Velmar {
namespace {

using namespace Testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class MailLists : public OnEachStore {};
class Preferences : public OnEachStore {};
FOR_EACH_STORE(MailLists);
FOR_EACH_STORE(Preferences);

TEST_P(MailLists, NamesOfAnyBytesComeInTheOrderOfAddition) {
  const std::string owner = "o'w:n\xff@d", sql = "a'; DROP TABLE list_entry; --@x", bytes = "\xff\xfe@x";
  const std::string longest = std::string(5000, 'x') + "@x";
  for (const std::string& entry : {longest, sql, bytes, sql}) Host::addListEntry(owner, "l", entry);
  EXPECT_THAT(namesOf(owner, "l"), ElementsAre(longest, sql, bytes));
  for (int i = 0; i < 2; ++i) {
    removeEntry(owner, "l", longest);
    Host::addListEntry(owner, "l", i == 0 ? longest : ":o@x");  // the last one's place must not be given out again
  }
  EXPECT_THAT(namesOf(owner, "l"), ElementsAre(sql, bytes, ":o@x"));
}

TEST_P(MailLists, OwnersAndListsAreKeptApart) {
  Host::addListEntry("u@d", "l", "a@x");
  Host::addListEntry("u@d", "k", "a@x");
  Host::addListEntry("v@d", "l", "a@x");
  removeEntry("u@d", "l", "a@x");
  EXPECT_THAT(Host::listEntries("u@d"), ElementsAre(::testing::Pair("k", "a@x")));
  EXPECT_THAT(namesOf("v@d", "l"), ElementsAre("a@x"));
}

TEST_P(MailLists, OnlyTheCaseOfTheDomainDoesNotMatter) {
  Host::addListEntry("U@Example.Org", "l", "\"a@B\"@Other.Example");
  EXPECT_TRUE(listHolds("U@EXAMPLE.ORG", "l", "\"a@B\"@OTHER.EXAMPLE"));
  EXPECT_FALSE(listHolds("u@example.org", "l", "\"a@B\"@other.example"));
  EXPECT_FALSE(listHolds("U@example.org", "L", "\"a@B\"@other.example"));
  for (const char* other : {"\"a@b\"@other.example", "\"a@B\"@other.exampl", "%"}) {
    EXPECT_FALSE(listHolds("U@example.org", "l", other)) << other;
  }
  EXPECT_THAT(namesOf("U@eXample.org", "l"), ElementsAre("\"a@B\"@Other.Example")) << "text as given";
  removeEntry("U@EXAMPLE.org", "l", "\"a@B\"@other.EXAMPLE");
  EXPECT_FALSE(listHolds("U@Example.Org", "l", "\"a@B\"@Other.Example"));
}

TEST_P(MailLists, WhatNoListMayHoldIsRefusedByName) {
  const struct {
    std::string owner, list, entry, want;
  } cases[] = {
      {"", "l", "a@x", "list owner is empty"},
      {"u@d\x7f", "l", "a@x", "list owner holds a comma or control character"},
      {"u@d", "l", "a@x,b@x", "list entry holds a comma or control character: \"a@x,b@x\""},
      {"u@d", "l", std::string("a\0b@x", 5), "list entry holds a comma or control character"},
  };
  for (const auto& c : cases) {
    EXPECT_THAT(thrownBy([&] { Host::addListEntry(c.owner, c.list, c.entry); }), HasSubstr(c.want));
  }
  EXPECT_THAT(thrownBy([] { mail_list_find(nullptr, "l", "e", 0); }), HasSubstr("list owner is null"));
  EXPECT_THROW(mail_list_get_names("o", "l", nullptr, 0, 0), Exception);
}

TEST_P(Preferences, LanguageIsReadAsItWasSet) {
  char buffer[36] = "untouched";
  root.write("etc/velmar/host.toml",
             "global.host_name = \"h.d\"\nantispam = {release_account = \"r\", delete_account = \"d\"}\n");
  EXPECT_NE(get_user_pref_lang("u@d", buffer, sizeof buffer), 0);
  EXPECT_STREQ(buffer, "untouched");
  const std::string longest(35, 'x');
  Host::setPreferredLanguage("u@d", "zh_TW");
  Host::setPreferredLanguage("u@D", longest);
  for (const std::string& refused : {longest + "x", std::string("../de"), std::string("de\n"), std::string(1, '\0')}) {
    EXPECT_THAT(thrownBy([&] { Host::setPreferredLanguage("u@d", refused); }), HasSubstr("is no language code"));
  }
  EXPECT_EQ(get_user_pref_lang("u@d", buffer, sizeof buffer), 0);
  EXPECT_EQ(buffer, longest) << "a refused language changes nothing";
  EXPECT_NE(get_user_pref_lang("U@d", buffer, sizeof buffer), 0);
  Host::setPreferredLanguage("u@d", "pt-BR");
  for (const int size : {5, 0, -1}) {
    EXPECT_THAT(thrownBy([&] { get_user_pref_lang("u@d", buffer, size); }), HasSubstr("\"pt-BR\" of u@d does not fit"));
  }
  EXPECT_EQ(buffer, longest) << "what does not fit is not written";
  EXPECT_EQ(get_user_pref_lang("u@d", buffer, 6), 0);
}

}  // namespace
}  // namespace Velmar
