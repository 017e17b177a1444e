// The directory service: one LdapDirectory for each configured LDAP profile. Called by the choice of a report's
// recipients, from any thread, and by the administrator's check. A profile that is not configured is an error, never a
// user without groups.

#include <map>
#include <memory>
#include <mutex>

#include "host/common/host_config.h"
#include "host/host.h"
#include "host/users_lists/ldap/ldap_directory.h"
#include "platform/users_lists.h"

namespace Velmar {
namespace {

using namespace Host;

const LdapProfileConfig& configOf(int profile) {
  const HostConfig& config = hostConfig();
  const auto place = config.ldapProfilePlaces.find(profile);
  if (place == config.ldapProfilePlaces.end()) {
    throw Exception("DirectoryException", 4, "LdapDirectory", __LINE__,
                    "LDAP profile " + std::to_string(profile) + " is not configured");
  }
  return config.ldapProfiles[place->second];
}

// Never deleted: other threads may still look something up while the process ends.
LdapDirectory& directoryOf(int profile) {
  static std::mutex mutex;
  static auto& directories = *new std::map<int, std::unique_ptr<LdapDirectory>>;
  const LdapProfileConfig& config = configOf(profile);
  const std::lock_guard lock(mutex);
  std::unique_ptr<LdapDirectory>& directory = directories[profile];
  if (!directory) directory = std::make_unique<LdapDirectory>(config);
  return *directory;
}

}  // namespace

QRL_LdapUserManager& QRL_LdapUserManager::Instance() {
  static QRL_LdapUserManager instance;
  return instance;
}

std::set<std::string> QRL_LdapUserManager::getGroupOwnerAddressesForUser(const std::string& user, int profile,
                                                                         bool nested) {
  return directoryOf(profile).ownersOfGroupsOf(user, nested);
}

std::vector<int> Host::configuredLdapProfiles() {
  std::vector<int> numbers;
  for (const LdapProfileConfig& profile : hostConfig().ldapProfiles) numbers.push_back(profile.number);
  return numbers;
}

std::string Host::checkLdapProfile(int number) { return LdapDirectory(configOf(number)).check(); }

}  // namespace Velmar
