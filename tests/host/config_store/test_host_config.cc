// What parseHostConfig accepts and how it refuses the rest: the message of each kind of fault, every limit from both
// sides, hostile bytes, and the agreement of the sample and the manual page with the keys that exist.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "host/common/config_nesting.h"
#include "host/common/host_config.h"

namespace Velmar::Host {
namespace {

using namespace std::string_literals;

// Five lines, so what a test appends starts in line 6.
const std::string kBase =
    "[global]\nhost_name = \"mail.example.org\"\n"
    "[antispam]\nrelease_account = \"release\"\ndelete_account = \"delete\"\n";

// The text of the Exception that a configuration is refused with; "" when it is accepted.
std::string faultOf(const std::string& toml) try {
  parseHostConfig(toml, "f");
  return "";
} catch (const Exception& exception) {
  EXPECT_EQ(exception.typeName(), "ConfigException");
  EXPECT_EQ(exception.level(), 4);
  return exception.text();
}

struct Fault {
  std::string toml;
  std::string want;
};

void expectFaults(const std::string& before, const std::vector<Fault>& faults) {
  for (const Fault& fault : faults) EXPECT_EQ(faultOf(before + fault.toml), fault.want) << before << fault.toml;
}

void expectStarts(const std::vector<Fault>& faults) {
  for (const Fault& fault : faults) EXPECT_THAT(faultOf(fault.toml), testing::StartsWith(fault.want)) << fault.toml;
}

TEST(HostConfigFaults, WholeFile) {
  expectFaults(
      "",
      {
          {"", "f:1: global.host_name: (missing): is required"},
          {"\n[global]\nmail_mode = 1\n", "f:2: global.host_name: (missing): is required"},
          {"[global]\nhost_name = \"h\"\n\n[antispam]\ndelete_account = \"d\"\n",
           "f:4: antispam.release_account: (missing): is required"},
          {"[global]\nhost_name = \"a b\"\n",
           "f:2: global.host_name: \"a b\": is no host name: only ASCII letters, digits, '-', '.' and '_' can stand in "
           "one"},
          {"[global]\nhost_name = \"mail.\"\n",
           "f:2: global.host_name: \"mail.\": is no host name: there is nothing before, after or between its dots"},
          {"[global]\nhost_name = \"\"\n", "f:2: global.host_name: \"\": must not be empty"},
          {"[antispam]\nrelease_account = \"re lease\"\n", "f:1: global.host_name: (missing): is required"},
          {"global = 5\n", "f:1: global: 5: must be a table"},
      });
}

TEST(HostConfigFaults, NamesLineKeyValueAndReason) {
  expectFaults(
      kBase,
      {
          // Keys, tables and types.
          {"[spam_reports]\nport = 1\n", "f:6: spam_reports: (table): unknown table or key"},
          {"[spam_report]\nPort = 1\n", "f:7: spam_report.Port: 1: unknown key"},
          {"[log]\n\"a\\nb\" = true\n", "f:7: log.a\\x0ab: true: unknown key"},
          {"[domain]\nname = \"example.org\"\n",
           "f:6: domain: (table): must be a list of tables, each with its own [[...]] line"},
          {"[[interface]]\n[[storage]]\n", "f:7: storage: (list): must be a table"},
          {"[spam_report]\nport = \"443\"\n", "f:7: spam_report.port: \"443\": must be a whole number"},
          {"[spam_report]\nport = 443.0\n", "f:7: spam_report.port: 443.0: must be a whole number"},
          {"[spam_report]\ntemplate = 1\n", "f:7: spam_report.template: 1: must be a text in quotes"},
          {"[spam_report]\nschedule = 8\n", "f:7: spam_report.schedule: 8: must be a list of hours"},
          {"[spam_report]\nschedule = [8,\n 24]\n", "f:8: spam_report.schedule: 24: must be from 0 to 23"},
          {"[log]\nstderr = 1\n", "f:7: log.stderr: 1: must be true or false"},
          {"[log]\nstderr = 2025-11-22\n", "f:7: log.stderr: 2025-11-22: must be true or false"},
          {"[[user_group]]\nflag = 1\n", "f:6: user_group.number: (missing): is required"},
          // Bytes.
          {"[spam_report]\nweb_host = \"a\\u0000b\"\n",
           "f:7: spam_report.web_host: \"a\\x00b\": must not hold control characters"},
          {"[[recipient_policy]]\naddress = \"a\\u0085*\"\n",
           "f:7: recipient_policy.address: \"a\\x85*\": must not hold control characters"},
          {"[[recipient_policy]]\naddress = \"\\u007f\"\n",
           "f:7: recipient_policy.address: \"\\x7f\": must not hold control characters"},
          // Hosts, domains, accounts, paths.
          {"[spam_report]\nweb_host = \"h/x\"\n",
           "f:7: spam_report.web_host: \"h/x\": is no host name: only ASCII letters, digits, '-', '.' and '_' can "
           "stand in one"},
          {"[spam_report]\nweb_host = \"h:443\"\n",
           "f:7: spam_report.web_host: \"h:443\": is neither a host name (without port) nor an IPv6 address (without "
           "brackets)"},
          {"[spam_report]\nweb_host = \"[::1]\"\n",
           "f:7: spam_report.web_host: \"[::1]\": is neither a host name (without port) nor an IPv6 address (without "
           "brackets)"},
          {"[spam_report]\ntemplate = \"a/b\"\n",
           "f:7: spam_report.template: \"a/b\": is no file name: it must be without '/' and at most 255 bytes"},
          {"[spam_report]\ntemplate = \"..\"\n",
           "f:7: spam_report.template: \"..\": is no file name: it must be without '/' and at most 255 bytes"},
          {"[[domain]]\nname = \"a~b\"\n", "f:7: domain.name: \"a~b\": is no domain name: '~' cannot stand in one"},
          {"[[domain]]\nname = \"a@b\"\n", "f:7: domain.name: \"a@b\": is no domain name: '@' cannot stand in one"},
          {"[[domain]]\nname = \"a/b\"\n", "f:7: domain.name: \"a/b\": is no domain name: '/' cannot stand in one"},
          {"[[domain]]\nname = \"..\"\n",
           "f:7: domain.name: \"..\": is no domain name: there is nothing before, after or between its dots"},
          {"[[domain]]\nname = \"a..b\"\n",
           "f:7: domain.name: \"a..b\": is no domain name: there is nothing before, after or between its dots"},
          {"[[interface]]\nname = \"e\"\naddress = \"192.0.2.256\"\n",
           "f:8: interface.address: \"192.0.2.256\": is no IPv4 or IPv6 address"},
          {"[log]\nfile = \"var/log\"\n", "f:7: log.file: \"var/log\": must start with '/'"},
          {"[log]\nfile = \"/var/\"\n", "f:7: log.file: \"/var/\": names a directory, not a file"},
          {"[log]\nfile = \"/var/../x\"\n", "f:7: log.file: \"/var/../x\": must be without '.' and '..' components"},
          {"[log]\nfile = \"/var/..\"\n", "f:7: log.file: \"/var/..\": must be without '.' and '..' components"},
          // What must agree.
          {"[[domain]]\nname = \"a\"\n[[domain]]\nname = \"A\"\n",
           "f:9: domain.name: \"A\": is there already, in line 7"},
          {"[[domain]]\nname = \"a\"\nmain_domain = \"b\"\n",
           "f:8: domain.main_domain: \"b\": is no configured domain"},
          {"[[domain]]\nname = \"a\"\nmain_domain = \"a\"\n",
           "f:8: domain.main_domain: \"a\": has a main domain itself"},
          {"[[domain]]\nname = \"a\"\nmain_domain = \"b\"\n[[domain]]\nname = \"b\"\nmain_domain = \"c\"\n"
           "[[domain]]\nname = \"c\"\n",
           "f:8: domain.main_domain: \"b\": has a main domain itself"},
          {"[[domain]]\nname = \"a\"\nsend_to_group_owner = true\n",
           "f:6: domain.ldap_profile: (missing): is required with send_to_group_owner"},
          {"[[domain]]\nname = \"a\"\nsend_to_others = true\n",
           "f:6: domain.other_recipients: (missing): is required with send_to_others"},
          {"[[domain]]\nname = \"a\"\nown_template = true\n",
           "f:6: domain.template: (missing): is required with own_template"},
          {"[[domain]]\nname = \"a\"\nother_recipients = \" , \"\n",
           "f:8: domain.other_recipients: \" , \": names no address"},
          {"[[recipient_policy]]\naddress = \"*\"\nantispam_profile = 7\n[[antispam_profile]]\nnumber = 8\n",
           "f:8: recipient_policy.antispam_profile: 7: is no configured anti-spam profile"},
          {"[[recipient_policy]]\naddress = \"*\"\nuser_group = 2\n",
           "f:8: recipient_policy.user_group: 2: is no configured user group"},
          {"[[user_group]]\nnumber = 3\n[[user_group]]\nnumber = 3\n",
           "f:9: user_group.number: 3: is there already, in line 7"},
          {"[[antispam_profile]]\nnumber = 3\ndomain = 1\n[[antispam_profile]]\ndomain = 1\nnumber = 3\n",
           "f:11: antispam_profile.number: 3: is there already, in line 7"},
      });
}

TEST(HostConfigFaults, WhatIsNoTomlIsToldByLineAndColumn) {
  expectStarts({{"x = \n", "f:1: column 5: "},
                {"[log]\n\nfile = \"\xff\"\n", "f:3: column "},
                {"[log]\nfile = \"a\0b\"\n"s, "f:2: column "},
                {"[log]\nfile = \"a\x1b[31m\"\n", "f:2: column "},
                {"a = 1\n\na = 2\n", "f:3: column "}});
}

TEST(HostConfigFaults, AccountsMustStandUnquotedInAnAddress) {
  for (const char* name : {"re lease", "a@b", "a..b", ".a", "a.", "a,b", "\xc3\xa4", "(a)", "a\\\\b"}) {
    const std::string toml = "[global]\nhost_name = \"h\"\n[antispam]\nrelease_account = \"r\"\ndelete_account = \"";
    EXPECT_THAT(faultOf(toml + name + "\"\n"), testing::StartsWith("f:5: antispam.delete_account: \"")) << name;
  }
}

TEST(HostConfigFaults, OtherRecipientsNameTheWrongMember) {
  const std::string fault = faultOf(kBase + "[[domain]]\nname = \"a\"\nother_recipients = \"a@b, c d@e\"\n");
  EXPECT_THAT(fault, testing::StartsWith("f:8: domain.other_recipients: \"a@b, c d@e\": "));
  EXPECT_THAT(fault.substr(fault.rfind("\": ")), testing::Not(testing::HasSubstr("a@b,")));
}

TEST(HostConfigFaults, MailMode4NeedsAHostForLinks) {
  const std::string mode =
      "[global]\nhost_name = \"h\"\nmail_mode = 4\n[antispam]\nrelease_account = \"r\"\n"
      "delete_account = \"d\"\n";
  EXPECT_THAT(faultOf(mode), testing::StartsWith("f:3: global.mail_mode: 4: needs "));
  EXPECT_EQ(faultOf(mode + "[spam_report]\nweb_host = \"w\"\n"), "");
  EXPECT_EQ(faultOf(mode + "[[interface]]\nname = \"e\"\naddress = \"::1\"\n"), "");
}

TEST(HostConfigFaults, LongValueIsShownByItsStartInWholeCharacters) {
  // 199 bytes and then characters of two bytes: the first of them would be shown by half.
  std::string value(199, 'a');
  for (int i = 0; i < 300; ++i) value += "\xc3\xa4";
  const std::string want = "f:7: domain.name: \"" + std::string(199, 'a') + "...\": has 799 bytes, at most 253 fit";
  EXPECT_EQ(faultOf(kBase + "[[domain]]\nname = \"" + value + "\"\n"), want);
}

// A configuration whose only unusual part is `text` as the value of this key.
std::string withText(const std::string& key, const std::string& text) {
  const std::size_t dot = key.find('.');
  const std::string table = key.substr(0, dot);
  const std::string line = key.substr(dot + 1) + " = \"" + text + "\"\n";
  if (key == "global.host_name") return "[global]\n" + line + kBase.substr(kBase.find("[antispam]"));
  if (key == "global.local_domain") return kBase.substr(0, 9) + line + kBase.substr(9);
  if (table == "antispam") {
    const char* other = key == "antispam.release_account" ? "delete_account" : "release_account";
    return kBase.substr(0, kBase.find("release_account")) + other + " = \"x\"\n" + line;
  }
  if (key == "domain.name" || key == "recipient_policy.address") return kBase + "[[" + table + "]]\n" + line;
  if (table == "domain") return kBase + "[[domain]]\nname = \"a\"\n" + line;
  if (key == "interface.name") return kBase + "[[interface]]\naddress = \"::1\"\n" + line;
  return kBase + "[" + table + "]\n" + line;
}

TEST(HostConfigLimits, TextsFitUpToTheirLastByte) {
  const struct {
    std::string key;
    std::size_t most;
    std::string start = "";
  } kTexts[] = {
      {"global.local_domain", 253},
      {"spam_report.template", 37},
      {"antispam.release_account", 35},
      {"antispam.delete_account", 35},
      {"log.file", 4095, "/"},
      {"interface.name", 15},
      {"domain.name", 253},
      {"domain.template", 255},
      {"domain.other_recipients", 65536, "a@"},
      {"recipient_policy.address", 512},
  };
  for (const auto& [key, most, start] : kTexts) {
    const std::string fits = start + std::string(most - start.size(), 'a');
    EXPECT_EQ(faultOf(withText(key, fits)), "") << key;
    EXPECT_THAT(faultOf(withText(key, fits + "a")),
                testing::AllOf(testing::HasSubstr(": " + key + ": \"" + start + "aaa"),
                               testing::EndsWith("\": has " + std::to_string(most + 1) + " bytes, at most " +
                                                 std::to_string(most) + " fit")))
        << key;
  }
}

TEST(HostConfigLimits, HostsFitIntoALink) {
  for (const std::string key : {"global.host_name", "spam_report.web_host"}) {
    EXPECT_EQ(faultOf(withText(key, std::string(241, 'h'))), "") << key;
    EXPECT_THAT(faultOf(withText(key, std::string(242, 'h'))),
                testing::EndsWith("\": has 242 bytes, at most 241 fit into a link"));
  }
}

TEST(HostConfigLimits, NumbersAreHeldToTheirRange) {
  constexpr std::int64_t kU32 = 4294967295;
  constexpr std::int64_t kI32 = 2147483647;
  const struct {
    std::string before;
    std::string key;
    std::int64_t least;
    std::int64_t most;
  } kNumbers[] = {
      {"[spam_report]\nport = ", "spam_report.port", 1, 65535},
      {"[spam_report]\naccess_link_hours = ", "spam_report.access_link_hours", -kI32 - 1, kI32},
      {"[high_availability]\nmode = ", "high_availability.mode", 0, kU32},
      {"[storage]\nmode = ", "storage.mode", 0, kU32},
      {"[mail_server]\nsmtp_port = ", "mail_server.smtp_port", 1, 65535},
      {"[[domain]]\nname = \"a\"\nldap_profile = ", "domain.ldap_profile", 0, kI32},
      {"[[domain]]\nname = \"a\"\nprofile_domain = ", "domain.profile_domain", 0, kU32},
      {"[[recipient_policy]]\naddress = \"*\"\nflag = ", "recipient_policy.flag", 0, kU32},
      {"[[user_group]]\nnumber = ", "user_group.number", 1, kU32},
      {"[[user_group]]\nnumber = 1\nflag = ", "user_group.flag", 0, kU32},
      {"[[antispam_profile]]\nnumber = ", "antispam_profile.number", 1, kI32},
      {"[[antispam_profile]]\nnumber = 1\ndomain = ", "antispam_profile.domain", 0, kU32},
  };
  for (const auto& [before, key, least, most] : kNumbers) {
    const std::string reason = ": must be from " + std::to_string(least) + " to " + std::to_string(most);
    for (const std::int64_t good : {least, most})
      EXPECT_EQ(faultOf(kBase + before + std::to_string(good) + "\n"), "") << key;
    for (const std::int64_t bad : {least - 1, most + 1})
      EXPECT_THAT(faultOf(kBase + before + std::to_string(bad) + "\n"),
                  testing::EndsWith(" " + key + ": " + std::to_string(bad) + reason));
  }
  for (const char* line : {"mail_mode = 0", "mail_mode = 5", "debug_mask = -1", "debug_mask = 4294967296",
                           "ha_sync_flag = -1", "ha_sync_flag = 4294967296"})
    EXPECT_THAT(faultOf("[global]\n"s + line + "\n"), testing::HasSubstr(": must be from ")) << line;
}

TEST(HostConfigLimits, FileOfMoreThanEightMebibytesIsRefusedByItsSize) {
  std::string text = kBase + "#";
  text.resize(kMaxHostConfig, 'x');
  EXPECT_EQ(faultOf(text), "");
  EXPECT_EQ(faultOf(text + "x"), "f: has 8388609 bytes, at most 8388608 fit");
}

TEST(HostConfig, TakesByteOrderMarkAndCrLf) {
  std::string text = "\xef\xbb\xbf" + kBase + "[spam_report]\nschedule = [0, 23]\nport = 0\n";
  for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) text.replace(at, 1, "\r\n");
  EXPECT_EQ(faultOf(text), "f:8: spam_report.port: 0: must be from 1 to 65535");
  text.replace(text.find("port = 0"), 8, "port = 1");
  EXPECT_EQ(parseHostConfig(text, "f").spamReport.schedule, 0x800001U);
}

TEST(HostConfig, LeftOutKeysHaveTheirDefaults) {
  const HostConfig config = parseHostConfig(kBase +
                                                "[[domain]]\nname = \"a\"\n[[recipient_policy]]\naddress = \"*\"\n"
                                                "[[antispam_profile]]\nnumber = 1\n",
                                            "f");
  EXPECT_EQ(config.mailMode, 1);
  EXPECT_EQ(config.spamReport.port, 443U);
  EXPECT_EQ(config.spamReport.schedule, 0U);
  EXPECT_EQ(config.spamReport.accessLinkHours, 0);
  EXPECT_STREQ(config.spamReport.webHost, "");
  EXPECT_STREQ(config.spamReport.templateName, "default");
  EXPECT_EQ(config.mailServer.smtpPort, 25U);
  EXPECT_TRUE(config.log.toStderr);
  EXPECT_EQ(config.log.file, "");
  EXPECT_EQ(config.localDomain, "");
  const ApsGwServer& domain = *config.domains.at(0).record;
  EXPECT_TRUE(domain.sendToRecipient);
  EXPECT_FALSE(domain.sendToGroupOwner || domain.groupOwnerOption || domain.groupOwnerOnly || domain.sendToOthers ||
               domain.useOwnTemplate);
  EXPECT_EQ(domain.groupOwnerLdapProfile, -1);
  EXPECT_EQ(domain.profileDomain, 0U);
  EXPECT_TRUE(config.policies.at(0).enabled);
  EXPECT_EQ(config.policies.at(0).record.spamReport, 1U);
  EXPECT_EQ(config.policies.at(0).record.antispamProfile, 0);
  EXPECT_FALSE(config.profiles.at(0).switches.quarantineReport);
}

TEST(HostConfigHostile, DeeplyNestedKeysAreRefusedBeforeTheyAreBuilt) {
  std::string dots;
  for (int i = 0; i < 200000; ++i) dots += "a.";
  const std::string reason = ": column 1: too many dots outside texts, at most 16 can stand in a line";
  EXPECT_EQ(faultOf(kBase + "[" + dots + "a]\n"), "f:6" + reason);
  EXPECT_EQ(faultOf(kBase + dots + "a = 1\n"), "f:6" + reason);
  EXPECT_EQ(faultOf(kBase + "x = [\n{" + dots + "a = 1}]\n"), "f:7" + reason);
  EXPECT_EQ(faultOf(kBase + "x = {s = \"\"\"\n\"\"\", " + dots + "a = 1}\n"), "f:7" + reason);
  EXPECT_THAT(faultOf(kBase + "x = " + std::string(100000, '[') + "\n"), testing::StartsWith("f:6: column "));
}

TEST(HostConfigHostile, OnlyDotsOfKeysCount) {
  const struct {
    std::string toml;
    std::size_t want;
  } kTexts[] = {
      {"a.b.c", 0},
      {"a.b.c.d", 1},
      {"a.b\nc.d.e\nf.g.h.i", 3},
      {"a = \"....\" # ....\n", 0},
      {"a = '....\\' # ....\n", 0},
      {"a = \"\\\"....\"\n", 0},
      {"\"....\".\"....\".b\n", 0},
      {"'a'.'a'.'a'.a\n", 1},
      {"a = \"\"\"\n.... \" .... \"\" ....\"\"\"\"\" # ....\n", 0},
      {"a = \"\"\"\n....\\\"\"\"....\n\"\"\"\nb....\n", 4},
      {"a = '''\n....\\'''\nb....\n", 3},
      {"a = '''....''''\nb....\n", 2},
      {"a = \"....\nb....\n", 2},
      {"a = \"....\\", 0},
      {"a = \"\"\"....", 0},
      {"#....", 0},
  };
  for (const auto& [toml, want] : kTexts) EXPECT_EQ(lineWithDeepKey(toml, 2), want) << toml;
}

std::string fileText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string sharePath(const std::string& path) {
  const char* share = std::getenv("VELMAR_SHARE");
  EXPECT_NE(share, nullptr) << "VELMAR_SHARE names the source's share/";
  return std::string(share ? share : "share") + path;
}

TEST(HostConfigHostile, DamagedFilesAreRefusedInOneLine) {
  const std::string sample = fileText(sharePath("/etc/host.toml.sample"));
  ASSERT_GT(sample.size(), 1000U);
  int refused = 0;
  const auto expectOneLine = [&refused](const std::string& text) {
    const std::string fault = faultOf(text);
    refused += fault.empty() ? 0 : 1;
    EXPECT_TRUE(std::none_of(fault.begin(), fault.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }))
        << fault;
    EXPECT_LT(fault.size(), 700U);
  };
  for (std::size_t at = 0; at < sample.size(); at += 3) {
    expectOneLine(sample.substr(0, at));
    for (const char byte : {'"', '[', '.', '\0', '\xff'}) {
      std::string damaged = sample;
      damaged[at] = byte;
      expectOneLine(damaged);
    }
  }
  EXPECT_GT(refused, 1000);
}

// ---- Documents.

// Lines of the sample that are settings, the commented ones included, in the form of a file with all of them.
std::string wholeSample() {
  std::string text = fileText(sharePath("/etc/host.toml.sample"));
  for (std::size_t at = 0; (at = text.find("\n#", at)) != std::string::npos; ++at)
    if (text[at + 2] != ' ' && text[at + 2] != '\n') text.erase(at + 1, 1);
  return text;
}

// "TABLE.KEY" for each line that starts with `keyMark`, under the latest line that starts with `tableMark`.
std::vector<std::string> documentedKeys(const std::string& text, const std::string& tableMark,
                                        const std::string& keyMark, char keyEnd) {
  std::vector<std::string> keys;
  std::string table;
  for (std::size_t at = 0, end = 0; at < text.size(); at = end + 1) {
    end = std::min(text.find('\n', at), text.size());
    const std::string line = text.substr(at, end - at);
    if (line.rfind(tableMark, 0) == 0) {
      const std::size_t name = line.find_last_of('[') + 1;
      table = line.substr(name, line.find(']') - name);
    } else if (!table.empty() && line.rfind(keyMark, 0) == 0 && line.find(keyEnd) != std::string::npos) {
      keys.push_back(table + "." + line.substr(keyMark.size(), line.find(keyEnd, keyMark.size()) - keyMark.size()));
    }
  }
  return keys;
}

TEST(HostConfigDocuments, SampleLoadsAsItIsAndWithAllItsSettings) {
  EXPECT_EQ(faultOf(fileText(sharePath("/etc/host.toml.sample"))), "");
  EXPECT_EQ(faultOf(wholeSample()), "");
}

TEST(HostConfigDocuments, SampleShowsEveryKey) {
  std::vector<std::string> lines = documentedKeys(wholeSample(), "[", "", ' ');
  const std::set<std::string> keys(lines.begin(), lines.end());
  for (const std::string& key : hostConfigKeys()) EXPECT_TRUE(keys.count(key)) << key;
}

TEST(HostConfigDocuments, ManualPageDescribesExactlyTheKeysThereAre) {
  const std::string page = fileText(sharePath("/../docs/man/velmar-host.toml.5"));
  const std::string keysOnly = page.substr(0, page.find(".Sh FILES"));
  std::string ended;
  for (const char c : keysOnly) ended += c == '\n' ? " \n"s : std::string(1, c);
  EXPECT_THAT(documentedKeys(ended, ".Ss [", ".It Ic ", ' '), testing::UnorderedElementsAreArray(hostConfigKeys()));
}

}  // namespace
}  // namespace Velmar::Host
