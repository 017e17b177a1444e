// Delivery: when a report is due, who receives it, which template it uses.

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using DeliveryTest = ReportTest;

TEST_F(DeliveryTest, EndsQuietlyWhenNothingIsDue) {
  world().mailboxes["u@d.example"].messages.clear();
  Probe report("U <u@d.example>");
  world().calls.clear();
  report.deliver();
  EXPECT_EQ(callsOf({"VXMailBoxRef"}).size(), 1U);
  report.sendToRecipient = false;
  report.deliver();
  report.quarantineReportEnabled = false;
  report.deliver();
  EXPECT_THAT(logged(), ElementsAre("Logger::log(80010,0,%s,u@d.example)", "Logger::log(8000f,0,%s,u@d.example)",
                                    "Logger::log(8000e,0,%s,u@d.example)"));
  EXPECT_EQ(callsOf({"VXMailBoxRef"}).size(), 1U);
  EXPECT_THAT(callsOf({"create(", "VXMPopulate"}), IsEmpty());
}

TEST_F(DeliveryTest, JoinsTheSelectedRecipients) {
  const struct {
    bool self, owner, ownerOnly, others;
    std::set<std::string> owners;
    const char *secondary, *otherList, *want;
  } rows[] = {
      {false, false, false, false, {"o@x"}, "s@x", "x@x", ""},
      {true, false, true, false, {"o@x"}, "", "x@x", "u@d.example"},
      {true, false, false, false, {}, "t@x,s@x,junk,t@X", "", "s@x,t@x"},
      {true, true, false, false, {"v@x", "o@x"}, "", "", "o@x,u@d.example,v@x"},
      {true, true, true, false, {"z@x", "b@x"}, "s@x", "", "b@x,z@x"},
      {true, true, true, false, {}, "", "", "u@d.example"},
      {true, true, true, false, {"", "junk"}, "", "", "u@d.example"},
      {true, false, false, true, {}, "", "x@x, A <a@x>, junk, u@D.EXAMPLE", "a@x,u@d.example,x@x"},
  };
  for (const auto& row : rows) {
    Probe report("u@d.example", row.secondary);
    report.sendToRecipient = row.self;
    report.sendToGroupOwner = row.owner;
    report.groupOwnerOnly = row.ownerOnly;
    report.sendToOthers = row.others;
    report.otherRecipients = row.otherList;
    world().groupOwners = row.owners;
    EXPECT_EQ(report.getReportRecipients(), row.want) << "row " << &row - rows;
  }
}

TEST_F(DeliveryTest, AFailedOwnerLookupCostsOnlyOwners) {
  Probe report;
  report.sendToGroupOwner = report.groupOwnerOnly = report.sendToOthers = true;
  report.otherRecipients = "x@x";
  world().groupOwners = {"o@x", "p@x"};
  failCall("getGroupOwnerAddressesForUser");
  EXPECT_EQ(report.getReportRecipients(), "u@d.example,x@x");
  failCall("rfc5322Parse", 2);
  EXPECT_EQ(report.getReportRecipients(), "o@x,x@x");  // the one before stays, and counts as found
  EXPECT_EQ(logged(), Texts(2, "Logger::log(8000d,0,%s,u@d.example)"));
}

TEST_F(DeliveryTest, ChoosesTheTemplateAndTracesItsDomain) {
  const std::string asked = "cfg_get_main_domain_name(d.example,0)", fallback = "create(38,default,,0)";
  const std::string traced = "debug(SpamreportGenerator,953,deliver,0,%s,domain=";
  const std::string systemTraced = "debug(SpamreportGenerator,956,deliver,0,%s,domain=system)";
  const struct {
    const char *domain, *mainDomain;  // whose own template is wanted ("" = the system's); null = none
    const char *goodDomain, *goodName;
    std::uint32_t debugMask;
    Texts wantCalls;
    bool wantMail;
  } rows[] = {
      {"", nullptr, "", "site", 0xffffffff, {systemTraced, "create(38,site,,0)"}, true},
      {"", nullptr, "", "default", 8, {"create(38,site,,0)", fallback}, true},
      {"", nullptr, "x", "site", 0x80000, {"create(38,site,,0)", fallback}, false},
      {"d.example", "", "d.example", "site", 0, {asked, "create(38,site,d.example,0)"}, true},
      {"d.example", "m", "m", "site", 0x80008, {asked, traced + "m)", "create(38,site,m,0)"}, true},
      {"d.example", nullptr, "", "default", 0, {asked, "create(38,site,d.example,0)", fallback}, true},
      {"system", "m", "system", "site", 0x80008, {traced + "system)", "create(38,site,system,0)"}, true},
  };
  for (const auto& row : rows) {
    startAnew();
    const std::string domain = *row.domain ? row.domain : "d.example", address = "u@" + domain;
    Fake::domain(domain);
    world().policies[address] = {1, 0, 5, 0, 1};
    world().mailboxes[address].messages = {held(kNow - 1, "k")};
    if (row.mainDomain) world().mainDomains[domain] = row.mainDomain;
    world().global.debugMask = row.debugMask;
    world().templates[{"", "site"}].good = world().templates[{"", "default"}].good = false;
    world().templates[{row.goodDomain, row.goodName}].good = true;
    Probe report(address);
    report.useDomainTemplate = *row.domain;
    report.deliver();
    EXPECT_EQ(callsOf({"cfg_get_main", "debug", "create("}), row.wantCalls);
    EXPECT_EQ(world().queue.size(), row.wantMail ? 1U : 0U);
    EXPECT_EQ(callsOf({"MigLogger"}), row.wantMail ? Texts() : Texts({"MigLogger::log(80012,0,%s|%s,deliver|site)"}));
  }
}

}  // namespace
}  // namespace Velmar
