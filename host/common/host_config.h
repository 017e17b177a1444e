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
  LogConfig log;

  // Where each one stands in the lists above.
  std::unordered_map<std::string, std::size_t> domainPlaces;
  std::unordered_map<std::uint32_t, std::size_t> userGroupPlaces;
  std::map<std::pair<std::uint32_t, std::int32_t>, std::size_t> profilePlaces;  ///< by (domain, number)

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
