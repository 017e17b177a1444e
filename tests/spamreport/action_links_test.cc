// The exact form of every action link, address and subject: an outside interface.

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

class ActionLinksTest : public ReportTest {
 protected:
  /// Values of the bodies and the text body of a report with one message, as "SECTION.VARIABLE" (row sections: "row.").
  static std::map<std::string, std::string> linksOf(Probe& report, const std::string& key) {
    const auto mailTemplate = newTemplate();
    VXMPopulateEmail mail;
    const std::list<CachedMessage> messages{cached(held(0, key))};
    report.makeTextBody(mailTemplate, messages);
    report.makeBodies(mailTemplate, messages, "", mail);
    std::map<std::string, std::string> links = mailTemplate->root().values;
    links.merge(std::map(mailTemplate->root().at("SPAM_WEB_ACTION").values));
    links.merge(std::map(mailTemplate->root().at("SPAM_EMAIL_ACTION").values));
    links.merge(std::map(mailTemplate->root().at("SPAM_OTHER_ACTION").values));
    const Fake::Section& row = mailTemplate->root().at("QUARANTINE_MESSAGES_TABLE");
    links.merge(std::map(row.at("SPAM_WEB_ACTION").values));
    links.merge(std::map(row.at("SPAM_EMAIL_ACTION").values));
    return links;
  }
};

TEST_F(ActionLinksTest, EveryForm) {
  const struct {
    const char *user, *base, *hash, *key;
    std::int64_t end;
    long period;
    const char *wantWeb, *wantMail, *wantAll;  // token texts after A
  } rows[] = {
      {"u@d.example", "https://b", "S", "abc,S", 0x10, 0x20, "YWJj", "YWJj", "5d2a7c21:5d2a7c11"},
      {"u@d.example", "", "", "\xfb\xff,x", -1, 0x5d2a7c31, "+/8=", "%2B%2F8%3D", "ffffffffa2d583ce:0"},
      {"u@d.example", "https://[::1]:8", "<S&>", "k", 0x100000000, INT32_MIN, "aw==", "aw%3D%3D",
       "15d2a7c31:ffffffffdd2a7c31"},
      {"\"a &?\"@d.example", "b\"", "S", "k", INT64_MAX, INT64_MIN, "aw==", "aw%3D%3D",
       "7fffffffa2d583ce:800000005d2a7c31"},
      {"100%25+x@d.example", "b", "S", "k", 0, 0, "aw==", "aw%3D%3D", "5d2a7c31:5d2a7c31"},
  };
  for (const bool grouping : {false, true}) {
    if (grouping) std::locale::global(std::locale(std::locale::classic(), new Grouping));
    for (const auto& row : rows) {
      Probe report(row.user);
      report.emailReleaseEnabled = report.webReleaseEnabled = true;
      report.webBaseUrl = row.base;
      report.accessHash = row.hash;
      report.periodEnd = row.end;
      report.periodSeconds = row.period;
      const std::string user(row.user), base(row.base), hash(row.hash);
      const std::string web = ":" + user + ":" + row.wantWeb + ":" + hash, mail = user + ":" + row.wantMail;
      const std::string all = user + ":" + row.wantAll + ":" + hash;
      const std::map<std::string, std::string> want = {
          {"RELEASE_URL", base + "/releasecontrol?release=0" + web},
          {"DELETE_URL", base + "/releasecontrol?release=1" + web},
          {"DELETE_ALL_URL", base + "/releasecontrol?release=3:" + all},
          {"RELEASE_EMAIL_ADDR", "mailto:release@gw.example?subject=" + mail},
          {"DELETE_EMAIL_ADDR", "mailto:delete@gw.example?subject=" + mail},
          {"DELETE_ALL_EMAIL_ADDR", "mailto:delete@gw.example?subject=delete_all: " + all},
          {"DELETE_ALL_SUBJECT", "delete_all:" + all},
          {"RELEASE_SUBJECT", user + ":Message-Id"},
          {"DELETE_SUBJECT", user + ":Message-Id"},
          {"RELEASE_CONTROL_USER", "release@gw.example"},
          {"DELETE_CONTROL_USER", "delete@gw.example"},
          {"PREFERENCE_URL", base + "/mail"},
          {"TITLE_LOGO", "Logo"},
          {"ICON_RELEASE", "Release"},
          {"ICON_DELETE", "Delete"},
          {"ICON_DELALL", "Delete All"},
      };
      EXPECT_EQ(linksOf(report, row.key), want) << (grouping ? "grouping locale" : "");
    }
  }
}

TEST_F(ActionLinksTest, PreferenceLinkCarriesATimedAccess) {
  const struct {
    std::int32_t hours;
    std::time_t now;
    std::string wantExpiry;  // "" = the plain link
  } rows[] = {
      {1, kNow, "69b038f8"},
      {596523, 1695, "8000034f"},           // 2147482800 seconds just fit
      {596524, 1695, "ffffffff8000115f"},   // 2147486400 wrap to -2147480896
      {1193046, 1695, "ffffffffffffffff"},  // to -1696
      {1193047, 1695, "e0f"},               // to 1904
      {0, kNow, ""},
      {-1, kNow, ""},
      {INT32_MIN, kNow, ""},
  };
  std::locale::global(std::locale(std::locale::classic(), new Grouping));
  for (const auto& row : rows) {
    world().spamReport.accessLinkHours = row.hours;
    forgetSettings();
    Probe report;
    report.webBaseUrl = "B";
    const std::string& expiry = row.wantExpiry;
    Fake::setClock(row.now);
    world().calls.clear();
    const std::string link = linksOf(report, "k").at("PREFERENCE_URL");
    EXPECT_EQ(link, expiry.empty() ? "B/mail" : "B/mail/logincheck/bypass?access=u%40d.example%3A" + expiry);
    EXPECT_EQ(callsOf({"vlml_encode"}),
              expiry.empty() ? Texts()
                             : Texts({"vlml_encode_trusted_base64_data(u@d.example:" + expiry + ",5d2a7c31,1023)"}));
  }
}

TEST_F(ActionLinksTest, PreferenceLinkFallsBackWhenTheEncoderFails) {
  world().spamReport.accessLinkHours = 1;
  Probe report;
  report.webBaseUrl = "B";
  for (const int length : {1, 2, 1023, 0, -1, INT32_MIN, 1024, INT32_MAX}) {
    world().encodedLength = length;
    const bool good = length >= 1 && length <= 1023;
    EXPECT_EQ(linksOf(report, "k").at("PREFERENCE_URL"),
              good ? "B/mail/logincheck/bypass?access=" + std::string(static_cast<std::size_t>(length), 'x') : "B/mail")
        << length;
  }
}

}  // namespace
}  // namespace Velmar
