// The back-off of mails and servers. The queue's round asks; nothing here reads a clock.

#include "host/mail_builder/hand_over/retry_schedule.h"

#include <algorithm>

namespace Velmar::Host {

long long retryDelay(const QueueConfig& config, int failures) {
  long long delay = config.retryFirst;
  for (int n = 1; n < failures && delay < config.retryLongest; ++n) delay *= 2;
  return std::min<long long>(delay, config.retryLongest);
}

std::optional<long long> nextAttempt(const QueueConfig& config, long long queuedAt, int attempts, long long now) {
  const long long end = queuedAt + config.giveUpAfter;
  if (now >= end) return {};
  return std::min(now + retryDelay(config, attempts), end);
}

bool isDue(const QueueConfig& config, long long next, long long now) {
  return next <= now || next - now > config.retryLongest;
}

}  // namespace Velmar::Host
