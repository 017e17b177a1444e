// Header, HTML bodies and text body: which sections and variables a template gets, in which order.

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

class ContentTest : public ReportTest {
 protected:
  static std::list<CachedMessage> messages(int count) {
    std::list<CachedMessage> list;
    for (int i = 0; i < count; ++i) list.push_back(cached(held(kNow + i, "k" + std::to_string(i) + ",flags")));
    return list;
  }
};

TEST_F(ContentTest, HeaderDescribesTheReport) {
  setTimeZone("CET-1CEST,M3.5.0,M10.5.0/3");
  std::locale::global(std::locale(std::locale::classic(), new Grouping));
  Probe report("u@d.example", "", 86400, kNow);
  report.language = "de";
  for (const auto& [count, want] : {std::pair{0, "0"}, {1500, "1500"}}) {
    const auto mailTemplate = newTemplate();
    const auto list = messages(count);
    world().calls.clear();
    EXPECT_EQ(report.makeHeader(mailTemplate, list), 0);
    EXPECT_THAT(world().calls,
                ElementsAre("set(RELEASE_CONTROL_USER,release@gw.example)",
                            std::string("set(QUARANTINE_MESSAGES_COUNT,") + want + ")", "translate_datetime(2,de,1024)",
                            "set(QUARANTINE_PERIOD_FROM,de 2026-03-09 15:30:00)", "translate_datetime(2,de,1024)",
                            "set(QUARANTINE_PERIOD_TO,de 2026-03-10 15:30:00)"));
  }
}

TEST_F(ContentTest, HeaderJoinsThreeStatuses) {
  Probe report;
  world().setStatus = {{"RELEASE_CONTROL_USER", 8}};
  EXPECT_EQ(report.makeHeader(newTemplate(), {}), 0);
  world().setStatus = {{"QUARANTINE_MESSAGES_COUNT", 1}, {"QUARANTINE_PERIOD_FROM", 3}, {"QUARANTINE_PERIOD_TO", 4}};
  EXPECT_EQ(report.makeHeader(newTemplate(), {}), 7);
  world().setStatus = {{"QUARANTINE_PERIOD_TO", -2}};
  EXPECT_EQ(report.makeHeader(newTemplate(), {}), -2);
}

TEST_F(ContentTest, AnEmptyTemplateHandleIsRefusedBeforeAnything) {
  Probe report;
  VXMPopulateEmail mail;
  world().calls.clear();
  EXPECT_EQ(report.makeHeader({}, {}), -1);
  EXPECT_EQ(report.makeTextBody({}, {}), -1);
  EXPECT_EQ(report.makeBodies({}, {}, "u@d.example", mail), -1);
  report.emailReleaseEnabled = false;
  EXPECT_EQ(report.makeTextBody({}, {}), -1);
  EXPECT_THAT(world().calls, IsEmpty());
}

TEST_F(ContentTest, TextBodyNamesAddressesAndSubjects) {
  Probe report("u@d.example", "", 0x20, 0x10);
  report.accessHash = "S";
  world().setStatus = {{"RELEASE_SUBJECT", 1}};
  world().calls.clear();
  EXPECT_EQ(report.makeTextBody(newTemplate(), {}), 0);
  EXPECT_THAT(callsOf({"set", "begin"}),
              ElementsAre("set(RELEASE_CONTROL_USER,release@gw.example)", "set(DELETE_CONTROL_USER,delete@gw.example)",
                          "set(DELETE_ALL_SUBJECT,delete_all:u@d.example:5d2a7c21:5d2a7c11:S)",
                          "set(RELEASE_SUBJECT,u@d.example:Message-Id)", "set(DELETE_SUBJECT,u@d.example:Message-Id)"));
  world().calls.clear();
  report.emailReleaseEnabled = false;
  EXPECT_EQ(report.makeTextBody(newTemplate(), messages(0)), 0);
  EXPECT_THAT(callsOf({"set"}), IsEmpty());
}

TEST_F(ContentTest, BodiesAreFilledInThisOrder) {
  Probe report("u@d.example", "", 0x20, 0x10);
  report.accessHash = "S";
  report.webBaseUrl = "B";
  const auto list = messages(1);
  const auto mailTemplate = newTemplate();
  VXMPopulateEmail mail;
  world().calls.clear();
  EXPECT_EQ(report.makeBodies(mailTemplate, list, "not read", mail), 0);
  const Texts want = {
      "beginSection(TABLE_HEADER)",
      "beginSection(SPAM_WEB_ACTION)",
      "endSection()",
      "beginSection(SPAM_EMAIL_ACTION)",
      "endSection()",
      "endSection()",
      "beginSection(QUARANTINE_MESSAGES_TABLE)",
      "beginSection(ODD_ROW)",
      "endSection()",
      "set(ORIG_DATE,en 2026-03-10 14:30:00)",
      "headerFrom(ORIG_FROM,From f-k0,flags)",
      "subject(ORIG_SUBJECT,Subject s-k0,flags)",
      "set(EMAIL_ID,azA=)",
      "beginSection(SPAM_WEB_ACTION)",
      "set(RELEASE_URL,B/releasecontrol?release=0:u@d.example:azA=:S)",
      "set(DELETE_URL,B/releasecontrol?release=1:u@d.example:azA=:S)",
      "set(ICON_RELEASE,Release)",
      "set(ICON_DELETE,Delete)",
      "endSection()",
      "beginSection(SPAM_EMAIL_ACTION)",
      "set(RELEASE_EMAIL_ADDR,mailto:release@gw.example?subject=u@d.example:azA%3D)",
      "set(DELETE_EMAIL_ADDR,mailto:delete@gw.example?subject=u@d.example:azA%3D)",
      "endSection()",
      "set(ICON_RELEASE,Release)",
      "set(ICON_DELETE,Delete)",
      "endSection()",
      "set(TITLE_LOGO,Logo)",
      "beginSection(SPAM_WEB_ACTION)",
      "set(DELETE_ALL_URL,B/releasecontrol?release=3:u@d.example:5d2a7c21:5d2a7c11:S)",
      "set(ICON_DELALL,Delete All)",
      "set(ICON_RELEASE,Release)",
      "set(ICON_DELETE,Delete)",
      "endSection()",
      "beginSection(SPAM_OTHER_ACTION)",
      "set(PREFERENCE_URL,B/mail)",
      "endSection()",
      "beginSection(SPAM_EMAIL_ACTION)",
      "set(DELETE_ALL_EMAIL_ADDR,mailto:delete@gw.example?subject=delete_all: u@d.example:5d2a7c21:5d2a7c11:S)",
      "set(ICON_DELALL,Delete All)",
      "set(ICON_RELEASE,Release)",
      "set(ICON_DELETE,Delete)",
      "endSection()",
  };
  EXPECT_EQ(callsOf({"beginSection", "endSection", "set", "headerFrom", "subject"}), want);
  EXPECT_THAT(callsOf({"translate_datetime"}), ElementsAre("translate_datetime(2,en,1024)"));
}

TEST_F(ContentTest, RowsAlternateAndFlagsSwitchSections) {
  const Texts parity = {"ODD_ROW", "EVEN_ROW"};
  for (const bool web : {false, true}) {
    for (const bool email : {false, true}) {
      for (const int count : {0, 3}) {
        Probe report;
        report.webReleaseEnabled = web;
        report.emailReleaseEnabled = email;
        const auto mailTemplate = newTemplate();
        VXMPopulateEmail mail;
        EXPECT_EQ(report.makeBodies(mailTemplate, messages(count), "", mail), 0);

        const auto names = [](const Fake::Section& section) {
          Texts found;
          for (const Fake::Section& inner : section.sections) found.push_back(inner.name);
          return found;
        };
        const auto append = [](Texts to, bool really, const Texts& what) {
          if (really) to.insert(to.end(), what.begin(), what.end());
          return to;
        };
        const Texts actions = append(append({}, web, {"SPAM_WEB_ACTION"}), email, {"SPAM_EMAIL_ACTION"});
        const Fake::Section& root = mailTemplate->root();
        SCOPED_TRACE(root.asText());
        Texts top = append({"TABLE_HEADER"}, count == 3, Texts(3, "QUARANTINE_MESSAGES_TABLE"));
        top = append(top, web, {"SPAM_WEB_ACTION", "SPAM_OTHER_ACTION"});
        EXPECT_EQ(names(root), append(top, email, {"SPAM_EMAIL_ACTION"}));
        EXPECT_EQ(names(root.at("TABLE_HEADER")), actions);
        EXPECT_EQ(root.values, (std::map<std::string, std::string>{{"TITLE_LOGO", "Logo"}}));
        for (int i = 0; i < count; ++i) {
          const Fake::Section& row = root.at("QUARANTINE_MESSAGES_TABLE", i);
          EXPECT_EQ(names(row), append({parity[static_cast<std::size_t>(i % 2)]}, true, actions));
          EXPECT_EQ(row.values.size(), 6U);
          EXPECT_EQ(row.values.at("ORIG_SUBJECT"), "Subject s-k" + std::to_string(i) + ",flags");
        }
      }
    }
  }
}

}  // namespace
}  // namespace Velmar
