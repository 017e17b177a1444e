// Lists the mailboxes for runs over a whole domain, and tells an empty domain from one whose directory is missing.

#include "tools/spamreport/mailbox_list.h"

#include "host/host.h"
#include "platform/config_store.h"

namespace Velmar::Tool {

std::optional<std::vector<std::string>> listMailboxes(const std::string& domain) {
  // An associated domain may have all its mailboxes under its main domain.
  const bool associated = cfg_get_main_domain_name(domain.c_str(), 0) != nullptr;
  if (!associated && !Host::domainDirectoryExists(domain)) return std::nullopt;
  return Host::mailboxesOfDomain(domain);
}

}  // namespace Velmar::Tool
