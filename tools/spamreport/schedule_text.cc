// Reads a schedule for `spamreport check`. When a run is due is decided elsewhere; this only looks ahead.

#include "tools/spamreport/schedule_text.h"

#include <ctime>

namespace Velmar::Tool {
namespace {

constexpr int kHours = 24;
constexpr std::int64_t kStep = 900;  // offsets of zones, and their changes, are multiples of a quarter of an hour
constexpr std::int64_t kFarthest = 172800;  // two days: a skipped hour comes on the next one

bool isScheduled(std::uint32_t schedule, int hour) { return (schedule >> hour & 1U) != 0; }

}  // namespace

std::string hoursText(std::uint32_t schedule) {
  std::string text;
  for (int hour = 0; hour < kHours; ++hour) {
    if (isScheduled(schedule, hour)) text += (text.empty() ? "" : ", ") + std::to_string(hour);
  }
  return text;
}

std::int64_t nextDue(std::uint32_t schedule, std::int64_t now) {
  for (std::int64_t time = (now / kStep + 1) * kStep; time <= now + kFarthest; time += kStep) {
    const std::time_t seconds = time;
    std::tm local{};
    ::localtime_r(&seconds, &local);
    if (local.tm_min == 0 && isScheduled(schedule, local.tm_hour)) return time;
  }
  return 0;
}

}  // namespace Velmar::Tool
