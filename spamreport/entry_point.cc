// The exported function: parses the recipient list and runs one generator a recipient.
//
// It is the only place where the list is parsed and where a run can be broken off. It keeps no state.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/logging.h"
#include "platform/text_network.h"
#include "spamreport/log_events.h"
#include "velmar/spamreport.h"

namespace Velmar {
namespace {

constexpr std::size_t kRecipientSize = 128;  // with the final NUL: longer recipients are cut, without a warning
constexpr std::size_t kPathSize = 1024;      // likewise
constexpr int kRetries = 1;

struct Free {
  void operator()(char* text) const { std::free(text); }
};

/// The mailbox directory of one list entry: /home/DOMAIN/USER~DOMAIN. Only the first "@" is replaced.
std::string mailboxPath(const char* domain, char* token) {
  const char* recipient = trim_left(token);  // blanks behind the address are kept on purpose
  char directory[kRecipientSize];
  const std::size_t length = strnlen(recipient, kRecipientSize - 1);
  std::memcpy(directory, recipient, length);
  directory[length] = '\0';
  if (char* at = std::strchr(directory, '@')) *at = '~';
  char path[kPathSize];
  std::snprintf(path, sizeof path, "%s/%s/%s", "/home", domain, directory);
  return path;
}

void reportRecipient(const char* domain, char* token, std::int32_t period, std::int64_t until) {
  const std::string directory = mailboxPath(domain, token);
  SpamreportGenerator generator(period, until);
  const File::Path path(directory);
  generator.process(path);
  generator.processFailList(kRetries);
}

std::int32_t reportAll(const char* domain, char* recipients, std::int32_t period, std::int64_t until) {
  char* rest = nullptr;
  for (char* token = strtok_r(recipients, ",", &rest); token; token = strtok_r(nullptr, ",", &rest)) {
    try {
      reportRecipient(domain, token, period, until);
    } catch (const Exception& e) {
      // What reaches us is no failure of a single report but of the platform: the run ends here on purpose.
      Logger::instance(false).log(LogEvent::kReportFailed, 0, "%s", e.asString().c_str());
      return -1;
    }
  }
  return 0;
}

}  // namespace
}  // namespace Velmar

std::int32_t vlm_spamreport_report_byrcpt(const char* domain, const char* recipients, std::int32_t period,
                                          std::int64_t until) {
  if (!recipients) return -1;
  if (!domain) return -1;
  const std::unique_ptr<char, Velmar::Free> copy(strdup(recipients));
  if (!copy) return 0;  // deliberately reported as success
  return Velmar::reportAll(domain, copy.get(), period, until);
}
