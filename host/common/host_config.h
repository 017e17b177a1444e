#pragma once

// The configuration file of the host platform, read whole and checked whole.
//
// Groups take their part from here; nobody else reads the file.

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/antispam_profiles.h"
#include "platform/config_store.h"
#include "platform/export.h"
#include "platform/types.h"

namespace Velmar::Host {

/// Size of the largest configuration file that is read, in bytes.
constexpr std::size_t kMaxHostConfig = 8U << 20;

struct DomainConfig {
  std::string name;        ///< ASCII letters in lower case
  std::string mainDomain;  ///< the same; "" = none
  Ref<ApsGwServer> record{new ApsGwServer};
};

struct PolicyConfig {
  std::string pattern;  ///< ASCII letters in lower case; "*" stands for any run of bytes, "?" for one character
  bool enabled = true;
  /// Its ngid is its place in the file, from 1.
  __recipient_policy record{.ngid = 0, .flag = 0, .antispamProfile = 0, .userGroup = 0, .spamReport = 1};
};

struct ProfileConfig {
  std::int32_t number = 0;
  std::uint32_t domain = 0;  ///< 0 = system
  ProfileAntiSpam::Switches switches;
};

struct LogConfig {
  bool toStderr = true;
  std::string file;  ///< path of the system, below the root; "" = no file
  bool toJournal = false;
  bool toSyslog = false;
};

enum class QueueKind { kSpool, kSmtp };
enum class SmtpTls { kNone, kOffered, kRequired, kImplicit };

/// What becomes of the mails in the spool. Times are seconds.
struct QueueConfig {
  QueueKind kind = QueueKind::kSpool;  ///< kSpool leaves them there
  std::string url;                     ///< "smtp://HOST[:PORT]"; set when kind is kSmtp
  SmtpTls tls = SmtpTls::kNone;
  std::string caFile;    ///< path of the system, below the root; "" = the system's certificates
  std::string authFile;  ///< the same; user in the first line, password in the second; "" = no AUTH
  int timeout = 60;      ///< longest wait for the server's next step
  int retryFirst = 300;
  int retryLongest = 4000;
  int giveUpAfter = 432000;
  int minFreeMib = 64;       ///< free space that must remain for a mail to be accepted
  int minFreeInodes = 1000;  ///< the same for files
};

struct StateConfig {
  std::string url = "sqlite:///var/lib/velmar/state.db";  ///< or "postgresql://..." as libpq takes it
};

/// A directory server and how its users and groups are found. Times are seconds.
struct LdapProfileConfig {
  std::int32_t number = 0;
  std::vector<std::string> urls;  ///< "ldap://", "ldaps://" or "ldapi://", tried in this order
  bool startTls = false;
  std::string caFile;        ///< path of the system, below the root; "" = the system's certificates
  std::string bindDn;        ///< "" = anonymous
  std::string passwordFile;  ///< as caFile; its first line is the password
  std::string userBase;
  std::string userFilter = "(mail={address})";  ///< "{address}" stands for the escaped address
  std::string groupBase;                        ///< "" = userBase
  std::string groupFilter = "(objectClass=*)";  ///< what else must hold for a group
  std::string memberAttribute = "member";
  std::string ownerAttribute = "owner";
  std::string mailAttribute = "mail";
  bool nestedGroups = false;
  int nestedDepth = 8;  ///< how many groups up a user's own group is followed
  int timeout = 5;      ///< for connecting, TLS, bind and each search
};

/// The whole configuration; never changes after it is loaded.
struct HostConfig {
  nCfg_global_block global{};
  std::string localDomain;  ///< "" = none: the host name stands in
  int mailMode = 1;
  __aps_spam_report spamReport{
      .ngid = 0, .schedule = 0, .port = 443, .accessLinkHours = 0, .webHost = "", .templateName = "default"};
  __aps_remote_storage remoteStorage{};
  __aps_mailserver mailServer{.ngid = 0, .smtpPort = 25};
  __aps_sys_antispam sysAntispam{};
  __velmar_ha highAvailability{};
  __nas_storage_t nasStorage{};
  // In the order of the file.
  std::vector<__aps_interface> interfaces;  ///< their ngid counts from 1
  std::vector<__aps_user_group> userGroups;
  std::vector<DomainConfig> domains;
  std::vector<PolicyConfig> policies;
  std::vector<ProfileConfig> profiles;
  std::vector<LdapProfileConfig> ldapProfiles;
  LogConfig log;
  QueueConfig queue;
  StateConfig state;
  int catchUpHours = 72;  ///< how far back a scheduled run makes up for missed ones

  // Where each one stands in the lists above.
  std::unordered_map<std::string, std::size_t> domainPlaces;
  std::unordered_map<std::uint32_t, std::size_t> userGroupPlaces;
  std::map<std::pair<std::uint32_t, std::int32_t>, std::size_t> profilePlaces;  ///< by (domain, number)
  std::unordered_map<std::int32_t, std::size_t> ldapProfilePlaces;

  /// The domain of this name, without regard to ASCII case; null when there is none.
  VLM_EXPORT const DomainConfig* findDomain(std::string_view name) const;
};

/// The text with its ASCII letters in lower case, as names and patterns are kept here.
VLM_EXPORT std::string asciiLower(std::string_view text);

/// Path of the configuration file, below the root.
VLM_EXPORT std::string hostConfigPath();

/// Every key that the file may hold, as "TABLE.KEY", for checks of the documentation.
std::vector<std::string> hostConfigKeys();

/// Reads and checks a configuration text of at most kMaxHostConfig bytes. `path` is used in messages only.
/// Throws Exception whose text is one line for the first fault found, "FILE:LINE: KEY: VALUE: REASON";
/// "FILE:LINE: column N: REASON" where the text is no TOML. A long value is shown by its start.
VLM_EXPORT HostConfig parseHostConfig(const std::string& text, const std::string& path);

/// The process's configuration, loaded from hostConfigPath() on first use. It lives as long as the process.
/// Safe from many threads; a failed load throws Exception that names the file, and the next caller tries again.
VLM_EXPORT const HostConfig& hostConfig();

}  // namespace Velmar::Host
