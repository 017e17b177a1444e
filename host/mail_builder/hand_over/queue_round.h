#pragma once

// One round over the waiting mails.

#include "host/common/host_config.h"
#include "host/host.h"
#include "host/mail_builder/hand_over/transport.h"

namespace Velmar::Host {

/// flushQueue() by this transport.
FlushResult flushQueueWith(Transport& transport, const QueueConfig& config, const FlushOptions& options);

}  // namespace Velmar::Host
