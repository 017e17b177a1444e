// Header and bodies where they differ from the whole report, and the links in their odd cases: an outside interface.

#include "spamreport/action_links.h"
#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using ContentTest = ReportTest;
using VlmCMsg::VXCustomizedEmailTemplate;

/// A locale that groups decimal digits by threes; harmless to whatever formats without it.
class Grouping : public std::numpunct<char> {
  char do_thousands_sep() const override { return ','; }
  std::string do_grouping() const override { return "\1"; }
};

TEST_F(ContentTest, ResultsTellOfHandlesAndStatuses) {
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
}

TEST_F(ContentTest, RowsAlternateAndFlagsSwitchSections) {
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

TEST_F(ContentTest, NumbersOfTokens) {
  const struct {
    std::int64_t end, seconds;
    const char* want;
  } rows[] = {
      {0x10, 0x20, "5d2a7c21:5d2a7c11"},
      {-1, 0x5d2a7c31, "ffffffffa2d583ce:0"},
      {0x100000000, INT32_MIN, "15d2a7c31:ffffffffdd2a7c31"},
      {INT64_MAX, INT64_MIN, "7fffffffa2d583ce:800000005d2a7c31"},
  };
  std::locale::global(std::locale(std::locale::classic(), new Grouping));
  for (const auto& row : rows)
    EXPECT_EQ(deleteAllToken("A <&", row.end, row.seconds, "S\""), std::string("A <&:") + row.want + ":S\"");
  std::locale::global(std::locale::classic());
}

TEST_F(ContentTest, PreferenceLinkCarriesATimedAccess) {
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
  for (const int length : {0, -1, 1024, INT32_MIN}) {
    world().encodedLength = length;
    EXPECT_EQ(preferenceUrl("B", "A", 1, 0), "B/mail") << length;
  }
  for (const std::size_t length : {1U, 1023U}) {
    world().encodedLength = static_cast<int>(length);
    EXPECT_EQ(preferenceUrl("B", "A", 1, 0), login + std::string(length, 'x'));
  }
}

}  // namespace
}  // namespace Velmar
