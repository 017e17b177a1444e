// Keeps the file "hold" in the spool: one line "FAILURES UNTIL REASON". The round sets it when the server is out of
// order, so that a timer does not try a dead server with every run; it never decides about single mails.

#include "host/mail_builder/hand_over/queue_hold.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <sstream>

#include "host/mail_builder/durable_file.h"
#include "host/mail_builder/hand_over/retry_schedule.h"
#include "host/mail_builder/spool.h"
#include "host/mail_builder/spool_envelope.h"
#include "host/mail_builder/system_file.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kMaxHold = 65536;
constexpr int kMostFailures = 1'000'000;

std::string holdPath() { return spoolPath() + "/hold"; }

}  // namespace

QueueHold queueHold() {
  const Descriptor file = openSpoolFile(holdPath(), O_RDONLY);
  QueueHold hold;
  if (!file.isOpen()) return hold;
  std::istringstream text(readUpTo(file.get(), kMaxHold, holdPath()));
  // A damaged hold is none: the next round then finds out itself how the server is.
  if (!(text >> hold.failures >> hold.until) || hold.failures < 1 || hold.until < 0) return {};
  std::getline(text >> std::ws, hold.reason);
  return hold;
}

void extendHold(const QueueHold& before, const std::string& reason, const QueueConfig& config, long long now) {
  const int failures = std::min(before.failures, kMostFailures) + 1;
  const long long until = now + retryDelay(config, failures);
  const std::string text = std::to_string(failures) + " " + std::to_string(until) + " " + printable(reason) + "\n";
  replaceDurably(spoolPath(), ".", "hold", text);
}

void liftHold() {
  if (::unlink(holdPath().c_str()) != 0 && errno != ENOENT) throw spoolFault(holdPath(), errorText(errno));
}

}  // namespace Velmar::Host
