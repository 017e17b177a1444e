// What the events of one report add up to.

#include "tools/spamreport/outcome.h"

#include <gtest/gtest.h>

namespace {

using namespace Velmar::Tool;

const SeenEvent kBuilt{0x80011, "report-built", {"3", "u@d", "u@d,o@d"}};
const SeenEvent kBuiltOne{0x80011, "report-built", {"1", "u@d", "u@d"}};
const SeenEvent kFailed{0x8000b, "report-failed", {"no room\nleft"}};
const SeenEvent kHeld{0x80010, "nothing-held", {"u@d"}};
const SeenEvent kNoTemplate{0x80012, "no-template", {"deliver", "mine"}};
const SeenEvent kOwners{0x8000d, "group-owner-lookup-failed", {"u@d"}};
const SeenEvent kLinks{0x80013, "list-links-repaired", {"o@d", "u@d"}};

std::string told(const std::vector<SeenEvent>& events, bool brokenOff = false, bool deletedUser = false) {
  const Outcome outcome = outcomeOf(events, brokenOff, deletedUser);
  return kindText(outcome.kind) + (": " + outcome.detail);
}

TEST(OutcomeOf, ReadsTheEvents) {
  const std::pair<std::string, std::string> cases[] = {
      {told({kBuilt}), "sent: 3 messages to u@d, o@d"},
      {told({kLinks, kOwners, kOwners, kBuiltOne}),
       "sent: 1 message to u@d (one-sided address links were removed; a report went out without group owners)"},
      {told({kBuilt, kFailed}), "FAILED: no room\nleft"},
      {told({kBuilt, kNoTemplate}), "FAILED: neither the template \"mine\" nor \"default\" can be used"},
      {told({{0x80014, "no-address-in-path", {}}}), "FAILED: no address in the path "},
      {told({kFailed}, true), "FAILED: no room\nleft"},
      {told({kBuilt}, true), "FAILED: the run was broken off"},
      {told({kOwners, kHeld}), "nothing held: (a report went out without group owners)"},
      {told({}, false, true), "deleted user: "},
      {told({}), "FAILED: the report stopped without a log event"},
      {told({{0x99999, "unknown", {"x"}}, kHeld}), "nothing held: "},
  };
  for (const auto& [got, want] : cases) EXPECT_EQ(got, want);
}

}  // namespace
