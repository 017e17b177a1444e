// Recipient policies: which one manages an address.

#include "host/common/host_config.h"
#include "host/config_store/pattern.h"
#include "host/host.h"
#include "platform/config_store.h"

namespace Velmar {
namespace {

constexpr int kFound = 0;
constexpr int kNone = 1;

}  // namespace

int vlm_recipient_policy_spamreport_filter(const __recipient_policy* policy) { return policy->spamReport != 0 ? 1 : 0; }

int cfg_get_managed_recipient_policy_with_filter(const char* address, __recipient_policy* record,
                                                 recipient_policy_filter filter, int domain, int managed) {
  if (domain != 0)
    throw Exception("ConfigException", 4, "RecipientPolicies", __LINE__,
                    "recipient policies of domain number " + std::to_string(domain) + ": only 0 (all) is kept");
  const std::string folded = Host::asciiLower(address);
  for (const Host::PolicyConfig& policy : Host::hostConfig().policies) {
    if (managed && !policy.enabled) continue;
    if (filter && !filter(&policy.record)) continue;
    if (!Host::patternMatches(policy.pattern, folded)) continue;
    *record = policy.record;
    return kFound;
  }
  return kNone;
}

std::vector<Host::PolicyMatch> Host::policiesMatching(const std::string& address) {
  const std::string folded = asciiLower(address);
  std::vector<PolicyMatch> matches;
  for (const PolicyConfig& policy : hostConfig().policies) {
    if (!patternMatches(policy.pattern, folded)) continue;
    matches.push_back({policy.record.ngid, policy.pattern, policy.enabled, policy.record.spamReport != 0});
  }
  return matches;
}

}  // namespace Velmar
