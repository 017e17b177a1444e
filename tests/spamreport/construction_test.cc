// What a new report knows: its checks in order, every setting with its source, and how records are loaded.

#include <barrier>
#include <chrono>
#include <cstring>
#include <thread>

#include "spamreport/web_host.h"
#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using ConstructionTest = ReportTest;

TEST_F(ConstructionTest, RefusesInThisOrder) {
  const struct {
    const char* address;
    int cured;  // faults taken away, the first ones
    const char *wantText, *wantLastCall;
  } rows[] = {
      {" no address ", 0, "Invalid user:  no address  (SpamreportGenerator:381", "rfc5322Parse( no address ,true)"},
      {"u", 0, "Invalid user: u (SpamreportGenerator:381", "rfc5322Parse(u,true)"},
      {"U <u@d>", 0, "Invalid user domain u@d (SpamreportGenerator:397", "ApsGwServerCache::find(d)"},
      {"u@d", 1, "Invalid host or localdomain (SpamreportGenerator:481", "cfg_get_localdomain_or_host(257)"},
      {"u@d", 2, "Invalid or Non quarantine release name  (SpamreportGenerator:495", "cmf_shm_read_unlock(801)"},
      {"u@d", 3, "Invalid or Non quarantine delete name  (SpamreportGenerator:507", "rfc5322Parse(release@gw,true)"},
  };
  for (const auto& row : rows) {
    startAnew();
    if (row.cured >= 1) Fake::domain("d");
    world().localDomain = row.cured >= 2 ? std::optional<std::string>("gw") : std::nullopt;
    if (row.cured < 3) setText(world().sysAntispam.releaseName, "");
    setText(world().sysAntispam.deleteName, "");
    const std::string want = std::string("SpamreportException: ") + row.wantText + ", level 4)";
    EXPECT_THAT([&] { Probe report(row.address); }, Throws<Exception>(Property(&Exception::asString, want)));
    EXPECT_EQ(world().calls.back(), row.wantLastCall);
  }
}

TEST_F(ConstructionTest, TheDomainRecordDecides) {
  const Probe plain(" U <u@d.example>");
  EXPECT_EQ(plain.language, "en");
  EXPECT_EQ(&plain.charsets(), &plain.charsets());
  EXPECT_EQ(callsOf({"RefQRLStatic"}).size(), 1U);  // bound on first use
  EXPECT_EQ(plain.messageIdValue, "QID.release@gw.example");
  EXPECT_EQ(plain.accessHash, "34b2bba7c199149270be5cf39d4e182d");  // over the argument as it was passed

  ApsGwServer& domain = Fake::domain("d.example");
  domain.sendToRecipient = false;
  domain.groupOwnerOption = domain.groupOwnerOnly = domain.useOwnTemplate = true;
  domain.groupOwnerLdapProfile = 7;
  domain.otherRecipients = "o@x";
  domain.templateName = "own";
  domain.profileDomain = 3000000000U;
  for (const bool on : {false, true}) {
    domain.sendToGroupOwner = domain.sendToOthers = on;
    const Probe report;
    EXPECT_FALSE(report.sendToRecipient);
    EXPECT_TRUE(report.groupOwnerOption && report.groupOwnerOnly && report.useDomainTemplate);
    EXPECT_EQ(report.sendToGroupOwner && report.sendToOthers, on);
    EXPECT_EQ(report.groupOwnerLdapProfile, on ? 7 : -1);
    EXPECT_EQ(report.templateName + " " + report.otherRecipients, on ? "own o@x" : "own ");
    EXPECT_EQ(callsOf({"createProfile"}).back(), "createProfileAntiSpam(5,3000000000)");
  }
}

TEST_F(ConstructionTest, PolicyAndProfileSwitch) {
  const struct {
    bool policy;
    int profile;
    std::uint32_t policyFlag, group;
    int mailMode;
    const char* want;  // report, e-mail, web, whitelist of the profile; flag of group or policy; profiles asked for
  } rows[] = {
      {false, 1, 1, 0, 2, "----- 0"}, {true, 0, 1, 21, 2, "----- 0"}, {true, 9, 8, 0, 2, "----f 1"},
      {true, 1, 0, 0, 2, "r-w-- 1"},  {true, 2, 0, 0, 2, "-mw-- 1"},  {true, -6, 0x80000000, 0, 4, "---lf 1"},
      {true, 1, 0, 21, 1, "r-w-f 1"}, {true, 1, 1, 20, 1, "r-w-- 1"}, {true, 1, 1, 22, 1, "r-w-- 1"},
      {true, 1, 0, 21, 0, "r-w-- 1"},
  };
  for (const auto& row : rows) {
    startAnew();
    world().policies.clear();
    if (row.policy) world().policies["u@d.example"] = {1, row.policyFlag, row.profile, row.group, 1};
    world().profiles = {{{1, 0}, {true, false, true, false}},
                        {{2, 0}, {false, true, true, false}},
                        {{-6, 0}, {false, false, false, true}}};
    world().userGroups = {{20, {20, 0}}, {21, {21, 0x80000000}}};
    world().mailMode = row.mailMode;
    const Probe report;
    std::string got = "----- " + std::to_string(callsOf({"createProfile"}).size());
    if (report.quarantineReportEnabled) got[0] = 'r';
    if (report.emailReleaseEnabled) got[1] = 'm';
    if (report.webReleaseEnabled) got[2] = 'w';
    if (report.whitelistSenderEnabled) got[3] = 'l';
    if (report.userGroupFlag) got[4] = 'f';
    EXPECT_EQ(got, row.want) << &row - rows;
    EXPECT_EQ(report.policy.get() != nullptr, row.policy) << &row - rows;
  }
}

TEST_F(ConstructionTest, AGivenPolicyIsSharedAndANewOneIsZero) {
  RefRecipientPolicy copy(false);
  EXPECT_EQ(copy.get(), nullptr);
  {
    const RefRecipientPolicy given(true);
    const Probe report("u@d.example", "", 0, 0, given);
    EXPECT_EQ(report.policy.get(), given.get());
    copy = report.policy;
  }
  EXPECT_THAT(callsOf({"cfg_get_managed", "createProfile"}), IsEmpty());
  const unsigned char zero[sizeof copy.get()->record] = {};
  EXPECT_EQ(std::memcmp(&copy.get()->record, zero, sizeof zero), 0);
}

TEST_F(ConstructionTest, HighAvailabilityEmptiesTheWebHost) {
  for (const AvailabilityState& state : std::initializer_list<AvailabilityState>{
           {2, 0, 0}, {2, 2, 1}, {4, 0, 1}, {5, 0, 0}, {5, 0, 2}, {0xffffffff, 0, 0}})
    EXPECT_TRUE(leavesWebHostEmpty(state)) << state.haMode;
  for (const AvailabilityState& state : std::initializer_list<AvailabilityState>{
           {0, 0, 1}, {1, 0, 1}, {2, 1, 1}, {3, 0, 1}, {4, 0, 0}, {4, 0, 2}, {4, 1, 1}, {5, 1, 0}})
    EXPECT_FALSE(leavesWebHostEmpty(state)) << state.haMode;
  world().highAvailability.mode = 4;
  world().nasStorage.mode = 1;
  EXPECT_EQ(Probe().webBaseUrl, "https://");
  EXPECT_THAT(logged(), ElementsAre("Logger::log(8000c,0,%s, )"));
  world().global.haSyncFlag = 1;
  EXPECT_EQ(Probe().webBaseUrl, "https://web.example");
}

TEST_F(ConstructionTest, WebHostByTheFirstRuleThatApplies) {
  const vlm_ip_address v4{2, {192, 0, 2, 7}};
  const vlm_ip_address v6{10, {0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}};
  const auto webHost = [](const char* configured, int mailMode, const vlm_ip_address& first) {
    startAnew();
    setText(world().spamReport.webHost, configured);
    world().mailMode = mailMode;
    world().interfaces = {{1, "eth0", first}, {2, "eth1", {2, {198, 51, 100, 1}}}};
    return Probe().webHost;
  };
  EXPECT_EQ(webHost("web.example", 4, v4), "web.example");
  EXPECT_EQ(webHost("192.0.2.1", 1, v4), "192.0.2.1");
  EXPECT_EQ(webHost("2001:db8::9", 1, v4), "[2001:db8::9]");
  EXPECT_EQ(webHost("", 4, v4), "192.0.2.7");
  EXPECT_EQ(webHost("", 4, v6), "[2001:db8::1]");
  EXPECT_EQ(webHost("", 3, v4), "host.example");
}

TEST_F(ConstructionTest, SettlesThePeriod) {
  setTimeZone("CET-1CEST,M3.5.0,M10.5.0/3");
  const long hour = 3600, day = 86400;
  const std::time_t noon = kNow - 3 * hour - 1800, midnight = noon - 12 * hour;
  const std::time_t spring = 1774778400;  // 12:00 in summer time that began at 2:00
  const std::time_t autumn = 1792926000;  // 12:00 in winter time that began at 3:00
  const struct {
    std::time_t now;
    std::set<int> schedule;  // hours
    long period, until, want;
  } rows[] = {
      {kNow, {8, 12}, 0, 0, 3 * hour + 1800},
      {kNow, {18}, 0, 0, 15 * hour + 1800},
      {kNow, {8, 15, 16}, 0, 0, 1800},
      {noon, {12}, 0, 0, day},
      {noon - 1, {8, 12}, 0, 0, 4 * hour - 1},
      {kNow, {12}, 0, noon + 1, 1},
      {kNow, {12}, 100000, 0, 100000},
      {midnight - 1, {23, 24, 31}, 0, 0, 3599},
      {midnight, {0}, 0, 0, day},
      {spring, {1}, 0, 0, 10 * hour},
      {autumn, {}, 0, 0, 13 * hour},
  };
  for (const auto& row : rows) {
    startAnew();
    Fake::setClock(row.now);
    for (const int at : row.schedule) world().spamReport.schedule |= 1U << at;
    const Probe report("u@d.example", "", row.period, row.until);
    EXPECT_EQ(report.periodSeconds, row.want) << "row " << &row - rows;
    EXPECT_EQ(report.periodEnd, row.until ? row.until : row.now);
  }
}

TEST_F(ConstructionTest, ThreadsLoadARecordOnceAndItStays) {
  world().spamReport.accessLinkHours = 42;
  world().onQuery = [] { std::this_thread::sleep_for(std::chrono::milliseconds(50)); };  // the others arrive meanwhile
  std::barrier start(8);
  std::vector<std::thread> threads;
  std::vector<const void*> seen(8);
  for (const void*& mine : seen) {
    threads.emplace_back([&mine, &start] {
      start.arrive_and_wait();
      const auto handle = CMF::RefSpamReportSettings::instance(false);
      if (handle->record().accessLinkHours == 42) mine = handle.get();
    });
  }
  for (std::thread& thread : threads) thread.join();
  world().spamReport.accessLinkHours = 43;
  const auto later = CMF::RefSpamReportSettings::instance(false);
  EXPECT_EQ(later->record().accessLinkHours, 42);
  EXPECT_EQ(seen, std::vector<const void*>(8, later.get()));
  EXPECT_THAT(world().calls,
              ElementsAre("cmf_query_create_withdomain(0,450)", "cmf_query_update(450)", "cmf_shm_read_unlock(450)"));
}

TEST_F(ConstructionTest, AFailedLoadIsTriedAgain) {
  failCall("cmf_query_update", 1, Failure::Standard);
  EXPECT_THROW(CMF::RefNasStorage::instance(false), std::runtime_error);
  world().nasStorage.mode = 9;
  EXPECT_EQ(CMF::RefNasStorage::instance(false)->record().mode, 9U);
}

}  // namespace
}  // namespace Velmar
