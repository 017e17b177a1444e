#pragma once

// The period of a report, as pure functions of schedule and time.

#include <cstdint>
#include <ctime>

namespace Velmar {

/// The last scheduled hour at or before `currentHour`: the highest h in 0..currentHour whose bit is set in
/// `schedule`; 0 when none is.
int lastScheduledHour(std::uint32_t schedule, int currentHour);

/// Today's last scheduled hour as seconds since the epoch, in local time; midnight when no scheduled hour has passed.
/// now  broken-down local time
std::time_t lastScheduledRun(std::uint32_t schedule, const std::tm& now);

/// The length of the period that ends at `until`, in seconds.
///
/// period   what the caller asked for; kept as it is unless 0
/// until    end of the period
/// lastRun  last scheduled run; where it is not before the end, the period is a day
long settledPeriod(long period, std::time_t until, std::time_t lastRun);

/// a - b in 64 bits; wraps instead of overflowing, so that absurd arguments give an absurd date and nothing worse.
std::int64_t wrappingDifference(std::int64_t a, std::int64_t b);

}  // namespace Velmar
