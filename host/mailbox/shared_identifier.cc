// Tells the log when two messages of a report cannot be told apart by their identifiers. Called by the mailbox at the
// end of a scan with the names of the messages that it gave out. It mends nothing: only who delivered can rename.

#include "host/mailbox/shared_identifier.h"

#include <algorithm>
#include <utility>

#include "host/mailbox/maildir_name.h"
#include "platform/logging.h"

namespace Velmar::Host {
namespace {

constexpr unsigned int kHeldMessagesShareIdentifier = 0x90012;

}  // namespace

void tellSharedIdentifier(const std::string& mailbox, std::vector<std::string_view> names) {
  // The rest of the name takes part so that the same quarantine gives the same two names each time.
  std::sort(names.begin(), names.end(), [](std::string_view a, std::string_view b) {
    return std::make_pair(identifyingPart(a), a) < std::make_pair(identifyingPart(b), b);
  });
  const auto pair = std::adjacent_find(names.begin(), names.end(), [](std::string_view a, std::string_view b) {
    return identifyingPart(a) == identifyingPart(b);
  });
  if (pair == names.end()) return;
  Logger::instance(false).log(kHeldMessagesShareIdentifier, 0, "%s\x01%s\x01%s", mailbox.c_str(),
                              std::string(pair[0]).c_str(), std::string(pair[1]).c_str());
}

}  // namespace Velmar::Host
