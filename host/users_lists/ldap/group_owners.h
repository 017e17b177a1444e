#pragma once

// From a user to the mail addresses of those who own the user's groups.

#include <cstddef>
#include <set>
#include <string>

#include "host/users_lists/ldap/ldap_connection.h"

namespace Velmar::Host {

/// How much one look-up may find. What goes beyond is an error, never a part of the answer.
struct OwnerBounds {
  std::size_t groups = 1000;
  std::size_t owners = 1000;
};

/// The addresses of the owners of the groups that the user belongs to.
///
/// The user is the one entry that the profile's user filter finds; none = surely no owner, several = Exception.
/// nested  also owners of groups that contain these groups, as many steps up as the profile says
/// Of an owner's several addresses the directory's first counts, so that each person gets a report once. A value that
/// is no address, an owner without any, and one whose entry does not exist, are passed over. An owner that is a group
/// counts by its own address; its members are not looked for. Throws ServerFailed or Exception as LdapConnection does;
/// Exception also beyond `bounds`.
std::set<std::string> groupOwnerAddresses(LdapConnection& connection, const LdapProfileConfig& profile,
                                          const OwnerBounds& bounds, const std::string& user, bool nested);

/// Goes the way of a look-up as far as it can be gone without knowing a user: both bases and filters, and whether there
/// is a group with members and owners at all. Throws as above.
void checkSearches(LdapConnection& connection, const LdapProfileConfig& profile);

}  // namespace Velmar::Host
