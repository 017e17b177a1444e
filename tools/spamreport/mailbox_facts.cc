// Reads directory and address lists of a mailbox, for previews and checks. A report reads the lists as well and deletes
// one-sided links on its way, which neither of them may do.

#include "tools/spamreport/mailbox_facts.h"

#include "host/host.h"
#include "platform/users_lists.h"
#include "tools/spamreport/recipients.h"

namespace Velmar::Tool {
namespace {

constexpr int kQuarantine = 10;

/// The names of one list, freed with the object.
class Names {
 public:
  Names(const std::string& owner, const char* list) { mail_list_get_names(owner.c_str(), list, &names_, 0, 0); }
  Names(const Names&) = delete;
  Names& operator=(const Names&) = delete;
  ~Names() { mail_list_free_names(&names_); }

  char** begin() const { return names_.names; }
  char** end() const { return names_.names + names_.count; }

 private:
  mail_list_names names_;
};

}  // namespace

std::string configuredAddress(const std::string& text) {
  const std::string address = mailboxAddress(text);
  const std::size_t at = address.find('@');
  return address.substr(0, at + 1) + chooseDomain(address.substr(at + 1), Host::configuredDomains());
}

std::string directoryOf(const std::string& address) {
  const std::string quarantine = VXMailUserId(address).fname(kQuarantine);
  return quarantine.substr(0, quarantine.rfind('/'));
}

bool isDeletedUser(const std::string& address) { return vlm_is_deleted_user_path(directoryOf(address).c_str()) != 0; }

Links linksOf(const std::string& address) {
  Links links;
  for (const char* name : Names(address, "primaryaddr")) {
    const bool confirmed = mail_list_find(name, "secondaryaddr", address.c_str(), 0) != 0;
    (confirmed ? links.confirmed : links.oneSided).emplace_back(name);
  }
  return links;
}

}  // namespace Velmar::Tool
