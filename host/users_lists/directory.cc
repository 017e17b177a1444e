// The directory service. This host platform has no directory client: no LDAP profile can be configured, and every
// look-up says so instead of claiming that a user is in no group.

#include "platform/types.h"
#include "platform/users_lists.h"

namespace Velmar {

QRL_LdapUserManager& QRL_LdapUserManager::Instance() {
  static QRL_LdapUserManager instance;
  return instance;
}

std::set<std::string> QRL_LdapUserManager::getGroupOwnerAddressesForUser(const std::string&, int profile, bool) {
  throw Exception("DirectoryException", 4, "LdapDirectory", __LINE__,
                  "LDAP profile " + std::to_string(profile) + " is not configured");
}

}  // namespace Velmar
