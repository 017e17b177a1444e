// What the events of one report add up to.

#include "tools/spamreport/outcome.h"

#include <gtest/gtest.h>

namespace {

using Velmar::Tool::kindText;
using Velmar::Tool::Outcome;
using Velmar::Tool::OutcomeKind;
using Velmar::Tool::outcomeOf;
using Velmar::Tool::SeenEvent;
using Velmar::Tool::summaryOf;

const SeenEvent kBuilt{0x80011, "report-built", {"3", "u@d", "u@d,o@d"}};
const SeenEvent kBuiltOne{0x80011, "report-built", {"1", "u@d", "u@d"}};
const SeenEvent kFailed{0x8000b, "report-failed", {"no room\nleft"}};
const SeenEvent kGivenUp{0x80015, "failed-report-given-up", {"still no room"}};
const SeenEvent kHeld{0x80010, "nothing-held", {"u@d"}};
const SeenEvent kDisabled{0x8000e, "report-disabled", {"u@d"}};
const SeenEvent kNobody{0x8000f, "no-recipients", {"u@d"}};
const SeenEvent kNoTemplate{0x80012, "no-template", {"deliver", "mine"}};
const SeenEvent kNoAddress{0x80014, "no-address-in-path", {"/home/d/u"}};
const SeenEvent kOwners{0x8000d, "group-owner-lookup-failed", {"u@d"}};
const SeenEvent kLinks{0x80013, "list-links-repaired", {"o@d", "u@d"}};
const SeenEvent kUnknown{0x99999, "unknown", {"x"}};
const SeenEvent kShort{0x80012, "no-template", {}};

struct Case {
  const char* name;
  std::vector<SeenEvent> events;
  bool brokenOff;
  bool deletedUser;
  OutcomeKind want;
  std::string wantDetail;
};

TEST(OutcomeOf, ReadsTheEvents) {
  const std::string owners = "(a report went out without group owners)";
  const Case cases[] = {
      {"sent", {kBuilt}, false, false, OutcomeKind::kSent, "3 messages to u@d, o@d"},
      {"one", {kBuiltOne}, false, false, OutcomeKind::kSent, "1 message to u@d"},
      {"sent with remarks",
       {kLinks, kOwners, kOwners, kBuiltOne},
       false,
       false,
       OutcomeKind::kSent,
       "1 message to u@d (one-sided address links were removed; a report went out without group owners)"},
      {"built, then failed", {kBuilt, kFailed}, false, false, OutcomeKind::kFailed, "no room\nleft"},
      {"built, then no template",
       {kBuilt, kNoTemplate},
       false,
       false,
       OutcomeKind::kFailed,
       "neither the template \"mine\" nor \"default\" can be used"},
      {"failed, then built", {kFailed, kBuilt}, false, false, OutcomeKind::kFailed, "no room\nleft"},
      {"given up", {kGivenUp}, false, false, OutcomeKind::kFailed, "still no room"},
      {"no address", {kNoAddress}, false, false, OutcomeKind::kFailed, "no address in the path /home/d/u"},
      {"broken off with its reason", {kFailed}, true, false, OutcomeKind::kFailed, "no room\nleft"},
      {"broken off without", {kBuilt}, true, false, OutcomeKind::kFailed, "the run was broken off"},
      {"nothing held", {kHeld}, false, false, OutcomeKind::kNothingHeld, ""},
      {"nothing held, remark", {kOwners, kHeld}, false, false, OutcomeKind::kNothingHeld, owners},
      {"disabled", {kDisabled}, false, false, OutcomeKind::kDisabled, ""},
      {"nobody", {kNobody}, false, false, OutcomeKind::kNoRecipients, ""},
      {"deleted", {}, false, true, OutcomeKind::kDeletedUser, ""},
      {"silence is no success", {}, false, false, OutcomeKind::kFailed, "the report stopped without a log event"},
      {"nor is a remark alone",
       {kOwners},
       false,
       false,
       OutcomeKind::kFailed,
       "the report stopped without a log event " + owners},
      {"unknown events decide nothing", {kUnknown, kHeld}, false, false, OutcomeKind::kNothingHeld, ""},
      {"fields that are missing",
       {kShort},
       false,
       false,
       OutcomeKind::kFailed,
       "neither the template \"\" nor \"default\" can be used"},
  };
  for (const Case& c : cases) {
    const Outcome got = outcomeOf(c.events, c.brokenOff, c.deletedUser);
    EXPECT_STREQ(kindText(got.kind), kindText(c.want)) << c.name;
    EXPECT_EQ(got.detail, c.wantDetail) << c.name;
  }
}

TEST(SummaryOf, CountsTheKindsThatOccurred) {
  const Outcome sent{OutcomeKind::kSent, ""};
  const Outcome failed{OutcomeKind::kFailed, ""};
  const Outcome held{OutcomeKind::kNothingHeld, ""};
  EXPECT_EQ(summaryOf({}), "0 mailboxes");
  EXPECT_EQ(summaryOf({sent}), "1 mailbox: 1 sent");
  EXPECT_EQ(summaryOf({failed, sent, held, sent}), "4 mailboxes: 2 sent, 1 with nothing held, 1 failed");
}

}  // namespace
