// The operations on a loaded configuration: queries, tables, policies, domains, profiles. The process loads the one
// configuration below.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>

#include "host/config_store/pattern.h"
#include "host/host.h"
#include "platform/antispam_profiles.h"
#include "platform/config_store.h"
#include "tests/host/config_store/temporary_root.h"

namespace Velmar {
namespace {

constexpr std::string_view kConfig = R"(
[global]
host_name = "mail.example.org"
local_domain = "example.org"
mail_mode = 3
debug_mask = 0x80008
ha_sync_flag = 1
[spam_report]
schedule = [0, 8, 23]
port = 8443
access_link_hours = -1
web_host = "2001:db8::1"
template = "plain"
[antispam]
release_account = "release"
delete_account = "delete"
[high_availability]
mode = 4
[storage]
mode = 1
[remote_storage]
enabled = true
[mail_server]
smtp_port = 2525
[[interface]]
name = "eth0"
address = "192.0.2.1"
[[interface]]
name = "eth1"
address = "2001:db8::2"
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
[[domain]]
name = "bücher.example"
[[recipient_policy]]
address = "off@*"
enabled = false
antispam_profile = 1
[[recipient_policy]]
address = "Other@*"
spam_report = false
[[recipient_policy]]
address = "*@EXAMPLE.org"
flag = 9
antispam_profile = 1
user_group = 3
[[recipient_policy]]
address = "*@example.*"
[[user_group]]
number = 3
flag = 0x80000000
[[antispam_profile]]
number = 1
quarantine_report = true
[[antispam_profile]]
number = 1
domain = 5
email_release = true
[[antispam_profile]]
number = 2
web_release = true
whitelist_sender = true
)";

class LoadedConfiguration : public testing::Environment {
  void SetUp() override {
    root_ = std::make_unique<Host::TemporaryRoot>();
    root_->configure(kConfig);
  }
  void TearDown() override { root_.reset(); }
  std::unique_ptr<Host::TemporaryRoot> root_;
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
  const auto antispam = recordOf<__aps_sys_antispam>(G_CLI_SYS_ANTISPAM);
  EXPECT_STREQ(antispam.releaseName, "release");
  EXPECT_STREQ(antispam.deleteName, "delete");
  EXPECT_EQ(recordOf<__velmar_ha>(G_CLI_VELMAR_HA).mode, 4U);
  EXPECT_EQ(recordOf<__nas_storage_t>(G_CLI_NAS_STORAGE).mode, 1U);
  EXPECT_EQ(recordOf<__aps_remote_storage>(G_CLI_REMOTE_STORAGE).enabled, 1U);
  EXPECT_EQ(recordOf<__aps_mailserver>(G_CLI_MAILSERVER).smtpPort, 2525U);
  EXPECT_EQ(qrl_mail_mode(), 3);
  EXPECT_EQ(nCfg_debug_zone()->debugMask, 0x80008U);
  EXPECT_EQ(nCfg_debug_zone()->haSyncFlag, 1U);
  EXPECT_STREQ(nCfg_debug_zone()->hostName, "mail.example.org");
}

TEST(ConfigStore, TableHeadIsTheFirstRowOfTheFile) {
  const Query query = queryOf(G_CLI_INTERFACE);
  const auto* head = static_cast<const __aps_interface*>(cmf_query_table_head(query.get()));
  ASSERT_NE(head, nullptr);
  EXPECT_STREQ(head->name, "eth0");
  EXPECT_EQ(head->address.family, 2U);
  const unsigned char want[] = {192, 0, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(std::memcmp(head->address.bytes, want, sizeof want), 0);
}

TEST(ConfigStore, RefusesWhatItDoesNotKeep) {
  EXPECT_THROW(cmf_query_create_withdomain(1, G_CLI_SPAM_REPORT), Exception);
  EXPECT_THROW(cmf_query_create_withdomain(0, static_cast<G_CLI_GID>(2)), Exception);
  EXPECT_THROW(cmf_query_table_head(queryOf(G_CLI_SPAM_REPORT).get()), Exception);
  __aps_user_group group{};
  EXPECT_THROW(vlm_cmf_get_table_data_by_ngid(G_CLI_SPAM_REPORT, 1, &group, sizeof group), Exception);
  EXPECT_THROW(vlm_cmf_get_table_data_by_ngid(G_CLI_USER_GROUP, 3, &group, sizeof group - 1), Exception);
  EXPECT_THROW(vlm_cmf_get_table_data_by_ngid(G_CLI_USER_GROUP, 4, &group, sizeof group + 1), Exception);
  __recipient_policy policy{};
  EXPECT_THROW(cfg_get_managed_recipient_policy_with_filter("a@example.org", &policy, nullptr, 1, 1), Exception);
  cmf_shm_read_unlock(nullptr);
}

TEST(ConfigStore, RowsByNumber) {
  __aps_user_group group{77, 78};
  EXPECT_EQ(vlm_cmf_get_table_data_by_ngid(G_CLI_USER_GROUP, 4, &group, sizeof group), 0);
  EXPECT_EQ(group.ngid, 77U);
  EXPECT_EQ(group.flag, 78U);
  EXPECT_EQ(vlm_cmf_get_table_data_by_ngid(G_CLI_USER_GROUP, 3, &group, sizeof group), 1);
  EXPECT_EQ(group.ngid, 3U);
  EXPECT_EQ(group.flag, 0x80000000U);
  __aps_interface row{};
  for (const std::uint32_t none : {0U, 3U, 0xffffffffU})
    EXPECT_EQ(vlm_cmf_get_table_data_by_ngid(G_CLI_INTERFACE, none, &row, sizeof row), 0) << none;
  EXPECT_EQ(vlm_cmf_get_table_data_by_ngid(G_CLI_INTERFACE, 2, &row, sizeof row), 1);
  EXPECT_STREQ(row.name, "eth1");
  EXPECT_EQ(row.address.family, 10U);
  EXPECT_EQ(row.address.bytes[15], 2U);
}

TEST(RecipientPolicies, FirstThatMatchesAndQualifies) {
  const auto reports = vlm_recipient_policy_spamreport_filter;
  const struct {
    const char* address;
    recipient_policy_filter filter;
    int managed;
    std::uint32_t want;  // number of the policy, 0 = none
  } kLookups[] = {
      {"a@example.org", reports, 1, 3},   {"A@Example.Org", reports, 1, 3},     {"a@example.net", reports, 1, 4},
      {"off@example.org", reports, 1, 3}, {"off@example.org", reports, 0, 1},   {"off@nowhere", reports, 1, 0},
      {"OFF@nowhere", nullptr, 0, 1},     {"other@example.org", reports, 1, 3}, {"other@example.org", nullptr, 1, 2},
      {"other@nowhere", reports, 1, 0},   {"a@sub.example.org", reports, 1, 0}, {"", reports, 1, 0},
  };
  for (const auto& [address, filter, managed, want] : kLookups) {
    __recipient_policy policy{0, 1234, 0, 0, 0};
    const int status = cfg_get_managed_recipient_policy_with_filter(address, &policy, filter, 0, managed);
    EXPECT_EQ(status == 0, want != 0) << address;
    EXPECT_EQ(policy.ngid, want) << address;
    EXPECT_EQ(policy.flag == 1234, want == 0) << "left as it was: " << address;
  }
}

TEST(RecipientPolicies, RecordIsFilledWhole) {
  __recipient_policy policy{};
  ASSERT_EQ(cfg_get_managed_recipient_policy_with_filter("a@example.org", &policy, nullptr, 0, 1), 0);
  EXPECT_EQ(policy.flag, 9U);
  EXPECT_EQ(policy.antispamProfile, 1);
  EXPECT_EQ(policy.userGroup, 3U);
  EXPECT_EQ(policy.spamReport, 1U);
}

TEST(Pattern, Matches) {
  const struct {
    const char* pattern;
    const char* text;
    bool want;
  } kPatterns[] = {
      {"", "", true},
      {"", "a", false},
      {"*", "", true},
      {"*", "any\nthing", true},
      {"**", "a", true},
      {"?", "", false},
      {"?", "a", true},
      {"?", "ab", false},
      {"?", "\xc3\xa4", true},
      {"??", "\xc3\xa4", false},
      {"??", "\xe2\x82\xac\xc3\xa4", true},
      {"*?@x", "\xe2\x82\xac@x", true},
      {"*??@x", "\xe2\x82\xac@x", false},
      {"?", "\xa4\xa4", true},  // stray bytes make one character
      {"a*c", "abbc", true},
      {"a*c", "abbcd", false},
      {"a*c", "ac", true},
      {"*ab", "aab", true},
      {"*a*b*", "xxbxaxxb", true},
      {"*a*b*", "xxbxaxx", false},
      {"a?c*", "abc", true},
      {"*.org", "a@example.org", true},
      {"*@example.org", "a@b@example.org", true},
      {"*@example.org", "a@example.org.", false},
      {"[ab]", "a", false},
      {"a\\*", "a*", false},
      {"a*", "a*", true},
  };
  for (const auto& [pattern, text, want] : kPatterns)
    EXPECT_EQ(Host::patternMatches(pattern, text), want) << pattern << " on " << text;
}

TEST(Pattern, WorstCaseTakesBoundedTime) {
  const std::string text(65536, 'a');
  std::string stars;
  for (int i = 0; i < 128; ++i) stars += "*aa?";
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(Host::patternMatches("*" + std::string(510, 'a') + "b", text));  // each place of "*" is tried to the end
  EXPECT_FALSE(Host::patternMatches(stars + "b", text));
  EXPECT_TRUE(Host::patternMatches(stars, text));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

TEST(Domains, RecordsAreFoundWithoutRegardToCase) {
  const RefApsGwServerCache cache = RefApsGwServerCache::instance(false);
  EXPECT_EQ(RefApsGwServerCache::instance(true).get(), cache.get());
  const Ref<ApsGwServer> domain = cache->find("EXAMPLE.org");
  ASSERT_FALSE(domain.isNull());
  EXPECT_EQ(domain->domain, "example.org");
  EXPECT_FALSE(domain->sendToRecipient);
  EXPECT_TRUE(domain->sendToGroupOwner);
  EXPECT_TRUE(domain->groupOwnerOption);
  EXPECT_TRUE(domain->groupOwnerOnly);
  EXPECT_EQ(domain->groupOwnerLdapProfile, 7);
  EXPECT_TRUE(domain->sendToOthers);
  EXPECT_EQ(domain->otherRecipients, "a@example.org, b@example.net");
  EXPECT_TRUE(domain->useOwnTemplate);
  EXPECT_EQ(domain->templateName, "branded");
  EXPECT_EQ(domain->profileDomain, 5U);
  EXPECT_FALSE(cache->find("bücher.example").isNull());
  for (const char* unknown : {"", "example", "sub.example.org", "BÜCHER.example"})
    EXPECT_TRUE(cache->find(unknown).isNull()) << unknown;
}

TEST(Domains, MainDomain) {
  EXPECT_STREQ(cfg_get_main_domain_name("Example.NET", 0), "example.org");
  for (const char* none : {"example.org", "unknown.example", ""})
    EXPECT_EQ(cfg_get_main_domain_name(none, 0), nullptr) << none;
}

TEST(Domains, NamesInTheOrderOfTheFile) {
  EXPECT_THAT(Host::configuredDomains(), testing::ElementsAre("example.org", "example.net", "bücher.example"));
}

TEST(ConfigStore, LocalDomainFitsOrNothingIsWritten) {
  char buffer[13] = "xxxxxxxxxxxx";
  EXPECT_NE(cfg_get_localdomain_or_host(buffer, 0), 0);
  EXPECT_EQ(buffer[0], 'x');
  EXPECT_NE(cfg_get_localdomain_or_host(buffer, 11), 0);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(buffer[1], 'x');
  EXPECT_EQ(cfg_get_localdomain_or_host(buffer, 12), 0);
  EXPECT_STREQ(buffer, "example.org");
  EXPECT_EQ(buffer[12], '\0');
}

TEST(AntispamProfiles, DomainFirstThenSystem) {
  ProfileFactory* factory = ProfileFactory::instance();
  EXPECT_TRUE(factory->createProfileAntiSpam(1, 0).quarantineReport());
  EXPECT_FALSE(factory->createProfileAntiSpam(1, 5).quarantineReport());
  EXPECT_TRUE(factory->createProfileAntiSpam(1, 5).quarantineEmailRelease());
  EXPECT_TRUE(factory->createProfileAntiSpam(1, 6).quarantineReport());
  const ProfileAntiSpam system = factory->createProfileAntiSpam(2, 5);
  EXPECT_FALSE(system.isNull());
  EXPECT_TRUE(system.quarantineWebRelease());
  EXPECT_TRUE(system.quarantineWhitelistSender());
  EXPECT_FALSE(system.quarantineReport() || system.quarantineEmailRelease());
  for (const int none : {0, -1, 3}) EXPECT_TRUE(factory->createProfileAntiSpam(none, 5).isNull()) << none;
}

}  // namespace
}  // namespace Velmar
