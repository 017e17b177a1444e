// The tables of the example host.

#include "tools/spamreport/demo_index.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using Velmar::Tool::DemoMessage;
using Velmar::Tool::maildirName;
using Velmar::Tool::parseDemoIndex;
using Velmar::Tool::parseTable;
using Velmar::Tool::quarantineDirectory;

TEST(ParseTable, LeavesOutRemarksAndEmptyLines) {
  const auto rows = parseTable("# remark\n\na\tb c\n\t\nlast\t#", "t", 2);
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(rows[0].line, 3);
  EXPECT_EQ(rows[0].fields, (std::vector<std::string>{"a", "b c"}));
  EXPECT_EQ(rows[1].fields, (std::vector<std::string>{"", ""}));
  EXPECT_EQ(rows[2].line, 5);
  EXPECT_EQ(rows[2].fields, (std::vector<std::string>{"last", "#"}));
  EXPECT_TRUE(parseTable("", "t", 2).empty());
}

TEST(ParseDemoIndex, ReadsMessages) {
  const auto messages = parseDemoIndex("a@d\t0\t-\tnew\tm.eml\na@b@d\t86400\tST\tcur\tm.eml\n", "index.tsv");
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_EQ(messages[0].mailbox, "a@d");
  EXPECT_EQ(messages[0].flags, "");
  EXPECT_EQ(messages[1].age, 86400);
  EXPECT_EQ(messages[1].flags, "ST");
  EXPECT_EQ(messages[1].folder, "cur");
}

TEST(ParseDemoIndex, RefusesWhatMustNotBecomeAPath) {
  const struct {
    const char* row;
    const char* want;
  } cases[] = {
      {"a@d\t1\t-\tnew", "index.tsv:1: 4 fields instead of 5"},
      {"a@d\t1\t-\tnew\tm\tx", "index.tsv:1: 6 fields instead of 5"},
      {"#\n\nad\t1\t-\tnew\tm", "index.tsv:3: mailbox \"ad\" is no address"},
      {"@d\t1\t-\tnew\tm", "index.tsv:1: mailbox \"@d\" is no address"},
      {"a@..\t1\t-\tnew\tm", "index.tsv:1: mailbox \"a@..\" is no address"},
      {"a/b@d\t1\t-\tnew\tm", "index.tsv:1: mailbox \"a/b@d\" is no address"},
      {"a@d\t-1\t-\tnew\tm", "index.tsv:1: age \"-1\" is no number of seconds"},
      {"a@d\t\t-\tnew\tm", "index.tsv:1: age \"\" is no number of seconds"},
      {"a@d\t99999999999\t-\tnew\tm", "index.tsv:1: age \"99999999999\" is no number of seconds"},
      {"a@d\t1\tTS\tcur\tm", "index.tsv:1: flags \"TS\" are not letters in ASCII order"},
      {"a@d\t1\tSS\tcur\tm", "index.tsv:1: flags \"SS\" are not letters in ASCII order"},
      {"a@d\t1\t/\tcur\tm", "index.tsv:1: flags \"/\" are not letters in ASCII order"},
      {"a@d\t1\tS\tnew\tm", "index.tsv:1: a message in new has no flags"},
      {"a@d\t1\t-\ttmp\tm", "index.tsv:1: \"tmp\" is neither new nor cur"},
      {"a@d\t1\t-\tnew\t../m", "index.tsv:1: message \"../m\" is no file name"},
      {"a@d\t1\t-\tnew\t", "index.tsv:1: message \"\" is no file name"},
  };
  for (const auto& c : cases) {
    try {
      parseDemoIndex(c.row, "index.tsv");
      ADD_FAILURE() << "accepted " << c.row;
    } catch (const std::invalid_argument& e) {
      EXPECT_STREQ(e.what(), c.want);
    }
  }
}

TEST(MaildirName, CarriesTimeAndFlags) {
  EXPECT_EQ(maildirName({"a@d", 100, "", "new", "m"}, 1000, 7), "900.M7P1.demo");
  EXPECT_EQ(maildirName({"a@d", 100, "", "cur", "m"}, 1000, 7), "900.M7P1.demo:2,");
  EXPECT_EQ(maildirName({"a@d", 0, "PST", "cur", "m"}, 1000, 7), "1000.M7P1.demo:2,PST");
}

TEST(QuarantineDirectory, SplitsAtTheLastAt) { EXPECT_EQ(quarantineDirectory("a@b@d"), "home/d/a@b~d/quarantine"); }

}  // namespace
