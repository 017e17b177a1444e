#pragma once

// Every log event that the library emits: its code, its name and the names of its fields.

#include "host/host.h"

namespace Velmar::Host {

/// The row of an event; null for a code that is not in the table.
const EventInfo* findEvent(unsigned int code) noexcept;

}  // namespace Velmar::Host
