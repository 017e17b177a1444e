#pragma once

// The hold on the whole queue while the mail server cannot be used.

#include <string>

#include "host/common/host_config.h"
#include "host/host.h"

namespace Velmar::Host {

/// Notes one more failure in a row, after `before`, and holds the queue until the server's next try.
/// now  seconds since the epoch. Throws Exception.
void extendHold(const QueueHold& before, const std::string& reason, const QueueConfig& config, long long now);

/// Ends the hold, if there is one. Throws Exception.
void liftHold();

}  // namespace Velmar::Host
