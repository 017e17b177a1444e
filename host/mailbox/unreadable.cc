// Tells the log which held messages a report lacks because they could not be read. Called by the mailbox at the end of
// a scan, not where a message is met: when none could be read, an exception says so for all of them.

#include "host/mailbox/unreadable.h"

#include <system_error>

#include "platform/logging.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kMaxNamed = 10;
constexpr unsigned int kHeldMessageUnreadable = 0x90010;
constexpr unsigned int kMoreHeldMessagesUnreadable = 0x90011;

}  // namespace

void Unreadable::add(const std::string& folder, std::string_view name, int error) {
  if (count_++ == 0) firstFolder_ = folder;
  if (named_.size() < kMaxNamed) named_.push_back({folder + "/" + std::string(name), error});
}

void Unreadable::tell(const std::string& mailbox) {
  Logger& log = Logger::instance(false);
  for (const Message& message : named_) {
    log.log(kHeldMessageUnreadable, 0, "%s\x01%s", message.path.c_str(),
            std::generic_category().message(message.error).c_str());
  }
  const std::size_t more = count_ - named_.size();
  if (more > 0) log.log(kMoreHeldMessagesUnreadable, 0, "%zu\x01%s", more, mailbox.c_str());
  *this = Unreadable{};
}

}  // namespace Velmar::Host
