// The users, address lists and groups of the fake world.

#include "platform/users_lists.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "tests/fake/fake.h"

namespace Velmar {

using Fake::call;
using Fake::join;
using Fake::world;

int mail_list_get_names(const char* owner, const char* list, mail_list_names* names, int reserved1, int reserved2) {
  call("mail_list_get_names", join({owner, list, std::to_string(reserved1), std::to_string(reserved2)}));
  const std::vector<std::string>& entries = world().lists[{owner, list}];
  names->count = static_cast<int>(entries.size());
  names->names = new char*[entries.size() + 1];
  for (std::size_t i = 0; i < entries.size(); ++i) names->names[i] = ::strdup(entries[i].c_str());
  return 0;
}

int mail_list_find(const char* owner, const char* list, const char* entry, int reserved) {
  call("mail_list_find", join({owner, list, entry, std::to_string(reserved)}));
  const std::vector<std::string>& entries = world().lists[{owner, list}];
  return std::find(entries.begin(), entries.end(), entry) == entries.end() ? 0 : 7;
}

int mail_list_delete_from(const char* owner, const char* list, const char* entry, int reserved) {
  call("mail_list_delete_from", join({owner, list, entry, std::to_string(reserved)}));
  std::erase(world().lists[{owner, list}], entry);
  return 0;
}

void mail_list_free_names(mail_list_names* names) noexcept {
  Fake::note("mail_list_free_names");
  for (int i = 0; i < names->count; ++i) std::free(names->names[i]);
  delete[] names->names;
  *names = {};
}

int get_user_pref_lang(const char* address, char* buffer, int size) {
  call("get_user_pref_lang", join({address, std::to_string(size)}));
  const auto found = world().languages.find(address);
  if (found == world().languages.end()) return 1;
  std::snprintf(buffer, static_cast<std::size_t>(size), "%s", found->second.c_str());
  return 0;
}

int vlm_is_deleted_user_path(const char* path) {
  call("vlm_is_deleted_user_path", path);
  return world().deletedPaths.count(path) ? 4 : 0;
}

QRL_LdapUserManager& QRL_LdapUserManager::Instance() {
  static QRL_LdapUserManager manager;
  return manager;
}

std::set<std::string> QRL_LdapUserManager::getGroupOwnerAddressesForUser(const std::string& user, int profile,
                                                                         bool nested) {
  call("getGroupOwnerAddressesForUser", join({user, std::to_string(profile), nested ? "true" : "false"}));
  return world().groupOwners;
}

VXMailUserId::VXMailUserId(const std::string& address) : directory_(address) { call("VXMailUserId", address); }

std::string VXMailUserId::fname(int kind) const {
  call("fname", std::to_string(kind));
  return directory_;
}

}  // namespace Velmar
