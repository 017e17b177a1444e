#pragma once

// The schedule of reports as people read it.

#include <cstdint>
#include <string>

namespace Velmar::Tool {

/// The hours of a schedule, e.g. "8, 12, 16"; "" when there is none.
/// schedule  bit h set = reports at hour h
std::string hoursText(std::uint32_t schedule);

/// The first scheduled time after `now`, seconds since the epoch, by the local clock; 0 when no hour is scheduled. An
/// hour that a change of the clock skips is passed over.
std::int64_t nextDue(std::uint32_t schedule, std::int64_t now);

}  // namespace Velmar::Tool
