// The searches of one look-up: user, groups level by level, owners. Called by LdapDirectory with a connection. Names
// come from the directory as they are; loops among the groups end because each group is taken once.

#include "host/users_lists/ldap/group_owners.h"

#include <algorithm>
#include <optional>
#include <span>
#include <vector>

#include "host/host.h"
#include "host/users_lists/ldap/ldap_escape.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kMembersPerSearch = 32;  // keeps a filter well below what servers take in one request

using Names = std::vector<std::string>;

class OwnerSearch {
 public:
  OwnerSearch(LdapConnection& connection, const LdapProfileConfig& profile, const OwnerBounds& bounds)
      : connection_(connection), profile_(profile), bounds_(bounds) {}

  std::optional<std::string> userNamed(const std::string& address);
  void addGroupsOf(const std::string& user, int levels);
  std::set<std::string> addressesOfOwners();

 private:
  [[noreturn]] void fail(const std::string& reason) const;
  Names groupsAbove(const Names& members);
  Names groupsWith(std::span<const std::string> members);
  bool isNew(const LdapEntry& group);
  void addOwners(const Names& owners);

  LdapConnection& connection_;
  const LdapProfileConfig& profile_;
  const OwnerBounds& bounds_;
  std::set<std::string> groups_;
  std::set<std::string> owners_;
};

void OwnerSearch::fail(const std::string& reason) const {
  throw directoryError(__LINE__, profile_.number, connection_.url() + ": " + reason);
}

bool isAddress(const std::string& text) { return !EmailAddress::rfc5322Parse(text, true).isEmptyAddress(); }

const std::string& groupBase(const LdapProfileConfig& profile) {
  return profile.groupBase.empty() ? profile.userBase : profile.groupBase;
}

std::optional<std::string> OwnerSearch::userNamed(const std::string& address) {
  const std::string filter = userFilter(profile_.userFilter, address);
  const LdapAnswer answer =
      connection_.search({.base = profile_.userBase, .filter = filter, .attribute = "", .limit = 2});
  if (!answer.whole || answer.entries.size() > 1) {
    fail("more than one entry below \"" + printable(profile_.userBase) + "\" matches " + printable(filter));
  }
  if (answer.entries.empty()) return std::nullopt;
  return answer.entries.front().dn;
}

void OwnerSearch::addGroupsOf(const std::string& user, int levels) {
  Names members{user};
  for (int level = 0; level < levels && !members.empty(); ++level) members = groupsAbove(members);
}

/// The groups not yet known that have one of `members`.
Names OwnerSearch::groupsAbove(const Names& members) {
  Names groups;
  for (std::size_t begin = 0; begin < members.size(); begin += kMembersPerSearch) {
    const std::size_t count = std::min(kMembersPerSearch, members.size() - begin);
    const Names found = groupsWith(std::span(members).subspan(begin, count));
    groups.insert(groups.end(), found.begin(), found.end());
  }
  return groups;
}

Names OwnerSearch::groupsWith(std::span<const std::string> members) {
  const LdapAnswer answer =
      connection_.search({.base = groupBase(profile_),
                          .filter = memberFilter(profile_.groupFilter, profile_.memberAttribute, members),
                          .attribute = profile_.ownerAttribute,
                          .limit = static_cast<int>(bounds_.groups) + 1});
  if (!answer.whole) fail("the user is in more groups than the server, or one look-up, gives");
  Names groups;
  for (const LdapEntry& group : answer.entries) {
    if (!isNew(group)) continue;
    groups.push_back(group.dn);
    addOwners(group.values);
  }
  return groups;
}

bool OwnerSearch::isNew(const LdapEntry& group) {
  const bool added = groups_.insert(group.dn).second;
  if (groups_.size() > bounds_.groups) {
    fail("the user is in more than " + std::to_string(bounds_.groups) + " groups");
  }
  return added;
}

void OwnerSearch::addOwners(const Names& owners) {
  for (const std::string& owner : owners) {
    if (!owner.empty()) owners_.insert(owner);
  }
  if (owners_.size() > bounds_.owners) {
    fail("the user's groups have more than " + std::to_string(bounds_.owners) + " owners");
  }
}

std::set<std::string> OwnerSearch::addressesOfOwners() {
  std::set<std::string> addresses;
  for (const std::string& owner : owners_) {
    const std::optional<LdapEntry> entry = connection_.read(owner, profile_.mailAttribute);
    if (!entry) continue;
    const auto first = std::find_if(entry->values.begin(), entry->values.end(), isAddress);
    if (first != entry->values.end()) addresses.insert(*first);
  }
  return addresses;
}

}  // namespace

std::set<std::string> groupOwnerAddresses(LdapConnection& connection, const LdapProfileConfig& profile,
                                          const OwnerBounds& bounds, const std::string& user, bool nested) {
  OwnerSearch search(connection, profile, bounds);
  const std::optional<std::string> name = search.userNamed(user);
  if (!name) return {};
  search.addGroupsOf(*name, nested ? 1 + profile.nestedDepth : 1);
  return search.addressesOfOwners();
}

void checkSearches(LdapConnection& connection, const LdapProfileConfig& profile) {
  connection.search({.base = profile.userBase,
                     .filter = userFilter(profile.userFilter, "postmaster@localhost"),
                     .attribute = profile.mailAttribute,
                     .limit = 1});
  const std::string filter =
      "(&" + profile.groupFilter + "(" + profile.memberAttribute + "=*)(" + profile.ownerAttribute + "=*))";
  const LdapAnswer groups =
      connection.search({.base = groupBase(profile), .filter = filter, .attribute = "", .limit = 1});
  if (!groups.entries.empty()) return;
  throw directoryError(__LINE__, profile.number,
                       connection.url() + ": no group with members and owners: nothing below \"" +
                           printable(groupBase(profile)) + "\" matches " + printable(filter));
}

}  // namespace Velmar::Host
