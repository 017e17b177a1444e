// Scheduled hours on clocks that jump, and the periods that follow from them.

#include "tools/spamreport/schedule.h"

#include <gtest/gtest.h>

#include "tests/tools/local_zone.h"
#include "tools/spamreport/time_text.h"

namespace {

using namespace Velmar::Tool;

std::uint32_t hours(const std::vector<int>& list) {
  std::uint32_t word = 0;
  for (const int hour : list) word |= 1U << hour;
  return word;
}

std::int64_t at(const std::string& text) { return parseUntil(text); }

TEST(ScheduledInstants, KeepTheirPlaceWhenTheClockIsSet) {
  const struct {
    const char* zone;
    std::vector<int> hours;
    const char *from, *to;
    std::string want;
  } cases[] = {
      // Both ends belong to the time asked for; Apia left out the 30th.
      {"Asia/Kolkata", {0, 23}, "2026-11-22T18:30Z", "2026-11-23T17:30Z", "22T18:30 23T17:30"},
      {"Europe/Berlin", {1, 2, 3, 12}, "2026-03-28T23:00Z", "2026-03-29T22:00Z", "29T00:00 29T01:00 29T10:00"},
      {"Europe/Berlin", {2, 3, 12}, "2026-10-24T22:00Z", "2026-10-25T23:00Z", "25T00:00 25T02:00 25T11:00"},
      {"America/New_York", {2}, "2026-03-08T00:00Z", "2026-03-09T00:00Z", "08T07:00"},
      {"America/New_York", {1}, "2026-11-01T00:00Z", "2026-11-02T00:00Z", "01T05:00"},
      {"Australia/Lord_Howe", {2}, "2026-10-03T12:00Z", "2026-10-04T00:00Z", "03T15:30"},
      {"Australia/Lord_Howe", {1, 2}, "2026-04-04T12:00Z", "2026-04-05T00:00Z", "04T14:00 04T15:30"},
      {"America/Sao_Paulo", {0}, "2018-11-04T00:00Z", "2018-11-05T00:00Z", "04T03:00"},
      {"America/Sao_Paulo", {0, 23}, "2018-02-18T00:00Z", "2018-02-18T12:00Z", "18T01:00 18T03:00"},
      {"Africa/Cairo", {0}, "2026-04-23T12:00Z", "2026-04-24T12:00Z", "23T22:00"},
      {"Pacific/Apia", {8, 23}, "2011-12-29T18:00Z", "2011-12-31T00:00Z", "29T18:00 30T09:00 30T10:00 30T18:00"},
  };
  for (const auto& c : cases) {
    const LocalZone zone(c.zone);
    std::string got;
    for (const auto instant : scheduledInstants(hours(c.hours), at(c.from), at(c.to))) {
      got += (got.empty() ? "" : " ") + timeText(instant).substr(8, 8);
    }
    EXPECT_EQ(got, c.want) << c.zone << " from " << c.from;
  }
}

TEST(LastOccasion, EndsAtTheLastHourAndReachesBackWithinTheBound) {
  const LocalZone zone("UTC0");
  const struct {
    std::vector<int> hours;
    int catchUp;
    const char* now;
    std::string want;  ///< until, previous, earliest
  } cases[] = {
      {{8, 12, 18}, 72, "2026-11-22T12:00:00Z", "11-22T12 11-22T08 11-19T12"},
      {{8, 12, 18}, 72, "2026-11-22T11:59:59Z", "11-22T08 11-21T18 11-19T08"},
      {{8, 12, 18}, 0, "2026-11-22T08:05:00Z", "11-22T08 11-21T18 11-21T18"},
      {{8, 12, 18}, 25, "2026-11-22T18:00:07Z", "11-22T18 11-22T12 11-21T18"},
      {{0}, 1, "2026-11-22T23:59:59Z", "11-22T00 11-21T00 11-21T00"},
      {{23}, 744, "2026-11-22T22:59:59Z", "11-21T23 11-20T23 10-21T23"},
  };
  for (const auto& c : cases) {
    const auto got = lastOccasion(hours(c.hours), at(c.now), c.catchUp);
    ASSERT_TRUE(got) << c.now;
    const auto hour = [](std::int64_t time) { return timeText(time).substr(5, 8); };
    EXPECT_EQ(hour(got->until) + " " + hour(got->previous) + " " + hour(got->earliest), c.want) << c.now;
  }
  EXPECT_FALSE(lastOccasion(0, at("2026-11-22T12:00:00Z"), 72));
}

TEST(Occasion, DecidesWhereAPeriodBeginsAndWhenToTry) {
  const Occasion occasion{100000, 90000, 50000};
  const std::pair<std::int64_t, std::int64_t> starts[] = {
      {0, 50000}, {1, 50000}, {50000, 50000}, {50001, 50001}, {99999, 99999}, {100000, 100000}, {170000, 100000}};
  for (const auto& [standing, want] : starts) EXPECT_EQ(periodStart(occasion, standing), want) << standing;
  const std::pair<std::int64_t, std::int64_t> tries[] = {{0, 100000},      {99999, 100000},  {100000, 100900},
                                                         {100900, 101800}, {101800, 103600}, {104000, 107600},
                                                         {110000, 113600}};
  for (const auto& [last, want] : tries) EXPECT_EQ(nextTry(occasion, last), want) << last;
  const std::pair<std::int64_t, std::int64_t> waits[] = {{100000, 30}, {100007, 23}, {100030, 0}, {186400, 0}};
  for (const auto& [now, want] : waits) EXPECT_EQ(settlingTime(occasion, now), want) << now;
}

}  // namespace
