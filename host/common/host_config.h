#pragma once

// The configuration file of the host platform, read whole and checked whole.
//
// Groups take their part from here; nobody else reads the file.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/antispam_profiles.h"
#include "platform/config_store.h"
#include "platform/export.h"
#include "platform/types.h"

namespace Velmar::Host {

struct DomainConfig {
  std::string name;        ///< lower case
  std::string mainDomain;  ///< lower case; "" = none
  Ref<ApsGwServer> record;
};

struct PolicyConfig {
  std::string pattern;  ///< lower case; "*" stands for any run of bytes, "?" for one
  bool enabled = true;
  __recipient_policy record{};
};

struct ProfileConfig {
  int number = 0;
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
  __aps_spam_report spamReport{};
  __aps_remote_storage remoteStorage{};
  __aps_mailserver mailServer{};
  __aps_sys_antispam sysAntispam{};
  __velmar_ha highAvailability{};
  __nas_storage_t nasStorage{};
  std::vector<__aps_interface> interfaces;
  std::vector<__aps_user_group> userGroups;
  std::vector<DomainConfig> domains;   ///< in the order of the file
  std::vector<PolicyConfig> policies;  ///< in the order of the file
  std::vector<ProfileConfig> profiles;
  LogConfig log;
};

/// Path of the configuration file, below the root.
VLM_EXPORT std::string hostConfigPath();

/// Reads and checks a configuration text. `path` is used in messages only.
/// Throws Exception whose text has one line for the first fault: "FILE:LINE: KEY: VALUE: REASON".
VLM_EXPORT HostConfig parseHostConfig(const std::string& text, const std::string& path);

/// The process's configuration, loaded from hostConfigPath() on first use. It lives as long as the process.
/// Safe from many threads; a failed load throws Exception and the next caller tries again.
VLM_EXPORT const HostConfig& hostConfig();

}  // namespace Velmar::Host
