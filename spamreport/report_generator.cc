// Turns one mailbox directory into one delivered report.
//
// process() is called by the entry point; nothing that goes wrong with a report leaves it.

#include "platform/logging.h"
#include "platform/users_lists.h"
#include "spamreport/log_events.h"
#include "spamreport/secondary_list.h"
#include "velmar/spamreport.h"

namespace Velmar {
namespace {

constexpr std::size_t kMaxPath = 254;   // longer paths name no mailbox
constexpr std::size_t kPrefixSize = 6;  // "/home" and the separator after it

}  // namespace

SpamreportGenerator::SpamreportGenerator(long periodLength, long periodUntil)
    : policy(false), period(periodLength), until(periodUntil) {}

// The given policy is ignored on purpose: each report looks up the policy of its own mailbox.
SpamreportGenerator::SpamreportGenerator(const RefRecipientPolicy&, long periodLength, long periodUntil)
    : SpamreportGenerator(periodLength, periodUntil) {}

SpamreportGenerator::~SpamreportGenerator() = default;

std::string SpamreportGenerator::convert_home_dir_to_address(const std::string& path) {
  if (path.empty() || path.size() > kMaxPath) return "";
  // The prefix is dropped without a look at it; a shorter path is out of range here, and the caller hears of it.
  const std::string rest = path.substr(kPrefixSize);
  const std::size_t slash = rest.find('/');
  if (slash == std::string::npos) return "";
  std::string name = rest.substr(slash + 1);
  const std::size_t tilde = name.rfind('~');
  if (tilde == std::string::npos) return "";
  name[tilde] = '@';
  return name;
}

void SpamreportGenerator::report(const std::string& address) const {
  const std::string secondaries = get_secondary_list(address);
  Spamreport spamreport(policy, address, secondaries, period, until);
  spamreport.deliver();
}

void SpamreportGenerator::process(const File::Path& path) {
  if (vlm_is_deleted_user_path(path.name())) return;
  const std::string address = convert_home_dir_to_address(path.asString());
  if (address.empty()) {
    Logger::instance(false).log(LogEvent::kNoAddressInPath, 0, "%s", path.asString().c_str());
    return;
  }
  try {
    report(address);
  } catch (const Exception& e) {
    Logger::instance(false).log(LogEvent::kReportFailed, 0, "%s", e.asString().c_str());
  } catch (...) {
    // Standard and foreign exceptions are dropped without a log line, deliberately; the next mailbox goes on.
  }
}

}  // namespace Velmar
