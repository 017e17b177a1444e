// When a report's period begins. Pure: the clock and the schedule are read by the caller.

#include "spamreport/report_period.h"

namespace Velmar {
namespace {

constexpr long kDay = 86400;

}  // namespace

int lastScheduledHour(std::uint32_t schedule, int currentHour) {
  int last = 0;
  for (int hour = 0; hour <= currentHour; ++hour) {
    if (schedule >> hour & 1U) last = hour;
  }
  return last;
}

std::time_t lastScheduledRun(std::uint32_t schedule, const std::tm& now) {
  std::tm run = now;
  run.tm_hour = lastScheduledHour(schedule, now.tm_hour);
  run.tm_min = 0;
  run.tm_sec = 0;
  run.tm_isdst = -1;
  return std::mktime(&run);
}

long settledPeriod(long period, std::time_t until, std::time_t lastRun) {
  if (period != 0) return period;
  return lastRun >= until ? kDay : wrappingDifference(until, lastRun);
}

std::int64_t wrappingDifference(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

}  // namespace Velmar
