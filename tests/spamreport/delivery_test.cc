// Delivery: when a report is due, who receives it, which template it uses and how that is filled in the odd cases.

#include "spamreport/action_links.h"
#include "spamreport/date_text.h"
#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using DeliveryTest = ReportTest;
using VlmCMsg::VXCustomizedEmailTemplate;

/// A locale that groups decimal digits by threes; harmless to whatever formats without it.
class Grouping : public std::numpunct<char> {
  char do_thousands_sep() const override { return ','; }
  std::string do_grouping() const override { return "\1"; }
};

TEST_F(DeliveryTest, EndsQuietlyWhenNothingIsDue) {
  world().mailboxes["u@d.example"].messages.clear();
  Probe report("U <u@d.example>");
  world().calls.clear();
  report.deliver();
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

TEST_F(DeliveryTest, ResultsTellOfHandlesAndStatuses) {
  Probe report;
  VXMPopulateEmail mail;
  report.emailReleaseEnabled = false;
  const auto mailTemplate = VXCustomizedEmailTemplate::create(38, "site", "", 0);
  world().calls.clear();
  EXPECT_EQ(report.makeHeader({}, {}), -1);
  EXPECT_EQ(report.makeTextBody({}, {}), -1);
  EXPECT_EQ(report.makeTextBody(mailTemplate, {}), 0);
  EXPECT_EQ(report.makeBodies({}, {}, "u@d.example", mail), -1);
  EXPECT_THAT(world().calls, IsEmpty());
  world().setStatus = {{"RELEASE_CONTROL_USER", 8}};
  EXPECT_EQ(report.makeHeader(mailTemplate, {}), 0);
  world().setStatus = {{"QUARANTINE_MESSAGES_COUNT", 1}, {"QUARANTINE_PERIOD_FROM", 3}, {"QUARANTINE_PERIOD_TO", 4}};
  EXPECT_EQ(report.makeHeader(mailTemplate, {}), 7);
  report.emailReleaseEnabled = true;
  EXPECT_EQ(report.makeTextBody(mailTemplate, {}), 0);
  EXPECT_EQ(dateText(INT64_MAX, "en"), "") << "a year that does not fit a date";
}

TEST_F(DeliveryTest, RowsAlternateAndFlagsSwitchSections) {
  const struct {
    bool web, email;
    std::size_t count;
    const char *wantRow, *wantReport;
  } rows[] = {
      {false, false, 3, "", ""},
      {true, false, 2, " SPAM_WEB_ACTION", " SPAM_WEB_ACTION DELETE_ALL_URL SPAM_OTHER_ACTION PREFERENCE_URL"},
      {false, true, 0, " SPAM_EMAIL_ACTION", " SPAM_EMAIL_ACTION DELETE_ALL_EMAIL_ADDR"},
  };
  for (const auto& row : rows) {
    Probe report;
    report.webReleaseEnabled = row.web;
    report.emailReleaseEnabled = row.email;
    const std::list<CachedMessage> messages(row.count, cached(held(kNow, "k")));
    VXMPopulateEmail mail;
    world().calls.clear();
    EXPECT_EQ(report.makeBodies(VXCustomizedEmailTemplate::create(38, "site", "", 0), messages, "", mail), 0);
    std::string got, want = std::string(" TABLE_HEADER") + row.wantRow;
    for (const std::string& call : callsOf({"beginSection", "set(TITLE", "set(DELETE_ALL_", "set(PREF"})) {
      const std::size_t name = call.find('(') + 1;
      got += " " + call.substr(name, call.find_first_of(",)") - name);
    }
    for (std::size_t i = 0; i < row.count; ++i)
      want += std::string(" QUARANTINE_MESSAGES_TABLE ") + (i % 2 ? "EVEN_ROW" : "ODD_ROW") + row.wantRow;
    EXPECT_EQ(got, want + " TITLE_LOGO" + row.wantReport);
  }
}

TEST_F(DeliveryTest, NumbersOfTokens) {
  const struct {
    std::int64_t end, seconds;
    const char* want;
  } rows[] = {
      {0x10, 0x20, "5d2a7c21:5d2a7c11"},
      {-1, 0x5d2a7c31, "ffffffffa2d583ce:0"},
      {INT64_MAX, INT64_MIN, "7fffffffa2d583ce:800000005d2a7c31"},
  };
  std::locale::global(std::locale(std::locale::classic(), new Grouping));
  for (const auto& row : rows)
    EXPECT_EQ(deleteAllToken("A <&", row.end, row.seconds, "S\""), std::string("A <&:") + row.want + ":S\"");
  std::locale::global(std::locale::classic());
}

TEST_F(DeliveryTest, PreferenceLinkCarriesATimedAccess) {
  const std::string login = "B/mail/logincheck/bypass?access=";
  const std::pair<std::int32_t, std::string> rows[] = {
      {596523, login + "A%3A8000034f"},           // 2147482800 seconds just fit
      {596524, login + "A%3Affffffff8000115f"},   // 2147486400 wrap to -2147480896
      {1193046, login + "A%3Affffffffffffffff"},  // to -1696
      {1193047, login + "A%3Ae0f"},               // to 1904
      {0, "B/mail"},
      {-1, "B/mail"},
  };
  for (const auto& [hours, want] : rows) EXPECT_EQ(preferenceUrl("B", "A", hours, 1695), want) << hours;
  for (const int length : {INT32_MIN, -1, 0, 1, 1023, 1024}) {
    world().encodedLength = length;
    const std::string access(length == 1 || length == 1023 ? static_cast<std::size_t>(length) : 0, 'x');
    EXPECT_EQ(preferenceUrl("B", "A", 1, 0), access.empty() ? "B/mail" : login + access) << length;
  }
}

}  // namespace
}  // namespace Velmar
