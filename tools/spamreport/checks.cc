// Checks of the configuration and its schedule. Each goes the way that a report would go and changes nothing that a
// report would not change.

#include "tools/spamreport/checks.h"

#include <array>
#include <ctime>
#include <stdexcept>

#include "host/host.h"
#include "platform/config_store.h"
#include "tools/spamreport/schedule.h"
#include "tools/spamreport/time_text.h"

namespace Velmar::Tool {
namespace {

std::vector<Finding> lookAtConfiguration() {
  std::array<char, 512> host{};
  if (cfg_get_localdomain_or_host(host.data(), static_cast<int>(host.size())) != 0) {
    throw std::runtime_error("neither a local domain nor a host name is configured");
  }
  const std::size_t domains = Host::configuredDomains().size();
  if (domains == 0) return note("no domain is configured, so nothing is sent");
  return good(counted(domains, "domain", "domains") + ", actions go to " + host.data());
}

std::uint32_t configuredSchedule() {
  cmf_query* query = cmf_query_create_withdomain(0, G_CLI_SPAM_REPORT);
  const std::uint32_t schedule = static_cast<const __aps_spam_report*>(cmf_query_update(query))->schedule;
  cmf_shm_read_unlock(query);
  return schedule;
}

std::string hoursText(std::uint32_t schedule) {
  std::string text;
  for (int hour = 0; hour < 24; ++hour) {
    if ((schedule >> hour & 1U) != 0) text += (text.empty() ? "" : ", ") + std::to_string(hour);
  }
  return text;
}

std::vector<Finding> lookAtSchedule() {
  constexpr std::int64_t kTwoDays = 172800;  // a day may lack an hour
  const std::uint32_t schedule = configuredSchedule();
  const std::int64_t now = std::time(nullptr);
  const std::vector<std::int64_t> next = scheduledInstants(schedule, now + 1, now + kTwoDays);
  if (next.empty()) return note("no hour is scheduled");
  return good("reports at " + hoursText(schedule) + " h, next due " + localTimeText(next.front()));
}

}  // namespace

std::string counted(std::size_t count, const std::string& one, const std::string& many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

Check configurationCheck() {
  return {"configuration", lookAtConfiguration,
          "write or correct etc/velmar/host.toml, as velmar-host.toml(5) describes it, and let this user read it"};
}

void addScheduleCheck(Checks& checks) {
  checks.push_back({"schedule", lookAtSchedule,
                    "name hours in schedule of [spam_report], unless reports are started by other means"});
}

}  // namespace Velmar::Tool
