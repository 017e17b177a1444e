// Checks and repairs the links between a mailbox's address and its secondary addresses; called once a report.

#include "spamreport/secondary_list.h"

#include "platform/logging.h"
#include "platform/users_lists.h"
#include "spamreport/log_events.h"

namespace Velmar {
namespace {

void appendName(std::string& names, const std::string& name) {
  if (!names.empty()) names += ',';
  names += name;
}

/// The names of one list, freed with the object also when a later list operation throws.
class FetchedNames {
 public:
  FetchedNames(const std::string& owner, const char* list) { mail_list_get_names(owner.c_str(), list, &names_, 0, 0); }
  FetchedNames(const FetchedNames&) = delete;
  FetchedNames& operator=(const FetchedNames&) = delete;
  ~FetchedNames() { mail_list_free_names(&names_); }

  int count() const noexcept { return names_.count; }
  const char* at(int i) const noexcept { return names_.names[i]; }

 private:
  mail_list_names names_;
};

struct Links {
  std::string confirmed;
  std::string removed;
  bool anyRemoved = false;
};

/// Goes through the address's links and deletes the one-sided ones.
Links confirmLinks(const std::string& address) {
  Links links;
  const FetchedNames names(address, "primaryaddr");
  for (int i = 0; i < names.count(); ++i) {
    const char* name = names.at(i);
    if (mail_list_find(name, "secondaryaddr", address.c_str(), 0)) {
      appendName(links.confirmed, name);
    } else {
      mail_list_delete_from(address.c_str(), "primaryaddr", name, 0);
      appendName(links.removed, name);
      links.anyRemoved = true;
    }
  }
  return links;
}

}  // namespace

std::string get_secondary_list(const std::string& address) {
  if (address.find('@') == std::string::npos) return "";
  const Links links = confirmLinks(address);
  if (links.anyRemoved) {
    Logger::instance(false).log(LogEvent::kListLinksRepaired, 0, "%s\x01%s", links.removed.c_str(), address.c_str());
  }
  return links.confirmed;
}

}  // namespace Velmar
