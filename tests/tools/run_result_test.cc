// What a run writes: lines, JSON, progress.

#include "tools/spamreport/run_result.h"

#include <gtest/gtest.h>

#include "tools/spamreport/json.h"
#include "tools/spamreport/progress.h"
#include "tools/spamreport/queue_text.h"

namespace {

using namespace Velmar::Tool;

const std::vector<RunResult> kResults{
    {{{"d", "a@d"}, 86400, 1795334400}, {OutcomeKind::kSent, "1 message to a@d"}},
    {{{"d", "b@d"}, 0, 0}, {OutcomeKind::kNoMailbox, "there is no such mailbox"}},
    {{{"e", "*@e"}, 0, 0}, {OutcomeKind::kFailed, "cannot list \x1b \"/home/e\""}},
};

TEST(RunResult, IsWrittenForPeople) {
  const std::string failures =
      "NO MAILBOX  b@d  there is no such mailbox\nFAILED      *@e  cannot list \\x1b \"/home/e\"\n";
  const std::string summary = "3 mailboxes: 1 sent, 1 nonexistent, 1 failed\n";
  EXPECT_EQ(resultTable(kResults, true), failures + summary);
  EXPECT_EQ(resultTable(kResults, false), "sent        a@d  1 message to a@d\n" + failures + summary);
  EXPECT_FALSE(anyFailure({kResults[0], ofWholeDomain("f", noDirectory())}));
  EXPECT_TRUE(anyFailure({kResults[0], kResults[1]}));
}

TEST(RunResult, IsWrittenForPrograms) {
  EXPECT_EQ(resultJson(kResults, std::nullopt), R"({"mailboxes": [
{"address": "a@d", "domain": "d", "period": 86400, "until": 1795334400, "outcome": "sent", "detail": "1 message to a@d"},
{"address": "b@d", "domain": "d", "period": null, "until": null, "outcome": "no_mailbox", "detail": "there is no such mailbox"},
{"address": "*@e", "domain": "e", "period": null, "until": null, "outcome": "failed", "detail": "cannot list \u001b \"/home/e\""}],
"counts": {"sent": 1, "nothing_held": 0, "disabled": 0, "no_recipients": 0, "deleted_user": 0, "no_mailbox": 1, "no_domain": 0, "failed": 1},
"queue": null}
)");
}

TEST(RunResult, CountsWhatBecameOfTheQueue) {
  Velmar::Host::FlushResult queue;
  queue.handedOn = 5;
  queue.held = 2;
  EXPECT_EQ(resultJson({}, queue).substr(resultJson({}, queue).find("\"queue\"")),
            "\"queue\": {\"handed_on\": 5, \"delayed\": 0, \"failed\": 0, \"unreadable\": 0, \"not_due\": 0, \"held\": "
            "2}}\n");
  EXPECT_EQ(flushSummary(queue), "5 handed on, 2 held back");
}

TEST(JsonText, IsValidWhateverTheBytes) {
  const std::string bad = "\xef\xbf\xbd";
  const std::pair<std::string, std::string> cases[] = {
      {"a\"b\\c/\n\t", "a\\\"b\\\\c/\\n\\u0009"},
      {std::string("\0\x7f\xc2\x85\xe2\x80\xa8\xe2\x80\xae", 10), "\\u0000\\u007f\\u0085\\u2028\\u202e"},
      {"gr\xc3\xbc\xc3\x9f \xf0\x9f\x98\x80 \xf4\x8f\xbf\xbf", "gr\xc3\xbc\xc3\x9f \xf0\x9f\x98\x80 \xf4\x8f\xbf\xbf"},
      {"\xc3", bad},                                          // cut
      {"\xc3\"", bad + "\\\""},                               // does not swallow the quote
      {"\xc0\xaf\xe0\x80\xaf", bad + bad + bad + bad + bad},  // longer than needed
      {"\xed\xa0\x80", bad + bad + bad},                      // half of a pair
      {"\xf4\x90\x80\x80", bad + bad + bad + bad},            // past the last character
      {"\x80\xff", bad + bad},
  };
  for (const auto& [bytes, want] : cases) EXPECT_EQ(jsonText(bytes), "\"" + want + "\"") << bytes;
}

TEST(ProgressLine, FitsTheTerminal) {
  const struct {
    std::size_t done, total, failed, width;
    std::string label, want;
  } cases[] = {
      {0, 10, 0, 21, "", "[..........]  0 of 10"},
      {10, 10, 2, 40, "d.org", "[#########]  10 of 10  d.org  (2 failed)"},
      {5, 10, 0, 200, "", "[" + std::string(25, '#') + std::string(25, '.') + "]  5 of 10"},
      {5, 10, 0, 16, "", "[##...]  5 of 10"},
      {5, 10, 0, 15, "", "5 of 10"},
      {5, 10, 0, 4, "", "5 of"},
      {3, 0, 0, 20, "", "[##########]  3 of 0"},
  };
  for (const auto& c : cases) {
    const std::string got = progressLine(c.done, c.total, c.failed, c.label, c.width);
    EXPECT_EQ(got, c.want);
    EXPECT_LE(got.size(), c.width);
  }
}

}  // namespace
