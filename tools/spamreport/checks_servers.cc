// Checks of the servers that reports need. Each connects as a report would, and sends nothing.

#include "host/host.h"
#include "tools/spamreport/checks.h"

namespace Velmar::Tool {
namespace {

std::vector<Finding> lookAtMailServer() {
  const std::string found = Host::checkMailServer();
  if (found.empty()) return note("none: mails stay in the spool until another program takes them");
  return good(found);
}

}  // namespace

void addServerChecks(Checks& checks) {
  for (const int profile : Host::configuredLdapProfiles()) {
    checks.push_back({"LDAP profile " + std::to_string(profile),
                      [profile] { return good(Host::checkLdapProfile(profile)); },
                      "correct this [[ldap_profile]], and see that its servers run and let it search"});
  }
  checks.push_back(
      {"mail server", lookAtMailServer, "name one that takes mails from this host in [queue], and see that it runs"});
}

}  // namespace Velmar::Tool
