// Failed reports and their retry. The list is filled by whoever drives the generator; the generator itself never
// adds to it.

#include <unistd.h>

#include "platform/logging.h"
#include "platform/users_lists.h"
#include "spamreport/log_events.h"
#include "velmar/spamreport.h"

namespace Velmar {
namespace {

constexpr unsigned int kPauseSeconds = 30;

/// Waits the whole pause: a signal does not shorten it.
void pauseBetweenPasses() {
  for (unsigned int left = kPauseSeconds; left > 0;) left = sleep(left);
}

}  // namespace

FailReport::FailReport(const File::Path& directory) : path(directory), tries(0) {}
FailReport::~FailReport() = default;

// Unlike process() it does not ask whether the user is deleted: processFailList() does.
int SpamreportGenerator::processFail(const File::Path& path, std::string& error) {
  const std::string address = convert_home_dir_to_address(path.asString());
  if (address.empty()) {
    Logger::instance(false).log(LogEvent::kNoAddressInPath, 0, "%s", path.asString().c_str());
    return 0;
  }
  try {
    report(address);
    return 1;
  } catch (const Exception& e) {
    error = e.asString();
    return 0;
  }
}

void SpamreportGenerator::processFailList(int maxTries) {
  for (;;) {
    int pending = 0;
    for (auto entry = failed.begin(); entry != failed.end();) {
      const auto current = entry++;
      if (current->tries >= maxTries) continue;
      if (vlm_is_deleted_user_path(current->path.name())) continue;
      if (processFail(current->path, current->error)) {
        failed.erase(current);
      } else if (++current->tries < maxTries) {
        ++pending;
      }
    }
    if (pending == 0) break;
    pauseBetweenPasses();
  }
  // What is left stays in the list: a later call with a higher limit tries it again.
  for (const FailReport& entry : failed) {
    Logger::instance(false).log(LogEvent::kFailedReportGivenUp, 0, "%s", entry.error.c_str());
  }
}

}  // namespace Velmar
