#pragma once

// Times as people write and read them.

#include <cstdint>
#include <string>

namespace Velmar::Tool {

/// The end of a report period, seconds since the epoch; 0 = now.
///
/// text  seconds since the epoch, or YYYY-MM-DDThh:mm[:ss] followed by nothing (local time), "Z", or an offset from UTC
///       as +hh:mm, +hhmm or +hh (RFC 3339 section 5.6 with these liberties and no fractions of a second)
/// A local time that a change of the clock skips is refused; of one that happens twice the first is meant.
/// Throws WrongUse naming the text and the reason, also for times before 1970 and past the last second that the
/// search of a mailbox can take (2038-01-19T03:14:07Z).
std::int64_t parseUntil(const std::string& text);

/// The same for the value of another option, e.g. "--now".
std::int64_t parseTime(const std::string& option, const std::string& text);

/// A time in UTC, e.g. "2026-11-22T08:00:00Z".
std::string timeText(std::int64_t seconds);

/// A time by the local clock, e.g. "2026-11-22 08:00 CET".
std::string localTimeText(std::int64_t seconds);

/// A length of time in its largest unit, for a table: "42 s", "3 min", "5 h", "12 d"; negative ones count as 0.
std::string durationText(std::int64_t seconds);

}  // namespace Velmar::Tool
