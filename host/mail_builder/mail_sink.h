#pragma once

// Where finished mails go: the spool, or whatever the process has set instead.

#include "host/host.h"

namespace Velmar::Host {

/// Hands the mail to the sink of setMailSink(), else to the spool. What either throws passes. Any thread.
void acceptMail(const QueuedMail& mail);

}  // namespace Velmar::Host
