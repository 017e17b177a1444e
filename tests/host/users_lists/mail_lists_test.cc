// Address lists and language preferences as their callers see them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tests/host/mailbox/temp_root.h"
#include "tests/host/users_lists/lists.h"

namespace Velmar {
namespace {

using namespace Testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

TEST(MailLists, NamesComeInTheOrderOfAddition) {
  const TempRoot root;
  for (const char* entry : {"c@x", "a@x", "b@x", "a@x", "a@X"}) Host::addListEntry("u@d", "primaryaddr", entry);
  EXPECT_THAT(namesOf("u@d", "primaryaddr"), ElementsAre("c@x", "a@x", "b@x"));
  removeEntry("u@d", "primaryaddr", "c@x");
  Host::addListEntry("u@d", "primaryaddr", "c@x");
  EXPECT_THAT(namesOf("u@d", "primaryaddr"), ElementsAre("a@x", "b@x", "c@x"));
  removeEntry("u@d", "primaryaddr", "c@x");  // the last one's place must not be given out again
  Host::addListEntry("u@d", "primaryaddr", "d@x");
  EXPECT_THAT(namesOf("u@d", "primaryaddr"), ElementsAre("a@x", "b@x", "d@x"));
}

TEST(MailLists, OwnersAndListsAreKeptApart) {
  const TempRoot root;
  Host::addListEntry("u@d", "primaryaddr", "a@x");
  Host::addListEntry("u@d", "secondaryaddr", "b@x");
  Host::addListEntry("u@d", "primaryaddr", "c@x");
  Host::addListEntry("v@d", "primaryaddr", "a@x");
  removeEntry("u@d", "secondaryaddr", "a@x");
  removeEntry("u@d", "primaryaddr", "none@x");
  removeEntry("none@d", "primaryaddr", "a@x");
  EXPECT_THAT(Host::listEntries("u@d"),
              ElementsAre(Pair("primaryaddr", "a@x"), Pair("primaryaddr", "c@x"), Pair("secondaryaddr", "b@x")));
  removeEntry("u@d", "primaryaddr", "a@x");
  EXPECT_THAT(namesOf("u@d", "primaryaddr"), ElementsAre("c@x"));
  EXPECT_THAT(namesOf("v@d", "primaryaddr"), ElementsAre("a@x"));
  EXPECT_THAT(namesOf("u@d", "Primaryaddr"), IsEmpty());
  EXPECT_THAT(Host::listEntries("none@d"), IsEmpty());
}

TEST(MailLists, OnlyTheCaseOfTheDomainDoesNotMatter) {
  const TempRoot root;
  Host::addListEntry("U@Example.Org", "l", "Someone@Other.Example");
  Host::addListEntry("U@example.org", "l", "\"a@B\"@x");
  const struct {
    const char *owner, *entry;
    bool want;
  } cases[] = {
      {"U@example.org", "Someone@other.example", true},
      {"U@EXAMPLE.ORG", "Someone@OTHER.EXAMPLE", true},
      {"u@example.org", "Someone@other.example", false},
      {"U@example.org", "someone@other.example", false},
      {"U@example.org", "Someone@other.exampl", false},
      {"U@example.org", "Someone@other.example ", false},
      {"U@example.org", "Someone", false},
      {"U@example.org", "%", false},
      {"U@example.org", "", false},
      {"", "Someone@other.example", false},
      {"U@example.org", "\"a@B\"@X", true},
      {"U@example.org", "\"a@b\"@x", false},
  };
  for (const auto& c : cases) EXPECT_EQ(listHolds(c.owner, "l", c.entry), c.want) << c.owner << " " << c.entry;
  EXPECT_THAT(namesOf("U@eXample.org", "l"), ElementsAre("Someone@Other.Example", "\"a@B\"@x")) << "text as given";
  removeEntry("U@EXAMPLE.org", "l", "Someone@other.EXAMPLE");
  EXPECT_FALSE(listHolds("U@Example.Org", "l", "Someone@Other.Example"));
}

TEST(MailLists, AnyBytesAreData) {
  const TempRoot root;
  const std::string entries[] = {"a'; DROP TABLE list_entry; --@x", "\xff\xfe@x", ":o@x", "\"q q\"@x",
                                 std::string(5000, 'x') + "@x"};
  for (const std::string& entry : entries) Host::addListEntry("o'w:n\xff@d", "l", entry);
  EXPECT_THAT(namesOf("o'w:n\xff@d", "l"), ::testing::ElementsAreArray(entries));
  for (const std::string& entry : entries) EXPECT_TRUE(listHolds("o'w:n\xff@d", "l", entry)) << entry;
}

TEST(MailLists, WhatNoListMayHoldIsRefusedByName) {
  const TempRoot root;
  const struct {
    std::string owner, list, entry, want;
  } cases[] = {
      {"", "l", "a@x", "list owner is empty"},
      {"u@d", "", "a@x", "list name is empty"},
      {"u@d", "l", "", "list entry is empty"},
      {"u@d", "l", "a@x,b@x", "list entry holds a comma or control character: \"a@x,b@x\""},
      {"u@d", "l", "a@x\r\nb", "list entry holds a comma or control character"},
      {"u@d", "l", std::string("a\0b@x", 5), "list entry holds a comma or control character"},
      {"u@d\x7f", "l", "a@x", "list owner holds a comma or control character"},
      {"u@d", "l\n", "a@x", "list name holds a comma or control character"},
  };
  for (const auto& c : cases) {
    EXPECT_THAT(errorOf([&] { Host::addListEntry(c.owner, c.list, c.entry); }), HasSubstr(c.want));
  }
  EXPECT_THAT(Host::listEntries("u@d"), IsEmpty());
  mail_list_names names;
  EXPECT_THAT(errorOf([] { mail_list_find(nullptr, "l", "e", 0); }), HasSubstr("list owner is null"));
  EXPECT_THAT(errorOf([] { mail_list_find("o", nullptr, "e", 0); }), HasSubstr("list name is null"));
  EXPECT_THAT(errorOf([] { mail_list_delete_from("o", "l", nullptr, 0); }), HasSubstr("list entry is null"));
  EXPECT_THROW(mail_list_get_names("o", "l", nullptr, 0, 0), Exception);
  EXPECT_THROW(mail_list_get_names("o", nullptr, &names, 0, 0), Exception);
}

TEST(MailLists, FreedNamesAreEmptyAndMayBeFreedAgain) {
  const TempRoot root;
  Host::addListEntry("u@d", "l", "a@x");
  mail_list_names names;
  mail_list_get_names("u@d", "l", &names, 0, 0);
  ASSERT_EQ(names.count, 1);
  for (int i = 0; i < 2; ++i) {
    mail_list_free_names(&names);
    EXPECT_EQ(names.count, 0);
    EXPECT_EQ(names.names, nullptr);
  }
  mail_list_free_names(nullptr);
}

TEST(Preferences, LanguageIsReadAsItWasSet) {
  const TempRoot root;
  const std::string longest(35, 'x');
  const std::string refused[] = {longest + "x", "de DE", "de.UTF-8",          "../de",
                                 "d\xc3\xa9",   "de\n",  std::string(1, '\0')};
  char buffer[64] = "untouched";
  EXPECT_NE(get_user_pref_lang("u@d", buffer, sizeof buffer), 0);
  EXPECT_STREQ(buffer, "untouched");
  for (const std::string& language : {std::string("de"), std::string("pt-BR"), std::string("zh_TW"), longest}) {
    Host::setPreferredLanguage("u@D", language);
    EXPECT_EQ(get_user_pref_lang("u@d", buffer, sizeof buffer), 0);
    EXPECT_EQ(buffer, language);
  }
  for (const std::string& language : refused) {
    EXPECT_THAT(errorOf([&] { Host::setPreferredLanguage("u@d", language); }), HasSubstr("is no language code"));
  }
  EXPECT_EQ(get_user_pref_lang("u@d", buffer, sizeof buffer), 0);
  EXPECT_EQ(buffer, longest) << "a refused language changes nothing";
  EXPECT_NE(get_user_pref_lang("U@d", buffer, sizeof buffer), 0);
  Host::setPreferredLanguage("u@d", "");
  Host::setPreferredLanguage("u@d", "");
  EXPECT_NE(get_user_pref_lang("u@d", buffer, sizeof buffer), 0);
}

TEST(Preferences, LanguageThatDoesNotFitIsAnErrorAndWritesNothing) {
  const TempRoot root;
  Host::setPreferredLanguage("u@d", "pt-BR");
  char buffer[7] = "######";
  for (const int size : {5, 1, 0, -1}) {
    EXPECT_THAT(errorOf([&] { get_user_pref_lang("u@d", buffer, size); }), HasSubstr("\"pt-BR\" of u@d does not fit"));
  }
  EXPECT_STREQ(buffer, "######");
  EXPECT_EQ(get_user_pref_lang("u@d", buffer, 6), 0);
  EXPECT_EQ(std::memcmp(buffer, "pt-BR\0", 7), 0) << "the byte behind the buffer is not touched";
}

}  // namespace
}  // namespace Velmar
