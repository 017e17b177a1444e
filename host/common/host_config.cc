// The configuration file as a table of its keys: what may stand where, and into which record it goes. Called once a
// process, on first use. Nothing is cut, repaired or looked up; the first fault refuses the whole file.

#include "host/common/host_config.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <set>

#include "host/common/config_nesting.h"
#include "host/common/config_value.h"
#include "host/common/root.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kMaxDots = 16;
constexpr std::size_t kMaxDomainName = 253;  // RFC 1035 section 2.3.4, as text without the final dot
constexpr std::size_t kMaxPattern = 512;
constexpr std::size_t kMaxComponent = 255;
constexpr std::size_t kMaxPath = 4095;              // PATH_MAX without the final NUL
constexpr std::size_t kMaxAddressList = 64U << 10;  // what the address parser looks at
constexpr int kMaxPort = 65535;
constexpr std::size_t kMaxUrl = 2048;
constexpr std::size_t kMaxLdapText = 1024;  // of a name or filter
constexpr std::size_t kMaxAttribute = 128;
constexpr int kMaxCatchUpHours = 31 * 24;
constexpr int kMaxTimeout = 600;
constexpr int kMaxDelay = 365 * 86400;

constexpr auto kMayBeEmpty = ConfigValue::Empty::kAllowed;

// One key of a table, and how its value gets into the record.
template <class Record>
struct Key {
  std::string_view name;
  bool required;
  void (*take)(const ConfigValue&, Record&);
};

constexpr bool kRequired = true;
constexpr bool kOptional = false;

std::uint32_t hourBits(const ConfigValue& value) {
  std::uint32_t bits = 0;
  for (const toml::node& hour : value.list("must be a list of hours")) {
    int number = 0;
    value.item(hour).number(number, 0, 23);
    bits |= 1U << number;
  }
  return bits;
}

std::vector<std::string> ldapUrls(const ConfigValue& value) {
  std::vector<std::string> urls;
  for (const toml::node& url : value.list("must be a list of URLs"))
    urls.push_back(value.item(url).text(kMaxUrl, ldapUrlFault));
  if (urls.empty()) value.refuse("must name at least one server");
  return urls;
}

vlm_ip_address parsedAddress(const std::string& text) {
  vlm_ip_address address{};
  address.family = text.find(':') == std::string::npos ? AF_INET : AF_INET6;
  inet_pton(static_cast<int>(address.family), text.c_str(), address.bytes);
  return address;
}

// ---- The keys, table by table.

constexpr Key<HostConfig> kGlobal[] = {
    {"host_name", kRequired, [](const ConfigValue& v, HostConfig& c) { v.text(c.global.hostName, hostNameFault); }},
    {"local_domain", kOptional,
     [](const ConfigValue& v, HostConfig& c) { c.localDomain = v.text(kMaxDomainName, domainNameFault, kMayBeEmpty); }},
    {"mail_mode", kOptional, [](const ConfigValue& v, HostConfig& c) { v.number(c.mailMode, 1, 4); }},
    {"debug_mask", kOptional, [](const ConfigValue& v, HostConfig& c) { v.number(c.global.debugMask); }},
    {"ha_sync_flag", kOptional, [](const ConfigValue& v, HostConfig& c) { v.number(c.global.haSyncFlag); }},
};

constexpr Key<HostConfig> kSpamReport[] = {
    {"schedule", kOptional, [](const ConfigValue& v, HostConfig& c) { c.spamReport.schedule = hourBits(v); }},
    {"port", kOptional, [](const ConfigValue& v, HostConfig& c) { v.number(c.spamReport.port, 1, kMaxPort); }},
    {"access_link_hours", kOptional,
     [](const ConfigValue& v, HostConfig& c) { v.number(c.spamReport.accessLinkHours); }},
    {"web_host", kOptional,
     [](const ConfigValue& v, HostConfig& c) { v.text(c.spamReport.webHost, webHostFault, kMayBeEmpty); }},
    {"template", kOptional,
     [](const ConfigValue& v, HostConfig& c) { v.text(c.spamReport.templateName, pathComponentFault); }},
    {"catch_up_hours", kOptional,
     [](const ConfigValue& v, HostConfig& c) { v.number(c.catchUpHours, 0, kMaxCatchUpHours); }},
};

constexpr Key<HostConfig> kAntispam[] = {
    {"release_account", kRequired,
     [](const ConfigValue& v, HostConfig& c) { v.text(c.sysAntispam.releaseName, accountNameFault); }},
    {"delete_account", kRequired,
     [](const ConfigValue& v, HostConfig& c) { v.text(c.sysAntispam.deleteName, accountNameFault); }},
};

constexpr Key<HostConfig> kHighAvailability[] = {
    {"mode", kOptional, [](const ConfigValue& v, HostConfig& c) { v.number(c.highAvailability.mode); }},
};

constexpr Key<HostConfig> kStorage[] = {
    {"mode", kOptional, [](const ConfigValue& v, HostConfig& c) { v.number(c.nasStorage.mode); }},
};

constexpr Key<HostConfig> kRemoteStorage[] = {
    {"enabled", kOptional, [](const ConfigValue& v, HostConfig& c) { c.remoteStorage.enabled = v.boolean(); }},
};

constexpr Key<HostConfig> kMailServer[] = {
    {"smtp_port", kOptional, [](const ConfigValue& v, HostConfig& c) { v.number(c.mailServer.smtpPort, 1, kMaxPort); }},
};

constexpr Key<HostConfig> kLog[] = {
    {"stderr", kOptional, [](const ConfigValue& v, HostConfig& c) { c.log.toStderr = v.boolean(); }},
    {"file", kOptional,
     [](const ConfigValue& v, HostConfig& c) { c.log.file = v.text(kMaxPath, filePathFault, kMayBeEmpty); }},
    {"journal", kOptional, [](const ConfigValue& v, HostConfig& c) { c.log.toJournal = v.boolean(); }},
    {"syslog", kOptional, [](const ConfigValue& v, HostConfig& c) { c.log.toSyslog = v.boolean(); }},
};

constexpr Key<HostConfig> kQueue[] = {
    {"kind", kOptional,
     [](const ConfigValue& v, HostConfig& c) {
       c.queue.kind = v.choice<QueueKind>({{"spool", QueueKind::kSpool}, {"smtp", QueueKind::kSmtp}});
     }},
    {"url", kOptional, [](const ConfigValue& v, HostConfig& c) { c.queue.url = v.text(kMaxUrl, smtpUrlFault); }},
    {"tls", kOptional,
     [](const ConfigValue& v, HostConfig& c) {
       c.queue.tls = v.choice<SmtpTls>({{"none", SmtpTls::kNone},
                                        {"offered", SmtpTls::kOffered},
                                        {"required", SmtpTls::kRequired},
                                        {"implicit", SmtpTls::kImplicit}});
     }},
    {"ca_file", kOptional,
     [](const ConfigValue& v, HostConfig& c) { c.queue.caFile = v.text(kMaxPath, filePathFault, kMayBeEmpty); }},
    {"auth_file", kOptional,
     [](const ConfigValue& v, HostConfig& c) { c.queue.authFile = v.text(kMaxPath, filePathFault, kMayBeEmpty); }},
    {"timeout", kOptional, [](const ConfigValue& v, HostConfig& c) { v.number(c.queue.timeout, 1, kMaxTimeout); }},
    {"retry_first", kOptional, [](const ConfigValue& v, HostConfig& c) { v.number(c.queue.retryFirst, 1, kMaxDelay); }},
    {"retry_longest", kOptional,
     [](const ConfigValue& v, HostConfig& c) { v.number(c.queue.retryLongest, 1, kMaxDelay); }},
    {"give_up_after", kOptional,
     [](const ConfigValue& v, HostConfig& c) { v.number(c.queue.giveUpAfter, 1, kMaxDelay); }},
    {"min_free_mib", kOptional, [](const ConfigValue& v, HostConfig& c) { v.number(c.queue.minFreeMib, 0); }},
    {"min_free_inodes", kOptional, [](const ConfigValue& v, HostConfig& c) { v.number(c.queue.minFreeInodes, 0); }},
};

constexpr Key<HostConfig> kState[] = {
    {"url", kOptional, [](const ConfigValue& v, HostConfig& c) { c.state.url = v.text(kMaxUrl, stateUrlFault); }},
};

constexpr Key<LdapProfileConfig> kLdapProfile[] = {
    {"number", kRequired, [](const ConfigValue& v, LdapProfileConfig& p) { v.number(p.number, 0); }},
    {"urls", kRequired, [](const ConfigValue& v, LdapProfileConfig& p) { p.urls = ldapUrls(v); }},
    {"start_tls", kOptional, [](const ConfigValue& v, LdapProfileConfig& p) { p.startTls = v.boolean(); }},
    {"ca_file", kOptional,
     [](const ConfigValue& v, LdapProfileConfig& p) { p.caFile = v.text(kMaxPath, filePathFault, kMayBeEmpty); }},
    {"bind_dn", kOptional,
     [](const ConfigValue& v, LdapProfileConfig& p) { p.bindDn = v.text(kMaxLdapText, nullptr, kMayBeEmpty); }},
    {"password_file", kOptional,
     [](const ConfigValue& v, LdapProfileConfig& p) { p.passwordFile = v.text(kMaxPath, filePathFault, kMayBeEmpty); }},
    {"user_base", kRequired,
     [](const ConfigValue& v, LdapProfileConfig& p) { p.userBase = v.text(kMaxLdapText, nullptr); }},
    {"user_filter", kOptional,
     [](const ConfigValue& v, LdapProfileConfig& p) { p.userFilter = v.text(kMaxLdapText, userFilterFault); }},
    {"group_base", kOptional,
     [](const ConfigValue& v, LdapProfileConfig& p) { p.groupBase = v.text(kMaxLdapText, nullptr, kMayBeEmpty); }},
    {"group_filter", kOptional,
     [](const ConfigValue& v, LdapProfileConfig& p) { p.groupFilter = v.text(kMaxLdapText, ldapFilterFault); }},
    {"member_attribute", kOptional,
     [](const ConfigValue& v, LdapProfileConfig& p) { p.memberAttribute = v.text(kMaxAttribute, ldapAttributeFault); }},
    {"owner_attribute", kOptional,
     [](const ConfigValue& v, LdapProfileConfig& p) { p.ownerAttribute = v.text(kMaxAttribute, ldapAttributeFault); }},
    {"mail_attribute", kOptional,
     [](const ConfigValue& v, LdapProfileConfig& p) { p.mailAttribute = v.text(kMaxAttribute, ldapAttributeFault); }},
    {"nested_groups", kOptional, [](const ConfigValue& v, LdapProfileConfig& p) { p.nestedGroups = v.boolean(); }},
    {"nested_depth", kOptional, [](const ConfigValue& v, LdapProfileConfig& p) { v.number(p.nestedDepth, 1, 64); }},
    {"timeout", kOptional, [](const ConfigValue& v, LdapProfileConfig& p) { v.number(p.timeout, 1, kMaxTimeout); }},
};

constexpr Key<__aps_interface> kInterface[] = {
    {"name", kRequired, [](const ConfigValue& v, __aps_interface& i) { v.text(i.name, nullptr); }},
    {"address", kRequired,
     [](const ConfigValue& v, __aps_interface& i) {
       i.address = parsedAddress(v.text(INET6_ADDRSTRLEN - 1, ipAddressFault));
     }},
};

constexpr Key<DomainConfig> kDomain[] = {
    {"name", kRequired,
     [](const ConfigValue& v, DomainConfig& d) {
       d.name = d.record->domain = asciiLower(v.text(kMaxDomainName, domainNameFault));
     }},
    {"main_domain", kOptional,
     [](const ConfigValue& v, DomainConfig& d) {
       d.mainDomain = asciiLower(v.text(kMaxDomainName, domainNameFault, kMayBeEmpty));
     }},
    {"send_to_recipient", kOptional,
     [](const ConfigValue& v, DomainConfig& d) { d.record->sendToRecipient = v.boolean(); }},
    {"send_to_group_owner", kOptional,
     [](const ConfigValue& v, DomainConfig& d) { d.record->sendToGroupOwner = v.boolean(); }},
    {"group_owner_option", kOptional,
     [](const ConfigValue& v, DomainConfig& d) { d.record->groupOwnerOption = v.boolean(); }},
    {"group_owner_only", kOptional,
     [](const ConfigValue& v, DomainConfig& d) { d.record->groupOwnerOnly = v.boolean(); }},
    {"ldap_profile", kOptional,
     [](const ConfigValue& v, DomainConfig& d) { v.number(d.record->groupOwnerLdapProfile, 0); }},
    {"send_to_others", kOptional, [](const ConfigValue& v, DomainConfig& d) { d.record->sendToOthers = v.boolean(); }},
    {"other_recipients", kOptional,
     [](const ConfigValue& v, DomainConfig& d) {
       d.record->otherRecipients = v.text(kMaxAddressList, addressListFault);
     }},
    {"own_template", kOptional, [](const ConfigValue& v, DomainConfig& d) { d.record->useOwnTemplate = v.boolean(); }},
    {"template", kOptional,
     [](const ConfigValue& v, DomainConfig& d) { d.record->templateName = v.text(kMaxComponent, pathComponentFault); }},
    {"profile_domain", kOptional, [](const ConfigValue& v, DomainConfig& d) { v.number(d.record->profileDomain); }},
};

constexpr Key<PolicyConfig> kRecipientPolicy[] = {
    {"address", kRequired,
     [](const ConfigValue& v, PolicyConfig& p) { p.pattern = asciiLower(v.text(kMaxPattern, nullptr)); }},
    {"enabled", kOptional, [](const ConfigValue& v, PolicyConfig& p) { p.enabled = v.boolean(); }},
    {"spam_report", kOptional, [](const ConfigValue& v, PolicyConfig& p) { p.record.spamReport = v.boolean(); }},
    {"flag", kOptional, [](const ConfigValue& v, PolicyConfig& p) { v.number(p.record.flag); }},
    {"antispam_profile", kOptional,
     [](const ConfigValue& v, PolicyConfig& p) { v.number(p.record.antispamProfile, 0); }},
    {"user_group", kOptional, [](const ConfigValue& v, PolicyConfig& p) { v.number(p.record.userGroup); }},
};

constexpr Key<__aps_user_group> kUserGroup[] = {
    {"number", kRequired, [](const ConfigValue& v, __aps_user_group& g) { v.number(g.ngid, 1); }},
    {"flag", kOptional, [](const ConfigValue& v, __aps_user_group& g) { v.number(g.flag); }},
};

constexpr Key<ProfileConfig> kAntispamProfile[] = {
    {"number", kRequired, [](const ConfigValue& v, ProfileConfig& p) { v.number(p.number, 1); }},
    {"domain", kOptional, [](const ConfigValue& v, ProfileConfig& p) { v.number(p.domain); }},
    {"quarantine_report", kOptional,
     [](const ConfigValue& v, ProfileConfig& p) { p.switches.quarantineReport = v.boolean(); }},
    {"email_release", kOptional,
     [](const ConfigValue& v, ProfileConfig& p) { p.switches.quarantineEmailRelease = v.boolean(); }},
    {"web_release", kOptional,
     [](const ConfigValue& v, ProfileConfig& p) { p.switches.quarantineWebRelease = v.boolean(); }},
    {"whitelist_sender", kOptional,
     [](const ConfigValue& v, ProfileConfig& p) { p.switches.quarantineWhitelistSender = v.boolean(); }},
};

// ---- Reading the tables.

constexpr std::string_view kMissing = "(missing)";

std::string joined(std::string_view table, std::string_view key) { return std::string(table).append(".").append(key); }

// The element of a table of ours with this name; null when there is none.
template <class Named, std::size_t count>
const Named* byName(const Named (&all)[count], std::string_view name) {
  const Named* found = std::find_if(all, all + count, [name](const Named& one) { return one.name == name; });
  return found == all + count ? nullptr : found;
}

template <class Record, std::size_t count>
void readTable(const std::string& file, std::string_view name, const toml::table& table,
               const Key<Record> (&keys)[count], Record& record) {
  for (const auto& [key, node] : table) {
    const ConfigValue value(file, joined(name, key.str()), node);
    const Key<Record>* known = byName(keys, key.str());
    if (!known) value.refuse("unknown key");
    known->take(value, record);
  }
  for (const Key<Record>& key : keys)
    if (key.required && !table.contains(key.name))
      refuseConfig(file, table.source().begin.line, joined(name, key.name), kMissing, "is required");
}

// [name]: a table that may be left out as far as none of its keys is required.
template <const auto& keys>
void readOne(const std::string& file, std::string_view name, const toml::table& root, HostConfig& config) {
  const toml::table none;
  const toml::node* node = root.get(name);
  readTable(file, name, node ? ConfigValue(file, std::string(name), *node).table() : none, keys, config);
}

// [[name]]: any number of tables, each of which becomes one record.
template <const auto& keys, auto records>
void readEach(const std::string& file, std::string_view name, const toml::table& root, HostConfig& config) {
  const toml::node* node = root.get(name);
  if (!node) return;
  const ConfigValue whole(file, std::string(name), *node);
  for (const toml::node& entry : whole.list("must be a list of tables, each with its own [[...]] line"))
    readTable(file, name, whole.item(entry).table(), keys, (config.*records).emplace_back());
}

template <const auto& keys>
void nameKeys(std::string_view table, std::vector<std::string>& names) {
  for (const auto& key : keys) names.push_back(joined(table, key.name));
}

struct Section {
  std::string_view name;
  void (*read)(const std::string& file, std::string_view name, const toml::table& root, HostConfig& config);
  void (*nameKeys)(std::string_view table, std::vector<std::string>& names);
};

constexpr Section kSections[] = {
    {"global", readOne<kGlobal>, nameKeys<kGlobal>},
    {"spam_report", readOne<kSpamReport>, nameKeys<kSpamReport>},
    {"antispam", readOne<kAntispam>, nameKeys<kAntispam>},
    {"high_availability", readOne<kHighAvailability>, nameKeys<kHighAvailability>},
    {"storage", readOne<kStorage>, nameKeys<kStorage>},
    {"remote_storage", readOne<kRemoteStorage>, nameKeys<kRemoteStorage>},
    {"mail_server", readOne<kMailServer>, nameKeys<kMailServer>},
    {"log", readOne<kLog>, nameKeys<kLog>},
    {"queue", readOne<kQueue>, nameKeys<kQueue>},
    {"state", readOne<kState>, nameKeys<kState>},
    {"interface", readEach<kInterface, &HostConfig::interfaces>, nameKeys<kInterface>},
    {"domain", readEach<kDomain, &HostConfig::domains>, nameKeys<kDomain>},
    {"recipient_policy", readEach<kRecipientPolicy, &HostConfig::policies>, nameKeys<kRecipientPolicy>},
    {"user_group", readEach<kUserGroup, &HostConfig::userGroups>, nameKeys<kUserGroup>},
    {"antispam_profile", readEach<kAntispamProfile, &HostConfig::profiles>, nameKeys<kAntispamProfile>},
    {"ldap_profile", readEach<kLdapProfile, &HostConfig::ldapProfiles>, nameKeys<kLdapProfile>},
};

void readSections(const std::string& file, const toml::table& root, HostConfig& config) {
  for (const auto& [key, node] : root)
    if (!byName(kSections, key.str())) ConfigValue(file, std::string(key.str()), node).refuse("unknown table or key");
  for (const Section& section : kSections) section.read(file, section.name, root, config);
}

// ---- What must agree between tables. Here every table has been read, so whatever is asked for is there.

class Entries {
 public:
  Entries(const std::string& file, const toml::table& root, std::string_view name)
      : file_(file), name_(name), list_(root.get_as<toml::array>(name)) {}

  const toml::table& table(std::size_t place) const { return *list_->get(place)->as_table(); }
  ConfigValue value(std::size_t place, std::string_view key) const {
    return {file_, joined(name_, key), *table(place).get(key)};
  }
  [[noreturn]] void refuseMissing(std::size_t place, std::string_view key, const std::string& reason) const {
    refuseConfig(file_, table(place).source().begin.line, joined(name_, key), kMissing, reason);
  }
  // Notes where the entry stands under its identity, which no earlier entry may have.
  template <class Places, class Identity>
  void index(std::size_t place, std::string_view key, Places& places, const Identity& identity) const {
    const auto [first, isNew] = places.emplace(identity, place);
    if (isNew) return;
    value(place, key).refuse("is there already, in line " + std::to_string(value(first->second, key).line()));
  }

 private:
  const std::string& file_;
  std::string_view name_;
  const toml::array* list_;
};

constexpr struct {
  std::string_view key, needs;
} kDomainNeeds[] = {
    {"send_to_group_owner", "ldap_profile"}, {"send_to_others", "other_recipients"}, {"own_template", "template"}};

void checkDomain(const Entries& entries, std::size_t place, const HostConfig& config) {
  for (const auto& [key, needs] : kDomainNeeds)
    if (entries.table(place)[key].value_or(false) && !entries.table(place).contains(needs))
      entries.refuseMissing(place, needs, "is required with " + std::string(key));
  if (config.domains[place].record->sendToGroupOwner &&
      config.ldapProfilePlaces.count(config.domains[place].record->groupOwnerLdapProfile) == 0)
    entries.value(place, "ldap_profile").refuse("is no configured LDAP profile");
  const std::string& mainName = config.domains[place].mainDomain;
  if (mainName.empty()) return;
  const DomainConfig* mainDomain = config.findDomain(mainName);
  if (!mainDomain) entries.value(place, "main_domain").refuse("is no configured domain");
  if (!mainDomain->mainDomain.empty()) entries.value(place, "main_domain").refuse("has a main domain itself");
}

void checkDomains(const Entries& entries, HostConfig& config) {
  for (std::size_t i = 0; i < config.domains.size(); ++i)
    entries.index(i, "name", config.domainPlaces, config.domains[i].name);
  for (std::size_t i = 0; i < config.domains.size(); ++i) checkDomain(entries, i, config);
}

void checkPolicies(const Entries& entries, HostConfig& config) {
  std::set<std::int32_t> profileNumbers;
  for (const ProfileConfig& profile : config.profiles) profileNumbers.insert(profile.number);
  for (std::size_t i = 0; i < config.policies.size(); ++i) {
    __recipient_policy& policy = config.policies[i].record;
    policy.ngid = static_cast<std::uint32_t>(i + 1);
    if (policy.antispamProfile != 0 && profileNumbers.count(policy.antispamProfile) == 0)
      entries.value(i, "antispam_profile").refuse("is no configured anti-spam profile");
    if (policy.userGroup != 0 && config.userGroupPlaces.count(policy.userGroup) == 0)
      entries.value(i, "user_group").refuse("is no configured user group");
  }
}

void checkLdapProfiles(const Entries& entries, HostConfig& config) {
  for (std::size_t i = 0; i < config.ldapProfiles.size(); ++i) {
    const LdapProfileConfig& profile = config.ldapProfiles[i];
    entries.index(i, "number", config.ldapProfilePlaces, profile.number);
    const auto isTls = [](const std::string& url) { return url.starts_with("ldaps:"); };
    if (profile.startTls && std::any_of(profile.urls.begin(), profile.urls.end(), isTls))
      entries.value(i, "start_tls").refuse("cannot be used with an ldaps URL, which begins with TLS");
    if (!profile.bindDn.empty() && profile.passwordFile.empty())
      entries.refuseMissing(i, "password_file", "is required with bind_dn");
  }
}

void checkQueue(const std::string& file, const toml::table& root, const QueueConfig& queue) {
  const auto refuse = [&](const char* key, std::string_view reason) {
    const std::string name = joined("queue", key);
    if (const toml::node* node = root["queue"][key].node()) ConfigValue(file, name, *node).refuse(reason);
    refuseConfig(file, root["queue"].node()->source().begin.line, name, kMissing, reason);
  };
  if (queue.kind == QueueKind::kSmtp && queue.url.empty()) refuse("url", "is required with kind = \"smtp\"");
  if (queue.retryLongest < queue.retryFirst) refuse("retry_longest", "must not be less than retry_first");
}

void checkWhole(const std::string& file, const toml::table& root, HostConfig& config) {
  checkQueue(file, root, config.queue);
  checkLdapProfiles({file, root, "ldap_profile"}, config);
  checkDomains({file, root, "domain"}, config);
  const Entries groups(file, root, "user_group");
  for (std::size_t i = 0; i < config.userGroups.size(); ++i)
    groups.index(i, "number", config.userGroupPlaces, config.userGroups[i].ngid);
  const Entries profiles(file, root, "antispam_profile");
  for (std::size_t i = 0; i < config.profiles.size(); ++i)
    profiles.index(i, "number", config.profilePlaces, std::pair(config.profiles[i].domain, config.profiles[i].number));
  checkPolicies({file, root, "recipient_policy"}, config);
  for (std::size_t i = 0; i < config.interfaces.size(); ++i)
    config.interfaces[i].ngid = static_cast<std::uint32_t>(i + 1);
  if (config.mailMode == 4 && config.spamReport.webHost[0] == '\0' && config.interfaces.empty())
    ConfigValue(file, "global.mail_mode", *root["global"]["mail_mode"].node())
        .refuse("needs spam_report.web_host or an [[interface]]: links would have no host");
}

toml::table parsed(const std::string& text, const std::string& file) try {
  return toml::parse(std::string_view(text));
} catch (const toml::parse_error& error) {
  const toml::source_position at = error.source().begin;
  throw Exception("ConfigException", 4, "HostConfig", __LINE__,
                  file + ":" + std::to_string(at.line) + ": column " + std::to_string(at.column) + ": " +
                      onOneLine(error.description()));
}

void checkText(const std::string& text, const std::string& file) {
  if (text.size() > kMaxHostConfig)
    throw Exception(
        "ConfigException", 4, "HostConfig", __LINE__,
        file + ": has " + std::to_string(text.size()) + " bytes, at most " + std::to_string(kMaxHostConfig) + " fit");
  if (const std::size_t line = lineWithDeepKey(text, kMaxDots))
    throw Exception("ConfigException", 4, "HostConfig", __LINE__,
                    file + ":" + std::to_string(line) + ": column 1: too many dots outside texts, at most " +
                        std::to_string(kMaxDots) + " can stand in a line");
}

}  // namespace

std::string asciiLower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return lower;
}

const DomainConfig* HostConfig::findDomain(std::string_view name) const {
  const auto found = domainPlaces.find(asciiLower(name));
  return found == domainPlaces.end() ? nullptr : &domains[found->second];
}

std::string hostConfigPath() { return underRoot("/etc/velmar/host.toml"); }

std::vector<std::string> hostConfigKeys() {
  std::vector<std::string> names;
  for (const Section& section : kSections) section.nameKeys(section.name, names);
  return names;
}

HostConfig parseHostConfig(const std::string& text, const std::string& path) {
  checkText(text, path);
  const toml::table root = parsed(text, path);
  HostConfig config;
  readSections(path, root, config);
  checkWhole(path, root, config);
  return config;
}

}  // namespace Velmar::Host
