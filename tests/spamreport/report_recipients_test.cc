// Who receives a report.

#include <stdexcept>

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using ReportRecipientsTest = ReportTest;

const Event kOwnersFailed{0x8000d, "%s", {"u@d.example"}};

TEST_F(ReportRecipientsTest, JoinsTheSelectedSources) {
  const struct {
    const char* name;
    bool self, owner, ownerOnly, others;
    std::set<std::string> owners;
    const char *secondary, *otherList, *want;
  } rows[] = {
      {"nobody", false, false, false, false, {"o@x"}, "s@x", "x@x", ""},
      {"the mailbox", true, false, true, false, {"o@x"}, "", "x@x", "u@d.example"},
      {"its secondary addresses", true, false, false, false, {}, "t@x,s@x", "", "s@x,t@x"},
      {"itself among them", true, false, false, false, {}, "u@d.example,s@x", "", "s@x,u@d.example"},
      {"owners and the mailbox", true, true, false, false, {"v@x", "o@x"}, "", "", "o@x,u@d.example,v@x"},
      {"owners only", true, true, true, false, {"z@x", "b@x"}, "s@x", "", "b@x,z@x"},
      {"owners only, none found", true, true, true, false, {}, "", "", "u@d.example"},
      {"owners only, none usable", true, true, true, false, {"", "junk"}, "", "", "u@d.example"},
      {"owners without the mailbox", false, true, false, false, {"", "o@x"}, "", "", "o@x"},
      {"others", false, false, false, true, {}, "", "x@x, A <a@x>, junk", "a@x,x@x"},
      {"others, none", true, false, false, true, {}, "", "", "u@d.example"},
      {"no doubles", true, true, false, true, {"u@d.example"}, "", "u@d.example,u@D.EXAMPLE", "u@d.example"},
      {"local parts first", false, false, false, true, {}, "", "b@a,a@b,B@c", "B@c,a@b,b@a"},
  };
  for (const auto& row : rows) {
    Probe report("u@d.example", row.secondary);
    report.sendToRecipient = row.self;
    report.sendToGroupOwner = row.owner;
    report.groupOwnerOnly = row.ownerOnly;
    report.sendToOthers = row.others;
    report.otherRecipients = row.otherList;
    world().groupOwners = row.owners;
    EXPECT_EQ(report.getReportRecipients(), row.want) << row.name;
  }
  EXPECT_THAT(world().events, IsEmpty());
}

TEST_F(ReportRecipientsTest, PassesItsSettingsThrough) {
  Probe report;
  report.sendToGroupOwner = report.sendToOthers = true;
  report.groupOwnerLdapProfile = -3;
  report.otherRecipients = "x@x";
  world().groupOwners = {"o@x"};
  for (const bool option : {false, true}) {
    world().calls.clear();
    report.groupOwnerOption = option;
    report.getReportRecipients();
    EXPECT_THAT(world().calls, ElementsAre(std::string("getGroupOwnerAddressesForUser(u@d.example,-3,") +
                                               (option ? "true)" : "false)"),
                                           "rfc5322Parse(o@x,true)", "rfc5322ParseSet(x@x,true,false)"));
  }
}

TEST_F(ReportRecipientsTest, AFailedLookupCostsOnlyOwners) {
  Probe report;
  report.sendToGroupOwner = report.sendToOthers = true;
  report.otherRecipients = "x@x";
  world().groupOwners = {"o@x", "p@x"};
  const struct {
    const char* operation;
    int nth;
    bool ownerOnly;
    const char* want;
  } rows[] = {
      {"getGroupOwnerAddressesForUser", 1, true, "u@d.example,x@x"},
      {"rfc5322Parse", 1, true, "u@d.example,x@x"},
      {"rfc5322Parse", 2, false, "o@x,u@d.example,x@x"},
      {"rfc5322Parse", 2, true, "o@x,x@x"},
  };
  for (const auto& row : rows) {
    world().events.clear();
    report.groupOwnerOnly = row.ownerOnly;
    failCall(row.operation, row.nth);
    EXPECT_EQ(report.getReportRecipients(), row.want) << row.operation << " " << row.nth;
    EXPECT_THAT(world().events, ElementsAre(kOwnersFailed));
    failCall(row.operation, row.nth, Failure::Standard);
    EXPECT_THROW(report.getReportRecipients(), std::runtime_error);
  }
  failCall("rfc5322ParseSet");
  EXPECT_THROW(report.getReportRecipients(), Exception);
}

}  // namespace
}  // namespace Velmar
