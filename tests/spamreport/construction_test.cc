// What a new report knows: its checks in order, and every setting with its source.

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

class ConstructionTest : public ReportTest {
 protected:
  static std::time_t utc(int year, int month, int day, int hour, int minute = 0, int second = 0) {
    std::tm time{};
    time.tm_year = year - 1900;
    time.tm_mon = month - 1;
    time.tm_mday = day;
    time.tm_hour = hour;
    time.tm_min = minute;
    time.tm_sec = second;
    return timegm(&time);
  }
};

TEST_F(ConstructionTest, ReadsEverythingOnceAndInOrder) {
  const Probe report("u@d.example", "s@d.example");
  std::erase(world().calls, "nCfg_debug_zone()");  // asked as often as needed
  EXPECT_THAT(world().calls,
              ElementsAre("rfc5322Parse(u@d.example,true)", "rfc5322ParseSet(s@d.example,true,false)",
                          "cmf_query_create_withdomain(0,450)", "cmf_query_update(450)", "cmf_shm_read_unlock(450)",
                          "cmf_query_create_withdomain(0,636)", "cmf_query_update(636)", "cmf_shm_read_unlock(636)",
                          "cmf_query_create_withdomain(0,617)", "cmf_query_update(617)", "cmf_shm_read_unlock(617)",
                          "RefApsGwServerCache::instance(0)", "ApsGwServerCache::find(d.example)",
                          "cfg_get_managed_recipient_policy_with_filter(u@d.example,spamreport_filter,0,1)",
                          "createProfileAntiSpam(5,0)", "qrl_mail_mode()", "vlm_cmf_get_table_data_by_ngid(455,0)",
                          "get_user_pref_lang(u@d.example,255)", "cfg_get_localdomain_or_host(257)",
                          "cmf_query_create_withdomain(0,801)", "cmf_query_update(801)", "cmf_shm_read_unlock(801)",
                          "rfc5322Parse(release@gw.example,true)", "rfc5322Parse(delete@gw.example,true)",
                          "cmf_query_create_withdomain(0,282)", "cmf_query_update(282)", "cmf_shm_read_unlock(282)",
                          "cmf_query_create_withdomain(0,631)", "cmf_query_update(631)", "cmf_shm_read_unlock(631)",
                          "vlm_string_to_ip(web.example)", "vlm_build_http_url(web.example,443,1,256)",
                          "createQueueId(null)", "Md5Hasher()"));
}

TEST_F(ConstructionTest, RefusesInThisOrder) {
  const struct {
    const char* address;
    std::function<void()> cure;  // of the fault of this row, so that the next row shows its own
    int wantLine;
    const char* wantText;
    std::size_t wantQueries;  // configuration queries before the check
  } rows[] = {
      {" not an address ", [] { Fake::domain("x"); }, 381, "Invalid user:  not an address ", 0},
      {"", [] {}, 381, "Invalid user: ", 0},
      {"u", [] { world().domains.clear(); }, 381, "Invalid user: u", 0},
      {"U <u@d.example>", [] { Fake::domain("d.example"); }, 397, "Invalid user domain u@d.example", 3},
      {"u@d.example", [] { world().localDomain = "gw"; }, 481, "Invalid host or localdomain", 0},
      {"u@d.example", [] { setText(world().sysAntispam.releaseName, "r"); }, 495,
       "Invalid or Non quarantine release name ", 1},
      {"u@d.example", [] {}, 507, "Invalid or Non quarantine delete name ", 0},
  };
  world().localDomain.reset();
  setText(world().sysAntispam.releaseName, "");
  setText(world().sysAntispam.deleteName, "");
  for (const auto& row : rows) {
    SCOPED_TRACE(row.wantLine);
    world().calls.clear();
    CMF::RefSysAntispam::s_instance() = {};
    CMF::RefSysAntispam::s_loaded = false;
    try {
      Probe report(row.address);
      ADD_FAILURE() << "no exception, want " << row.wantText;
    } catch (const Exception& thrown) {
      EXPECT_EQ(thrown.text(), row.wantText);
      EXPECT_EQ(thrown.line(), row.wantLine);
      EXPECT_EQ(thrown.typeName(), "SpamreportException");
      EXPECT_EQ(thrown.level(), 4);
      EXPECT_EQ(thrown.source(), "SpamreportGenerator");
    }
    if (row.wantLine < 507) {
      EXPECT_EQ(callsOf({"cmf_query_create"}).size(), row.wantQueries);
    }
    if (row.wantLine < 400) {
      EXPECT_THAT(callsOf({"cfg_get_managed"}), IsEmpty());
    }
    row.cure();
  }
}

TEST_F(ConstructionTest, DefaultsOfAPlainDomain) {
  const Probe report(" U <u@d.example>", "b@d.example, junk, a@d.example,b@D.EXAMPLE");
  EXPECT_EQ(report.recipient.asString(), "u@d.example");
  Texts secondary;
  for (const EmailAddress& address : report.secondaryAddresses) secondary.push_back(address.asString());
  EXPECT_THAT(secondary, ElementsAre("a@d.example", "b@d.example"));
  EXPECT_EQ(report.language, "en");
  EXPECT_TRUE(report.sendToRecipient);
  EXPECT_FALSE(report.sendToGroupOwner || report.groupOwnerOption || report.groupOwnerOnly || report.sendToOthers);
  EXPECT_FALSE(report.useDomainTemplate);
  EXPECT_EQ(report.templateName, "site");
  EXPECT_EQ(report.groupOwnerLdapProfile, -1);
  EXPECT_EQ(report.otherRecipients + report.reserved1 + report.reserved2, "");
  EXPECT_EQ(report.releaseAddress.asString(), "release@gw.example");
  EXPECT_EQ(report.deleteAddress.asString(), "delete@gw.example");
  EXPECT_EQ(report.webBaseUrl, "https://web.example:443");
  EXPECT_EQ(report.queueId, "QID");
  EXPECT_EQ(report.messageIdValue, "QID.release@gw.example");
  EXPECT_EQ(report.accessHash, "md5( U <u@d.example>)^5d2a7c31");  // over the argument as it was passed
  EXPECT_EQ(Spamreport::getQueueId(), "QID");
}

TEST_F(ConstructionTest, DomainRecordAndPreferencesDecide) {
  ApsGwServer& domain = Fake::domain("d.example");
  domain.sendToRecipient = false;
  domain.groupOwnerOption = domain.groupOwnerOnly = true;
  domain.groupOwnerLdapProfile = 7;
  domain.otherRecipients = "o@x";
  domain.useOwnTemplate = true;
  domain.templateName = "own";
  domain.profileDomain = 3000000000U;
  world().languages["u@d.example"] = "pt-BR";
  {
    const Probe report;
    EXPECT_FALSE(report.sendToRecipient || report.sendToGroupOwner || report.sendToOthers);
    EXPECT_TRUE(report.groupOwnerOption && report.groupOwnerOnly && report.useDomainTemplate);
    EXPECT_EQ(report.groupOwnerLdapProfile, -1);
    EXPECT_EQ(report.otherRecipients, "");
    EXPECT_EQ(report.templateName, "own");
    EXPECT_EQ(report.language, "pt-BR");
    EXPECT_THAT(callsOf({"createProfile"}), ElementsAre("createProfileAntiSpam(5,3000000000)"));
  }
  domain.sendToGroupOwner = domain.sendToOthers = true;
  const Probe report;
  EXPECT_TRUE(report.sendToGroupOwner && report.sendToOthers);
  EXPECT_EQ(report.groupOwnerLdapProfile, 7);
  EXPECT_EQ(report.otherRecipients, "o@x");
}

TEST_F(ConstructionTest, PolicyAndProfileSwitch) {
  const struct {
    const char* name;
    bool policy;
    int profile;
    std::uint32_t policyFlag, group;
    int mailMode;
    const char* want;  // report, e-mail, web, whitelist of the profile; flag of group or policy
  } rows[] = {
      {"no policy", false, 5, 1, 0, 2, "----- 0"},
      {"policy without profile", true, 0, 1, 21, 2, "----- 0"},
      {"unknown profile", true, 9, 0, 0, 2, "----- 1"},
      {"unknown profile, flag", true, 9, 8, 0, 2, "----f 1"},
      {"report only", true, 1, 0, 0, 2, "r---- 1"},
      {"mail only", true, 2, 0, 0, 2, "-m--- 1"},
      {"web only", true, 3, 0, 0, 2, "--w-- 1"},
      {"whitelist only", true, 4, 0, 0, 2, "---l- 1"},
      {"negative profile", true, -6, 0x80000000, 0, 4, "rmwlf 1"},
      {"server mode, group flag", true, 1, 0, 21, 1, "r---f 1"},
      {"server mode, no group flag", true, 1, 1, 20, 1, "r---- 1"},
      {"server mode, no such group", true, 1, 1, 22, 1, "r---- 1"},
      {"other mode, group flag", true, 1, 0, 21, 0, "r---- 1"},
  };
  for (const auto& row : rows) {
    startAnew();
    world().policies.clear();
    if (row.policy) world().policies["u@d.example"] = {1, row.policyFlag, row.profile, row.group, 1};
    world().profiles = {{{1, 0}, {true, false, false, false}},
                        {{2, 0}, {false, true, false, false}},
                        {{3, 0}, {false, false, true, false}},
                        {{4, 0}, {false, false, false, true}},
                        {{-6, 0}, {true, true, true, true}}};
    world().userGroups = {{20, {20, 0}}, {21, {21, 0x80000000}}};
    world().mailMode = row.mailMode;
    const Probe report;
    std::string got = "----- ";
    if (report.quarantineReportEnabled) got[0] = 'r';
    if (report.emailReleaseEnabled) got[1] = 'm';
    if (report.webReleaseEnabled) got[2] = 'w';
    if (report.whitelistSenderEnabled) got[3] = 'l';
    if (report.userGroupFlag) got[4] = 'f';
    EXPECT_EQ(got + std::to_string(callsOf({"createProfile"}).size()), row.want) << row.name;
  }
}

TEST_F(ConstructionTest, HighAvailabilityEmptiesTheWebHost) {
  const auto wantEmpty = [](unsigned int mode, unsigned int flag, unsigned int storage) {
    if (flag == 1) return false;
    if (mode == 4) return storage == 1;
    return mode == 2 || mode == 5 || mode == 0xffffffffU;
  };
  for (const unsigned int mode : {0U, 1U, 2U, 3U, 4U, 5U, 0xffffffffU}) {
    for (const unsigned int flag : {0U, 1U, 2U}) {
      for (const unsigned int storage : {0U, 1U, 2U}) {
        startAnew();
        world().highAvailability.mode = mode;
        world().global.haSyncFlag = flag;
        world().nasStorage.mode = storage;
        const Probe report;
        const bool empty = wantEmpty(mode, flag, storage);
        SCOPED_TRACE(::testing::Message() << "mode " << mode << " flag " << flag << " storage " << storage);
        EXPECT_EQ(report.webHost, empty ? "" : "web.example");
        EXPECT_EQ(report.webBaseUrl, empty ? "https://:443" : "https://web.example:443");
        EXPECT_EQ(world().events, empty ? std::vector<Event>({{0x8000c, "%s", {" "}}}) : std::vector<Event>());
      }
    }
  }
}

TEST_F(ConstructionTest, WebHostByTheFirstRuleThatApplies) {
  const vlm_ip_address v4{2, {192, 0, 2, 7}};
  const vlm_ip_address v6{10, {0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}};
  const struct {
    const char *configured, *hostName;
    int mailMode;
    vlm_ip_address interface;
    const char* want;
  } rows[] = {
      {"web.example", "host.example", 4, v4, "web.example"},
      {"192.0.2.1", "host.example", 1, v4, "192.0.2.1"},
      {"2001:db8::9", "host.example", 1, v4, "[2001:db8::9]"},
      {"", "host.example", 4, v4, "192.0.2.7"},
      {"", "host.example", 4, v6, "[2001:db8::1]"},
      {"", "host.example", 3, v4, "host.example"},
      {"", "::1", 1, v4, "[::1]"},
      {"", "", 1, v4, ""},
  };
  for (const auto& row : rows) {
    startAnew();
    setText(world().spamReport.webHost, row.configured);
    setText(world().global.hostName, row.hostName);
    world().mailMode = row.mailMode;
    world().interfaces = {{1, "eth0", row.interface}, {2, "eth1", {2, {198, 51, 100, 1}}}};
    const Probe report;
    EXPECT_EQ(report.webHost, row.want);
    EXPECT_EQ(report.webBaseUrl, "https://" + std::string(row.want) + ":443");
    const bool fromTable = !*row.configured && row.mailMode == 4;
    EXPECT_EQ(callsOf({"cmf_query_create_withdomain(0,1)", "cmf_query_table_head", "vlm_ip_to_string"}),
              fromTable
                  ? Texts({"cmf_query_create_withdomain(0,1)", "cmf_query_table_head(1)", "vlm_ip_to_string(46,1)"})
                  : Texts());
    EXPECT_EQ(world().openQueries, 0);
  }
  startAnew();
  world().spamReport.port = 0;
  EXPECT_EQ(Probe().webBaseUrl, "");  // whatever the buffer holds
}

TEST_F(ConstructionTest, CharsetsAreBoundOnFirstUse) {
  const Probe report;
  EXPECT_THAT(callsOf({"RefQRLStatic"}), IsEmpty());
  EXPECT_THAT(report.charsets(), ElementsAre("utf-8", "windows-1252"));
  EXPECT_EQ(&report.charsets(), &report.charsets());
  EXPECT_EQ(callsOf({"RefQRLStatic"}).size(), 1U);
  EXPECT_EQ(callsOf({"system charsets"}).size(), 3U);
}

TEST_F(ConstructionTest, SettlesThePeriod) {
  const std::uint32_t h8 = 1U << 8, h12 = 1U << 12, h14 = 1U << 14, h15 = 1U << 15, h18 = 1U << 18;
  const long hour = 3600, day = 86400;
  const std::time_t noon = utc(2026, 3, 10, 12);
  const char* const berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
  const std::time_t spring = utc(2026, 3, 29, 10);   // 12:00 in summer time that began at 2:00
  const std::time_t autumn = utc(2026, 10, 25, 11);  // 12:00 in winter time that began at 3:00
  const struct {
    const char* zone;
    std::time_t now;
    std::uint32_t schedule;
    long period, until, wantPeriod;
    std::time_t wantEnd;
  } rows[] = {
      {"UTC0", kNow, h8 | h12, 0, 0, 2 * hour + 1800, kNow},
      {"UTC0", kNow, h18, 0, 0, 14 * hour + 1800, kNow},
      {"UTC0", kNow, 0, 0, 0, 14 * hour + 1800, kNow},
      {"UTC0", kNow, h8 | h14 | h15, 0, 0, 1800, kNow},
      {"UTC0", noon, h12, 0, 0, day, noon},
      {"UTC0", noon - 1, h8 | h12, 0, 0, 4 * hour - 1, noon - 1},
      {"UTC0", kNow, h12, 0, noon, day, noon},
      {"UTC0", kNow, h12, 0, noon + 1, 1, noon + 1},
      {"UTC0", kNow, h12, 0, noon - 1, day, noon - 1},
      {"UTC0", kNow, h12, 0, -5, day, -5},
      {"UTC0", kNow, h12, 0, kNow + day, day + 2 * hour + 1800, kNow + day},
      {"UTC0", kNow, h12, 100000, 0, 100000, kNow},
      {"UTC0", kNow, h12, -7, noon, -7, noon},
      {"UTC0", utc(2026, 3, 10, 23, 59, 59), 0xff800000, 0, 0, 3599, utc(2026, 3, 10, 23, 59, 59)},
      {"UTC0", utc(2026, 3, 10, 0), 1, 0, 0, day, utc(2026, 3, 10, 0)},
      {berlin, spring, 0, 0, 0, 11 * hour, spring},
      {berlin, spring, 1U << 1, 0, 0, 10 * hour, spring},
      {berlin, autumn, 0, 0, 0, 13 * hour, autumn},
      {berlin, utc(2026, 7, 1, 22, 30), h8, 0, 0, 1800, utc(2026, 7, 1, 22, 30)},  // the next day there
  };
  for (const auto& row : rows) {
    startAnew();
    setTimeZone(row.zone);
    Fake::setClock(row.now);
    world().spamReport.schedule = row.schedule;
    const Probe report("u@d.example", "", row.period, row.until);
    EXPECT_EQ(report.periodSeconds, row.wantPeriod) << "schedule " << row.schedule << " until " << row.until;
    EXPECT_EQ(report.periodEnd, row.wantEnd);
  }
}

}  // namespace
}  // namespace Velmar
