// Works out scheduled hours on the local clock, which jumps and repeats itself. It asks the C library only for the
// offset of a given instant: what mktime makes of a skipped or repeated time depends on what it was asked before.

#include "tools/spamreport/schedule.h"

#include <algorithm>
#include <ctime>

namespace Velmar::Tool {
namespace {

constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kDay = 24 * kHour;
constexpr std::int64_t kShortestWait = std::int64_t{15} * 60;
constexpr std::int64_t kSettling = 30;

/// Seconds by which the local clock is ahead of UTC.
std::int64_t offsetAt(std::int64_t instant) {
  const std::time_t seconds = instant;
  std::tm local{};
  ::localtime_r(&seconds, &local);
  return local.tm_gmtoff;
}

/// What the local clock shows, counted in seconds as if it were UTC.
std::int64_t clockAt(std::int64_t instant) { return instant + offsetAt(instant); }

/// The first instant in [low, high] at which the clock shows `wanted` or later; it does at `high`.
std::int64_t firstReaching(std::int64_t wanted, std::int64_t low, std::int64_t high) {
  while (low < high) {
    const std::int64_t middle = low + (high - low) / 2;
    if (clockAt(middle) >= wanted) {
      high = middle;
    } else {
      low = middle + 1;
    }
  }
  return high;
}

/// The first instant at which the local clock shows `wanted` or, where it jumps, later. The clock is set at most once
/// within two days.
std::int64_t instantOf(std::int64_t wanted) {
  const std::int64_t asBefore = wanted - offsetAt(wanted - kDay);
  if (clockAt(asBefore) == wanted) return asBefore;
  const std::int64_t asAfter = wanted - offsetAt(wanted + kDay);
  return firstReaching(wanted, std::min(asBefore, asAfter), std::max(asBefore, asAfter));
}

}  // namespace

std::vector<std::int64_t> scheduledInstants(std::uint32_t schedule, std::int64_t from, std::int64_t to) {
  std::vector<std::int64_t> instants;
  const std::int64_t lastDay = clockAt(to) / kDay + 1;
  for (std::int64_t day = clockAt(from) / kDay - 1; day <= lastDay; ++day) {
    for (int hour = 0; hour < 24; ++hour) {
      if ((schedule >> hour & 1U) == 0) continue;
      const std::int64_t instant = instantOf(day * kDay + hour * kHour);
      if (instant >= from && instant <= to) instants.push_back(instant);
    }
  }
  // Two hours that one gap skips fall on the same instant.
  std::sort(instants.begin(), instants.end());
  instants.erase(std::unique(instants.begin(), instants.end()), instants.end());
  return instants;
}

std::optional<Occasion> lastOccasion(std::uint32_t schedule, std::int64_t now, int catchUpHours) {
  const std::int64_t bound = catchUpHours * kHour;
  // Wherever an hour is scheduled at all, the last three days hold two instants, even if the calendar skips a day.
  const std::vector<std::int64_t> instants = scheduledInstants(schedule, now - bound - 3 * kDay, now);
  if (instants.size() < 2) return std::nullopt;
  const std::int64_t until = instants.back();
  const std::int64_t previous = instants[instants.size() - 2];
  const std::int64_t inReach = *std::lower_bound(instants.begin(), instants.end(), until - bound);
  return Occasion{until, previous, std::min(previous, inReach)};
}

std::int64_t periodStart(const Occasion& occasion, std::int64_t standing) {
  return std::clamp(standing, occasion.earliest, occasion.until);
}

std::int64_t nextTry(const Occasion& occasion, std::int64_t lastTry) {
  if (lastTry < occasion.until) return occasion.until;
  return lastTry + std::clamp(lastTry - occasion.until, kShortestWait, kHour);
}

std::int64_t settlingTime(const Occasion& occasion, std::int64_t now) {
  return std::max<std::int64_t>(0, occasion.until + kSettling - now);
}

}  // namespace Velmar::Tool
