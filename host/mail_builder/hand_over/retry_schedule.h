#pragma once

// When a mail, or a server, is tried again. Pure: times come in as arguments, seconds since the epoch.

#include <optional>

#include "host/common/host_config.h"

namespace Velmar::Host {

/// Seconds to wait after the n-th failure in a row (n >= 1): the first delay, doubled each time up to the longest.
long long retryDelay(const QueueConfig& config, int failures);

/// When to try a mail again that failed for the `attempts`-th time at `now`; nothing when it is given up. The last
/// attempt falls on the moment at which the mail's time is over, so none is given up untried.
std::optional<long long> nextAttempt(const QueueConfig& config, long long queuedAt, int attempts, long long now);

/// Whether `next` has come. A time further away than the longest delay was set under another clock or configuration
/// and counts as come: a clock that once ran ahead must not hold mails back.
bool isDue(const QueueConfig& config, long long next, long long now);

}  // namespace Velmar::Host
