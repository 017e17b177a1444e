// The schedule as `spamreport check` shows it.

#include "tools/spamreport/schedule_text.h"

#include <gtest/gtest.h>

#include <ctime>

#include "tests/support/temp_root.h"
#include "tools/spamreport/time_text.h"

namespace {

using namespace Velmar::Tool;

constexpr std::uint32_t hours(std::initializer_list<int> list) {
  std::uint32_t word = 0;
  for (const int hour : list) word |= 1U << hour;
  return word;
}

TEST(ScheduleTextTest, FindsTheNextTimeOfTheLocalClock) {
  const struct {
    const char* zone;
    std::uint32_t schedule;
    const char* now;
    const char* want;  ///< "" = none
  } cases[] = {
      {"UTC0", 0, "2026-11-22T08:00Z", ""},
      {"UTC0", hours({8, 12}), "2026-11-22T07:59:59Z", "2026-11-22 08:00 UTC"},
      {"UTC0", hours({8, 12}), "2026-11-22T08:00Z", "2026-11-22 12:00 UTC"},
      {"UTC0", hours({8, 12}), "2026-11-22T12:00:01Z", "2026-11-23 08:00 UTC"},
      {"UTC0", hours({0}), "2026-12-31T23:00Z", "2027-01-01 00:00 UTC"},
      {"UTC0", hours({23}), "2026-11-22T23:00Z", "2026-11-23 23:00 UTC"},
      {"Asia/Kolkata", hours({8}), "2026-11-22T00:00Z", "2026-11-22 08:00 IST"},
      {"Europe/Berlin", hours({2}), "2026-03-28T12:00Z", "2026-03-30 02:00 CEST"},  // skipped on the 29th
      {"Europe/Berlin", hours({2}), "2026-10-24T12:00Z", "2026-10-25 02:00 CEST"},
  };
  for (const auto& [zone, schedule, now, want] : cases) {
    const Velmar::Testing::ScopedVariable scoped("TZ", zone);
    ::tzset();
    const std::int64_t next = nextDue(schedule, parseUntil(now));
    EXPECT_EQ(next == 0 ? "" : localTimeText(next), want) << zone << " " << now;
  }
  EXPECT_EQ(hoursText(hours({0, 8, 23})), "0, 8, 23");
  EXPECT_EQ(hoursText(0), "");
}

}  // namespace
