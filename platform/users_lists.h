#pragma once

// Mailbox users: their address lists, preferences, groups and mailbox names.

#include <set>
#include <string>

#include "platform/export.h"

namespace Velmar {

// Every operation here may be called from any thread, also for the same owner.
// "No" is answered only when the store surely said so: a store that is locked, unreadable or broken throws Exception.

/// The names of one list; filled by mail_list_get_names, freed by mail_list_free_names.
struct mail_list_names {
  int count = 0;
  char** names = nullptr;  ///< `count` NUL-terminated texts
};

/// Fetches the names in the list `list` of the address `owner`, in the order in which they were added.
/// A list that does not exist is empty. Both trailing arguments are 0.
/// Returns 0; `names` must be freed with mail_list_free_names. Throws Exception (then nothing needs freeing).
VLM_EXPORT int mail_list_get_names(const char* owner, const char* list, mail_list_names* names, int reserved1,
                                   int reserved2);

/// Non-zero when the list `list` of `owner` holds `entry`. Addresses match without regard to ASCII case of the domain.
/// The trailing argument is 0. Throws Exception.
VLM_EXPORT int mail_list_find(const char* owner, const char* list, const char* entry, int reserved);

/// Deletes `entry` from the list `list` of `owner`; an entry that is not there is no error.
/// The trailing argument is 0. Returns 0, and the change is durable then. Throws Exception (then nothing changed).
VLM_EXPORT int mail_list_delete_from(const char* owner, const char* list, const char* entry, int reserved);

/// Frees what mail_list_get_names filled and empties it. Never throws.
VLM_EXPORT void mail_list_free_names(mail_list_names* names) noexcept;

/// The language that the user of a bare address prefers, as a code like "de" or "pt-BR", NUL-terminated into `buffer`
/// of `size` bytes. Returns 0 when there is one; non-zero when the user has no preference (buffer untouched). A
/// platform may answer for users without one what their site has chosen.
/// Throws Exception when it could not look, or when the code does not fit.
VLM_EXPORT int get_user_pref_lang(const char* address, char* buffer, int size);

/// Non-zero when `path` (a mailbox directory, as "/home/d/u~d") belongs to a deleted user.
/// A path that cannot be a mailbox directory (other prefix, "." or ".." components) gives 0 and is not looked at.
/// Throws Exception when it could not look.
VLM_EXPORT int vlm_is_deleted_user_path(const char* path);

/// The directory service.
class VLM_EXPORT QRL_LdapUserManager {
 public:
  /// The one instance; lives as long as the process.
  static QRL_LdapUserManager& Instance();

  /// Mail addresses of the owners of the groups that a user belongs to.
  ///
  /// user     bare address of the mailbox
  /// profile  number of the LDAP profile
  /// nested   also owners of groups that contain the user's groups
  /// Returns the addresses as the directory holds them; empty when there is surely none.
  /// Throws Exception, naming profile and server, when it could not look.
  std::set<std::string> getGroupOwnerAddressesForUser(const std::string& user, int profile, bool nested);
};

/// The mailbox of one address.
class VLM_EXPORT VXMailUserId {
 public:
  /// address  bare address. Throws Exception when it cannot name a mailbox: no domain, "/" or NUL in it,
  ///          or a part that is "." or "..".
  explicit VXMailUserId(const std::string& address);

  /// The name of one of the user's mailboxes, for VXMailBoxRef::create. kind 10 = the quarantine:
  /// "/home/d/u~d/quarantine". Throws Exception for any other kind.
  std::string fname(int kind) const;

 private:
  std::string directory_;
};

}  // namespace Velmar
