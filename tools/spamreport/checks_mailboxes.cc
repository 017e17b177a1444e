// Checks of domains and mailboxes: whether this user can read what reports read, and who takes part. Of a large domain
// some mailboxes stand for all, so that the check stays quick.

#include <algorithm>
#include <ctime>
#include <stdexcept>

#include "host/host.h"
#include "platform/config_store.h"
#include "platform/mailbox.h"
#include "platform/users_lists.h"
#include "tools/spamreport/checks.h"

namespace Velmar::Tool {
namespace {

constexpr std::size_t kSample = 20;
constexpr int kQuarantine = 10;
constexpr int kWeek = 7 * 86400;

bool hasPolicy(const std::string& mailbox) {
  __recipient_policy policy{};
  return cfg_get_managed_recipient_policy_with_filter(mailbox.c_str(), &policy, vlm_recipient_policy_spamreport_filter,
                                                      0, 1) == 0;
}

/// Up to kSample of the names, spread over all of them.
std::vector<std::string> sampleOf(const std::vector<std::string>& names) {
  if (names.size() <= kSample) return names;
  std::vector<std::string> sample;
  for (std::size_t i = 0; i < kSample; ++i) sample.push_back(names[i * names.size() / kSample]);
  return sample;
}

/// Lists the last days of a quarantine and reads the first message of them. Returns whether there is a quarantine.
bool readQuarantine(const std::string& mailbox) {
  const auto quarantine =
      VXMailBoxRef::create(VXMailUserId(mailbox).fname(kQuarantine), MAILBOX_OPEN_READ, VXMailBoxRef::MAILBOX_OP_NONE);
  if (!quarantine) return false;
  const int now = static_cast<int>(std::time(nullptr));
  const VXMScopeRef scope(VXMScopeRef::TIME_RANGE, now - kWeek, now, 1);
  quarantine->setScope(scope);
  quarantine->next();
  return true;
}

std::vector<Finding> lookAtMailboxes(const std::string& domain) {
  const std::vector<std::string> mailboxes = Host::mailboxesOfDomain(domain);
  if (!Host::domainDirectoryExists(domain)) return note("there is no home/" + domain + ", so nobody can get a report");
  if (mailboxes.empty()) return note("no mailbox in home/" + domain + ", so nobody can get a report");
  const auto managed = std::count_if(mailboxes.begin(), mailboxes.end(), hasPolicy);
  const std::vector<std::string> sample = sampleOf(mailboxes);
  const auto quarantines = std::count_if(sample.begin(), sample.end(), readQuarantine);
  return good(std::to_string(managed) + " of " + counted(mailboxes.size(), "mailbox", "mailboxes") +
              " take part in reports; " + std::to_string(sample.size()) + " looked into, " +
              std::to_string(quarantines) + " with a quarantine");
}

}  // namespace

void addMailboxChecks(Checks& checks) {
  for (const std::string& domain : Host::configuredDomains()) {
    checks.push_back(
        {"mailboxes of " + domain, [domain] { return lookAtMailboxes(domain); },
         "mount home/" + domain + " or make mailboxes there, and let this user read it and their quarantines"});
  }
}

}  // namespace Velmar::Tool
