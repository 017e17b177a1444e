#pragma once

// When scheduled reports are due, and which period each covers. Times are seconds since the epoch.

#include <cstdint>
#include <optional>
#include <vector>

namespace Velmar::Tool {

/// The scheduled instants from `from` to `to`, both included, in ascending order, each once.
///
/// schedule  bit h set = reports at hour h of the process's local time
/// An hour that a change of the clock skips happens at the first instant after the gap; of an hour that happens twice
/// the first one counts. Any thread, as long as nobody changes TZ.
std::vector<std::int64_t> scheduledInstants(std::uint32_t schedule, std::int64_t from, std::int64_t to);

/// The scheduled instant that a run works for.
struct Occasion {
  std::int64_t until = 0;     ///< this instant: the end of every period
  std::int64_t previous = 0;  ///< the scheduled instant before it: where a domain begins that was never reported
  std::int64_t earliest = 0;  ///< where a mailbox begins that was not reported for longer than may be caught up
};

/// The last scheduled instant that is not after `now`; nothing when no hour is scheduled.
/// catchUpHours  how far back periods may reach, 0 to 744; the regular period may always be reported
std::optional<Occasion> lastOccasion(std::uint32_t schedule, std::int64_t now, int catchUpHours);

/// Where the period of a mailbox begins that was reported up to `standing`; `until` of the occasion when nothing is
/// due. So periods never overlap and are never negative, also after the clock was set back.
std::int64_t periodStart(const Occasion& occasion, std::int64_t standing);

/// When reports that are still due are tried again: after as long as they had been due at the last try, but after 15
/// minutes at the earliest and an hour at the latest. A fault that lasts is met seldom, however often the timer fires.
std::int64_t nextTry(const Occasion& occasion, std::int64_t lastTry);

/// How long a run shall wait before it begins: a message of the period may be on its way into the quarantine for half
/// a minute after the hour.
std::int64_t settlingTime(const Occasion& occasion, std::int64_t now);

}  // namespace Velmar::Tool
