// What parseHostConfig accepts and how it refuses the rest: the message of each kind of fault, limits from both
// sides, hostile bytes, and the agreement of the sample and the manual page with the keys that exist.

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "host/common/config_nesting.h"
#include "host/common/host_config.h"

namespace Velmar::Host {
namespace {

using namespace std::string_literals;
using testing::StartsWith;

// Three lines, so what a test appends starts in line 4.
const std::string kBase =
    "global.host_name = \"mail.example.org\"\n"
    "antispam.release_account = \"release\"\nantispam.delete_account = \"delete\"\n";

// The text of the Exception that a configuration is refused with; "" when it is accepted.
std::string faultOf(const std::string& toml) try {
  parseHostConfig(toml, "f");
  return "";
} catch (const Exception& exception) {
  return exception.text();
}

TEST(HostConfigFaults, NameLineKeyValueAndReason) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      // Keys, tables and types.
      {"[spam_reports]\nport = 1", "f:4: spam_reports: (table): unknown table or key"},
      {"log.\"a\\nb\" = true", "f:4: log.a\\x0ab: true: unknown key"},
      {"[domain]", "f:4: domain: (table): must be a list of tables, each with its own [[...]] line"},
      {"spam_report.port = 443.0", "f:4: spam_report.port: 443.0: must be a whole number"},
      {"spam_report.template = 1", "f:4: spam_report.template: 1: must be a text in quotes"},
      {"spam_report.schedule = [8,\n 24]", "f:5: spam_report.schedule: 24: must be from 0 to 23"},
      {"log.stderr = 1", "f:4: log.stderr: 1: must be true or false"},
      {"[[user_group]]\nflag = 1", "f:4: user_group.number: (missing): is required"},
      // Texts.
      {"log.file = \"a\\u0000\"", "f:4: log.file: \"a\\x00\": must not hold control characters"},
      {"log.file = \"a\\u0085\"", "f:4: log.file: \"a\\x85\": must not hold control characters"},
      {"spam_report.template = '..'",
       "f:4: spam_report.template: \"..\": is no file name: it must be without '/' and at most 255 bytes"},
      {"domain = [{name = 'a@b'}]", "f:4: domain.name: \"a@b\": is no domain name: '@' cannot stand in one"},
      {"log.file = 'var/log'", "f:4: log.file: \"var/log\": must start with '/'"},
      {"log.file = '/var/'", "f:4: log.file: \"/var/\": names a directory, not a file"},
      {"log.file = '/var/..'", "f:4: log.file: \"/var/..\": must be without '.' and '..' components"},
      {"domain = [{other_recipients = 'a@b, c'}]",
       "f:4: domain.other_recipients: \"a@b, c\": not a mail address: \"c\""},
      {"queue.kind = 'smpt'", "f:4: queue.kind: \"smpt\": must be one of \"spool\", \"smtp\""},
      {"queue.url = 'smtps://h'",
       "f:4: queue.url: \"smtps://h\": must start with smtp://; tls = \"implicit\" begins with TLS"},
      {"queue.url = 'smtp://h:70000'",
       "f:4: queue.url: \"smtp://h:70000\": has no port from 1 to 65535 after its host"},
      {"queue.url = 'smtp://[::1]:25'", ""},
      {"queue.url = 'smtp://[::1'", "f:4: queue.url: \"smtp://[::1\": holds no IPv6 address between its brackets"},
      {"state.url = 'sqlite://var/state.db'", "f:4: state.url: \"sqlite://var/state.db\": must start with '/'"},
      {"state.url = 'mysql://h/d'", "f:4: state.url: \"mysql://h/d\": must start with sqlite:///PATH or postgresql://"},
      {"ldap_profile = [{number = 1, urls = ['http://h'], user_base = 'o=x'}]",
       "f:4: ldap_profile.urls: \"http://h\": must start with ldap://, ldaps:// or ldapi://"},
      {"ldap_profile = [{number = 1, urls = [], user_base = 'o=x'}]",
       "f:4: ldap_profile.urls: (list): must name at least one server"},
      {"ldap_profile = [{number = 1, urls = ['ldap://h'], user_base = 'o=x', user_filter = '(mail=*)'}]",
       "f:4: ldap_profile.user_filter: \"(mail=*)\": must hold {address}, else it finds any user"},
      // What must agree.
      {"domain = [{name = 'a'},\n {name = 'A'}]", "f:5: domain.name: \"A\": is there already, in line 4"},
      {"domain = [{name = 'a', main_domain = 'b'}]", "f:4: domain.main_domain: \"b\": is no configured domain"},
      {"domain = [{name = 'a', main_domain = 'a'}]", "f:4: domain.main_domain: \"a\": has a main domain itself"},
      {"domain = [{name = 'a', send_to_group_owner = true}]",
       "f:4: domain.ldap_profile: (missing): is required with send_to_group_owner"},
      {"[[domain]]\nname = 'a'\nsend_to_group_owner = true\nldap_profile = 3\n",
       "f:7: domain.ldap_profile: 3: is no configured LDAP profile"},
      {"[queue]\nkind = 'smtp'", "f:4: queue.url: (missing): is required with kind = \"smtp\""},
      {"queue.retry_first = 5000", "f:4: queue.retry_longest: (missing): must not be less than retry_first"},
      {"[[ldap_profile]]\nnumber = 1\nurls = ['ldaps://h']\nuser_base = 'o=x'\nstart_tls = true",
       "f:8: ldap_profile.start_tls: true: cannot be used with an ldaps URL, which begins with TLS"},
      {"[[ldap_profile]]\nnumber = 1\nurls = ['ldap://h']\nuser_base = 'o=x'\nbind_dn = 'cn=a'",
       "f:4: ldap_profile.password_file: (missing): is required with bind_dn"},
      {"recipient_policy = [{address = '*', antispam_profile = 7}]",
       "f:4: recipient_policy.antispam_profile: 7: is no configured anti-spam profile"},
      {"recipient_policy = [{address = '*', user_group = 2}]",
       "f:4: recipient_policy.user_group: 2: is no configured user group"},
      {"antispam_profile = [{number = 3, domain = 1},\n {domain = 1, number = 3}]",
       "f:5: antispam_profile.number: 3: is there already, in line 4"},
      {"global.mail_mode = 4",
       "f:4: global.mail_mode: 4: needs spam_report.web_host or an [[interface]]: links would have no host"},
      {"global.mail_mode = 4\nspam_report.web_host = 'w'", ""},
      {"global.mail_mode = 4\ninterface = [{name = 'e', address = '::1'}]", ""},
  };
  for (const auto& [toml, want] : rows) EXPECT_EQ(faultOf(kBase + toml), want) << toml;
  EXPECT_EQ(faultOf(""), "f:1: global.host_name: (missing): is required");
  EXPECT_THAT(faultOf("a = 1\n\nb = \"\xff\"\n"), StartsWith("f:3: column "));
}

TEST(HostConfigFaults, HostsAndAccountsMustStandInLinksAndAddresses) {
  const std::string host = kBase + "spam_report.web_host = \"";
  for (const std::string& bad : {"h/x"s, "h:443"s, "[::1]"s, "h."s, std::string(242, 'h')})
    EXPECT_THAT(faultOf(host + bad + "\""), StartsWith("f:4: spam_report.web_host: \"")) << bad;
  const std::string account = kBase.substr(0, kBase.find("delete\"\n"));
  for (const std::string& bad : {""s, "re lease"s, "a@b"s, "a..b"s, "a,b"s, "\xc3\xa4"s, std::string(36, 'a')})
    EXPECT_THAT(faultOf(account + bad + "\""), StartsWith("f:3: antispam.delete_account: \"")) << bad;
  for (const std::string& good : {account + std::string(35, 'a'), host + std::string(241, 'h'), host + "::1", host})
    EXPECT_EQ(faultOf(good + "\""), "");
}

TEST(HostConfigLimits, TextsFitUpToTheirLastByte) {
  const std::vector<std::pair<std::string, std::size_t>> rows = {
      {"spam_report.template = '", 37},
      {"log.file = '/", 4094},
      {"interface = [{address = '::1', name = '", 15},
      {"domain = [{name = '", 253},
      {"domain = [{name = 'a', other_recipients = 'a@", 65534},
      {"recipient_policy = [{address = '", 512}};
  for (const auto& [before, most] : rows) {
    const std::string fits = kBase + before + std::string(most, 'a');
    const std::string end = before.find('{') == std::string::npos ? "'" : "'}]";
    EXPECT_EQ(faultOf(fits + end), "") << before;
    EXPECT_THAT(faultOf(fits + "a" + end), testing::EndsWith(" fit")) << before;
  }
  // 199 bytes and then characters of two bytes: the first of them would be shown by half.
  std::string value(199, 'a');
  for (int i = 0; i < 300; ++i) value += "\xc3\xa4";
  const std::string want = "f:4: domain.name: \"" + std::string(199, 'a') + "...\": has 799 bytes, at most 253 fit";
  EXPECT_EQ(faultOf(kBase + "domain = [{name = '" + value + "'}]"), want);
}

TEST(HostConfigLimits, NumbersAreHeldToTheirRange) {
  constexpr std::int64_t kMaxI32 = 2147483647, kMaxU32 = 4294967295;
  const std::vector<std::tuple<std::string, std::int64_t, std::int64_t>> rows = {
      {"[spam_report]\nport = ", 1, 65535},      {"[spam_report]\naccess_link_hours = ", -kMaxI32 - 1, kMaxI32},
      {"[mail_server]\nsmtp_port = ", 1, 65535}, {"[[domain]]\nname = 'a'\nldap_profile = ", 0, kMaxI32},
      {"[[user_group]]\nnumber = ", 1, kMaxU32}, {"[[antispam_profile]]\nnumber = ", 1, kMaxI32}};
  for (const auto& [before, least, most] : rows) {
    const std::string reason = ": must be from " + std::to_string(least) + " to " + std::to_string(most);
    for (const std::int64_t good : {least, most})
      EXPECT_EQ(faultOf(kBase + before + std::to_string(good)), "") << before << good;
    for (const std::int64_t bad : {least - 1, most + 1})
      EXPECT_THAT(faultOf(kBase + before + std::to_string(bad)),
                  testing::EndsWith(": " + std::to_string(bad) + reason));
  }
}

TEST(HostConfigLimits, FileHasUpToEightMebibytes) {
  const std::string text = kBase + "#" + std::string(kMaxHostConfig - kBase.size() - 1, 'x');
  EXPECT_EQ(faultOf(text), "");
  EXPECT_EQ(faultOf(text + "x"), "f: has 8388609 bytes, at most 8388608 fit");
}

TEST(HostConfig, LeftOutKeysHaveTheirDefaults) {
  const std::string text = kBase + "domain = [{name = 'a'}]\nrecipient_policy = [{address = '*'}]\n";
  const std::string crLf = "\xef\xbb\xbf" + std::regex_replace(text, std::regex("\n"), "\r\n");
  const HostConfig config = parseHostConfig(crLf, "f");
  EXPECT_TRUE(config.mailMode == 1 && config.spamReport.port == 443 && config.mailServer.smtpPort == 25);
  EXPECT_STREQ(config.spamReport.templateName, "default");
  EXPECT_TRUE(config.log.toStderr && config.log.file.empty());
  const ApsGwServer& domain = *config.domains.at(0).record;
  EXPECT_TRUE(domain.sendToRecipient && !domain.sendToGroupOwner && !domain.sendToOthers && !domain.useOwnTemplate);
  EXPECT_EQ(domain.groupOwnerLdapProfile, -1);
  EXPECT_TRUE(config.policies.at(0).enabled && config.policies.at(0).record.spamReport == 1);
}

TEST(HostConfigHostile, DeeplyNestedKeysAreRefusedBeforeTheyAreBuilt) {
  const std::string dots = std::regex_replace(std::string(200000, 'a'), std::regex("a"), "a.");
  const std::string reason = ": column 1: too many dots outside texts, at most 16 can stand in a line";
  EXPECT_EQ(faultOf(kBase + "[" + dots + "a]\n"), "f:4" + reason);
  EXPECT_EQ(faultOf(kBase + "x = {s = \"\"\"\n\"\"\", " + dots + "a = 1}\n"), "f:5" + reason);
  EXPECT_THAT(faultOf(kBase + "x = " + std::string(100000, '[') + "\n"), StartsWith("f:4: column "));
}

TEST(HostConfigHostile, OnlyDotsOfKeysCount) {
  const std::pair<std::string, std::size_t> rows[] = {
      {"a.b.c", 0},
      {"#....", 0},
      {R"(a = '....\' # ....)", 0},
      {R"(a = "\"....")", 0},
      {R"(a = "....\)", 0},
      {"a = \"\"\"\n.... \" .... \"\" ....\"\"\"\"\" # ....\n", 0},
      {"a.b\nc.d.e\nf.g.h.i", 3},
      {"a = \"\"\"\n....\\\"\"\"....\n\"\"\"\nb....", 4},
      {"a = '''\n....\\'''\nb....", 3},
      {"a = '''....''''\nb....", 2},
      {"a = \"....\nb....", 2},
  };
  for (const auto& [toml, want] : rows) EXPECT_EQ(lineWithDeepKey(toml, 2), want) << toml;
}

std::string fileText(const std::string& path) {
  std::ifstream file(SOURCE + path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST(HostConfigDocuments, SampleLoadsAndEveryKeyIsInItAndInTheManualPage) {
  const std::string sample = fileText("/share/etc/host.toml.sample");
  const std::string all = std::regex_replace(sample, std::regex("\n#(?=[^ \n])"), "\n");  // with commented settings
  EXPECT_EQ(faultOf(sample), "");
  EXPECT_EQ(faultOf(all), "");
  std::string page = fileText("/docs/man/velmar-host.toml.5");
  page.resize(page.find(".Sh FILES"));
  const std::regex item("\n\\.It Ic ");
  const std::sregex_iterator items(page.begin(), page.end(), item);
  EXPECT_EQ(static_cast<std::size_t>(std::distance(items, {})), hostConfigKeys().size());
  for (const std::string& key : hostConfigKeys()) {
    const std::string name = key.substr(key.find('.') + 1);
    EXPECT_THAT(all, testing::HasSubstr("\n" + name + " = ")) << key;
    EXPECT_THAT(page, testing::HasSubstr("\n.It Ic " + name)) << key;
  }
}

}  // namespace
}  // namespace Velmar::Host
