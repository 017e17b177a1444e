// Loading the process's configuration, and the operations on what was loaded: queries, tables, policies, domains,
// profiles.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <atomic>
#include <memory>
#include <thread>
#include <tuple>
#include <vector>

#include "host/common/host_config.h"
#include "host/config_store/pattern.h"
#include "host/host.h"
#include "platform/antispam_profiles.h"
#include "platform/config_store.h"
#include "tests/support/temp_root.h"

namespace Velmar {
namespace {

constexpr char kConfig[] = R"(
global = {host_name = "mail.example.org", local_domain = "example.org", mail_mode = 3, debug_mask = 9, ha_sync_flag = 1}
spam_report = {schedule = [0, 8, 23], port = 8443, access_link_hours = -1, web_host = "2001:db8::1", template = "plain"}
high_availability.mode = 4
storage.mode = 1
remote_storage.enabled = true
mail_server.smtp_port = 2525
antispam = {release_account = "release", delete_account = "delete"}
interface = [{name = "eth0", address = "192.0.2.1"}, {name = "eth1", address = "2001:db8::2"}]
recipient_policy = [
  {address = "off@*", enabled = false, antispam_profile = 1},
  {address = "Other@*", spam_report = false},
  {address = "*@EXAMPLE.org", flag = 9, antispam_profile = 1, user_group = 3},
  {address = "*@example.*"},
]
user_group = [{number = 3, flag = 0x80000000}]
antispam_profile = [{number = 1, quarantine_report = true}, {number = 1, domain = 5, email_release = true},
  {number = 2, web_release = true, whitelist_sender = true}]
ldap_profile = [{number = 7, urls = ["ldap://h"], user_base = "o=x"}]
[[domain]]
name = "Example.ORG"
send_to_recipient = false
send_to_group_owner = true
group_owner_option = true
group_owner_only = true
ldap_profile = 7
send_to_others = true
other_recipients = "a@example.org, b@example.net"
own_template = true
template = "branded"
profile_domain = 5
[[domain]]
name = "example.net"
main_domain = "EXAMPLE.org"
)";

std::string loadFault() try {
  Host::hostConfig();
  return "";
} catch (const Exception& exception) {
  return exception.text();
}

/// How many of eight threads that ask at once get a configuration.
int threadsThatLoad() {
  std::atomic<int> loaded{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back([&loaded] { loaded += loadFault().empty() ? 1 : 0; });
  for (std::thread& thread : threads) thread.join();
  return loaded;
}

/// A process loads its configuration once: what is wrong with the file is told, a failed load is tried again, and
/// what was loaded stays.
class LoadedConfiguration : public testing::Environment {
  void SetUp() override {
    const std::string path = Host::hostConfigPath();
    const std::string name = "etc/velmar/host.toml";
    root_.makeDirectory("etc/velmar");
    EXPECT_EQ(loadFault(), path + ": cannot be opened: No such file or directory");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(loadFault(), path + ": is no regular file");
    std::filesystem::remove(path);
    root_.write(name, kConfig);
    std::filesystem::resize_file(path, std::uintmax_t{1} << 40);
    EXPECT_EQ(loadFault(), path + ": has 1099511627776 bytes, at most 8388608 fit");
    root_.write(name, "[global]\nhost_name = 5\n");
    EXPECT_EQ(loadFault(), path + ":2: global.host_name: 5: must be a text in quotes");
    EXPECT_EQ(threadsThatLoad(), 0);
    root_.write(name, kConfig);
    EXPECT_EQ(threadsThatLoad(), 8);
    root_.write(name, "nonsense");
    EXPECT_EQ(threadsThatLoad(), 8);
  }
  const Testing::TempRoot root_;
};

const auto* const kLoaded = testing::AddGlobalTestEnvironment(new LoadedConfiguration);

using Query = std::unique_ptr<cmf_query, decltype(&cmf_shm_read_unlock)>;

Query queryOf(G_CLI_GID gid) { return {cmf_query_create_withdomain(0, gid), cmf_shm_read_unlock}; }

template <class Record>
Record recordOf(G_CLI_GID gid) {
  return *static_cast<const Record*>(cmf_query_update(queryOf(gid).get()));
}

TEST(ConfigStore, QueriesGiveTheirRecords) {
  const auto report = recordOf<__aps_spam_report>(G_CLI_SPAM_REPORT);
  EXPECT_EQ(report.schedule, 1U | 1U << 8 | 1U << 23);
  EXPECT_EQ(report.port, 8443U);
  EXPECT_EQ(report.accessLinkHours, -1);
  EXPECT_STREQ(report.webHost, "2001:db8::1");
  EXPECT_STREQ(report.templateName, "plain");
  EXPECT_EQ(recordOf<__velmar_ha>(G_CLI_VELMAR_HA).mode, 4U);
  EXPECT_EQ(recordOf<__nas_storage_t>(G_CLI_NAS_STORAGE).mode, 1U);
  EXPECT_EQ(recordOf<__aps_remote_storage>(G_CLI_REMOTE_STORAGE).enabled, 1U);
  EXPECT_EQ(recordOf<__aps_mailserver>(G_CLI_MAILSERVER).smtpPort, 2525U);
  EXPECT_EQ(qrl_mail_mode(), 3);
  EXPECT_EQ(nCfg_debug_zone()->debugMask, 9U);
  EXPECT_EQ(nCfg_debug_zone()->haSyncFlag, 1U);
  EXPECT_STREQ(nCfg_debug_zone()->hostName, "mail.example.org");
  const Query query = queryOf(G_CLI_INTERFACE);
  const auto* head = static_cast<const __aps_interface*>(cmf_query_table_head(query.get()));
  EXPECT_STREQ(head->name, "eth0");
  EXPECT_EQ(head->address.family, 2U);
}

TEST(ConfigStore, RefusesWhatItDoesNotKeep) {
  EXPECT_THROW(cmf_query_create_withdomain(1, G_CLI_SPAM_REPORT), Exception);
  EXPECT_THROW(cmf_query_create_withdomain(0, static_cast<G_CLI_GID>(2)), Exception);
  EXPECT_THROW(cmf_query_table_head(queryOf(G_CLI_SPAM_REPORT).get()), Exception);
  __aps_user_group group{};
  EXPECT_THROW(vlm_cmf_get_table_data_by_ngid(G_CLI_SPAM_REPORT, 1, &group, sizeof group), Exception);
  EXPECT_THROW(vlm_cmf_get_table_data_by_ngid(G_CLI_USER_GROUP, 3, &group, sizeof group - 1), Exception);
  __recipient_policy policy{};
  EXPECT_THROW(cfg_get_managed_recipient_policy_with_filter("a@example.org", &policy, nullptr, 1, 1), Exception);
}

TEST(ConfigStore, RowsByNumber) {
  __aps_user_group group{77, 78};
  EXPECT_EQ(vlm_cmf_get_table_data_by_ngid(G_CLI_USER_GROUP, 4, &group, sizeof group), 0);
  EXPECT_EQ(group.flag, 78U);
  EXPECT_EQ(vlm_cmf_get_table_data_by_ngid(G_CLI_USER_GROUP, 3, &group, sizeof group), 1);
  EXPECT_EQ(group.flag, 0x80000000U);
  __aps_interface row{};
  for (const std::uint32_t none : {0U, 3U, 0xffffffffU})
    EXPECT_EQ(vlm_cmf_get_table_data_by_ngid(G_CLI_INTERFACE, none, &row, sizeof row), 0) << none;
  EXPECT_EQ(vlm_cmf_get_table_data_by_ngid(G_CLI_INTERFACE, 2, &row, sizeof row), 1);
  EXPECT_EQ(row.address.family, 10U);
  EXPECT_EQ(row.address.bytes[15], 2U);
}

TEST(RecipientPolicies, FirstThatMatchesAndQualifies) {
  using Row = std::tuple<const char*, recipient_policy_filter, int, std::uint32_t>;  // the last: the policy, 0 = none
  const auto reports = vlm_recipient_policy_spamreport_filter;
  const std::vector<Row> rows = {
      {"A@Example.Org", reports, 1, 3},     {"a@example.net", reports, 1, 4},     {"off@example.org", reports, 1, 3},
      {"off@example.org", reports, 0, 1},   {"OFF@nowhere", reports, 1, 0},       {"other@example.org", reports, 1, 3},
      {"other@example.org", nullptr, 1, 2}, {"a@sub.example.org", reports, 1, 0}, {"", reports, 1, 0},
  };
  for (const auto& [address, filter, managed, want] : rows) {
    __recipient_policy policy{0, 1234, 0, 0, 0};
    const int status = cfg_get_managed_recipient_policy_with_filter(address, &policy, filter, 0, managed);
    EXPECT_EQ(status == 0, want != 0) << address;
    EXPECT_EQ(policy.ngid, want) << address;
    EXPECT_EQ(policy.flag == 1234, want == 0) << "left as it was: " << address;
  }
  __recipient_policy policy{};
  ASSERT_EQ(cfg_get_managed_recipient_policy_with_filter("a@example.org", &policy, nullptr, 0, 1), 0);
  EXPECT_EQ(policy.flag, 9U);
  EXPECT_EQ(policy.antispamProfile, 1);
  EXPECT_EQ(policy.userGroup, 3U);
}

TEST(Pattern, Matches) {  // PATTERN:TEXT
  const std::vector<std::string> same = {
      ":",          "**:",    "*:any\nthing", "?:\xc3\xa4",     "??:\xe2\x82\xac\xc3\xa4",
      "?:\xa4\xa4", "a*c:ac", "*ab:aab",      "*a*b*:xxbxaxxb", "a?c*:abc",
      "*@x:a@b@x"};
  const std::vector<std::string> other = {
      ":a", "?:", "?:ab", "??:\xc3\xa4", "*??@x:\xe2\x82\xac@x", "a*c:abbcd", "*a*b*:xxbxaxx", "[ab]:a", "a\\*:a*"};
  const auto matches = [](const std::string& row) {
    return Host::patternMatches(row.substr(0, row.find(':')), row.substr(row.find(':') + 1));
  };
  for (const std::string& row : same) EXPECT_TRUE(matches(row)) << row;
  for (const std::string& row : other) EXPECT_FALSE(matches(row)) << row;
}

TEST(Pattern, WorstCaseTakesBoundedTime) {
  // Trying each place of each "*" would run into the time limit of the test.
  std::string stars;
  for (int i = 0; i < 128; ++i) stars += "*aa?";
  EXPECT_FALSE(Host::patternMatches(stars + "b", std::string(65536, 'a')));
}

TEST(Domains, AreFoundWithoutRegardToCase) {
  const RefApsGwServerCache cache = RefApsGwServerCache::instance(false);
  const Ref<ApsGwServer> domain = cache->find("EXAMPLE.org");
  EXPECT_EQ(domain->domain, "example.org");
  EXPECT_TRUE(domain->sendToGroupOwner && domain->groupOwnerOption && domain->groupOwnerOnly && domain->sendToOthers &&
              domain->useOwnTemplate && !domain->sendToRecipient);
  EXPECT_EQ(domain->groupOwnerLdapProfile, 7);
  EXPECT_EQ(domain->otherRecipients + " " + domain->templateName, "a@example.org, b@example.net branded");
  EXPECT_EQ(domain->profileDomain, 5U);
  for (const char* unknown : {"", "example", "sub.example.org", "BÜCHER.example"})
    EXPECT_TRUE(cache->find(unknown).isNull()) << unknown;
  EXPECT_STREQ(cfg_get_main_domain_name("Example.NET", 0), "example.org");
  for (const char* none : {"example.org", "unknown", ""}) EXPECT_EQ(cfg_get_main_domain_name(none, 0), nullptr);
  EXPECT_THAT(Host::configuredDomains(), testing::ElementsAre("example.org", "example.net"));
}

TEST(ConfigStore, LocalDomainFitsOrNothingIsWritten) {
  char buffer[13] = "xxxxxxxxxxxx";
  EXPECT_NE(cfg_get_localdomain_or_host(buffer, 0), 0);
  EXPECT_EQ(buffer[0], 'x');
  EXPECT_NE(cfg_get_localdomain_or_host(buffer, 11), 0);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(cfg_get_localdomain_or_host(buffer, 12), 0);
  EXPECT_STREQ(buffer, "example.org");
}

TEST(AntispamProfiles, DomainFirstThenSystem) {
  ProfileFactory* factory = ProfileFactory::instance();
  EXPECT_TRUE(factory->createProfileAntiSpam(1, 0).quarantineReport());
  const ProfileAntiSpam own = factory->createProfileAntiSpam(1, 5);
  EXPECT_TRUE(own.quarantineEmailRelease() && !own.quarantineReport());
  EXPECT_TRUE(factory->createProfileAntiSpam(1, 6).quarantineReport());
  const ProfileAntiSpam system = factory->createProfileAntiSpam(2, 5);
  EXPECT_TRUE(system.quarantineWebRelease() && system.quarantineWhitelistSender());
  EXPECT_FALSE(system.quarantineReport() || system.quarantineEmailRelease());
  for (const int none : {0, -1, 3}) EXPECT_TRUE(factory->createProfileAntiSpam(none, 5).isNull()) << none;
}

}  // namespace
}  // namespace Velmar
