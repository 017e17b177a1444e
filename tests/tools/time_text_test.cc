// The --until option: forms, zones, changes of the clock, and what is refused.

#include "tools/spamreport/time_text.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "tools/spamreport/commands.h"

namespace {

using Velmar::Tool::durationText;
using Velmar::Tool::parseUntil;
using Velmar::Tool::WrongUse;

void setZone(const char* zone) {
  ::setenv("TZ", zone, 1);
  ::tzset();
}

class ParseUntil : public testing::Test {
 protected:
  void TearDown() override { setZone("UTC"); }
};

TEST_F(ParseUntil, TakesEachForm) {
  setZone("Europe/Berlin");
  const struct {
    const char* text;
    std::int64_t want;
  } cases[] = {
      {"0", 0},
      {"1795334400", 1795334400},
      {"2147483647", 2147483647},
      {"2026-11-22T08:00", 1795330800},
      {"2026-11-22T08:00:59", 1795330859},
      {"2026-07-22T08:00", 1784700000},
      {"2026-11-22T08:00Z", 1795334400},
      {"2026-11-22T08:00:00Z", 1795334400},
      {"2026-11-22T08:00+01:00", 1795330800},
      {"2026-11-22T08:00-0330", 1795347000},
      {"2026-11-22T08:00+14", 1795284000},
      {"2024-02-29T00:00Z", 1709164800},
      {"1970-01-01T00:00:01Z", 1},
      {"2038-01-19T03:14:07Z", 2147483647},
  };
  for (const auto& c : cases) EXPECT_EQ(parseUntil(c.text), c.want) << c.text;
}

TEST_F(ParseUntil, LocalTimesAroundAChangeOfTheClock) {
  const struct {
    const char* zone;
    const char* text;
    std::int64_t want;  // 0 = refused
  } cases[] = {
      {"Europe/Berlin", "2026-03-29T01:59:59", 1774745999},
      {"Europe/Berlin", "2026-03-29T02:00", 0},
      {"Europe/Berlin", "2026-03-29T02:59:59", 0},
      {"Europe/Berlin", "2026-03-29T03:00", 1774746000},
      {"Europe/Berlin", "2026-10-25T02:30", 1792888200},  // the first of two
      {"Europe/Berlin", "2026-10-25T03:00", 1792893600},
      {"America/New_York", "2026-11-01T01:30", 1793511000},  // the first of two
      {"Australia/Lord_Howe", "2026-10-04T02:15", 0},        // half an hour is skipped
      {"Australia/Lord_Howe", "2026-10-04T02:30", 1791041400},
      {"Asia/Tokyo", "2026-11-22T08:00", 1795302000},
      {"UTC", "2026-03-29T02:30", 1774751400},
  };
  for (const auto& c : cases) {
    setZone(c.zone);
    SCOPED_TRACE(std::string(c.zone) + " " + c.text);
    // In both orders, for the C library remembers what it found last.
    for (const char* before : {"2026-01-15T12:00", "2026-07-15T12:00"}) {
      parseUntil(before);
      if (c.want) {
        EXPECT_EQ(parseUntil(c.text), c.want);
      } else {
        EXPECT_THROW(parseUntil(c.text), WrongUse);
      }
    }
  }
}

TEST_F(ParseUntil, RefusesAndSaysWhy) {
  const char* const form = "not seconds since the epoch";
  const struct {
    std::string text;
    const char* why;
  } cases[] = {
      {"", form},
      {"now", form},
      {"-1", form},
      {"+5", form},
      {" 5", form},
      {"5 ", form},
      {"1e9", form},
      {"2026-11-22", form},
      {"2026-11-22 08:00", form},
      {"2026-11-22T8:00", form},
      {"2026-11-22T08", form},
      {"2026-11-22T08:00:", form},
      {"2026-11-22T08:00:00.5Z", form},
      {"2026-11-22T08:00z", form},
      {"2026-11-22T08:00ZZ", form},
      {"2026-11-22T08:00+1", form},
      {"2026-11-22T08:00+01:", form},
      {"2026-11-22T08:00+01:000", form},
      {"2026-02-29T08:00", "no such day"},
      {"2026-06-31T08:00Z", "no such day"},
      {"2026-00-10T08:00Z", "no such day"},
      {"2026-13-10T08:00Z", "no such day"},
      {"2026-11-22T24:00", "hour 24"},
      {"2026-11-22T08:60", "minute 60"},
      {"2026-11-22T08:00:60Z", "second 60"},
      {"2026-11-22T08:00+24:00", "offset of hours 24"},
      {"2026-11-22T08:00+01:60", "offset of minutes 60"},
      {"1970-01-01T00:00Z", "before 1970"},
      {"0000-01-01T00:00Z", "before 1970"},
      {"2147483648", "later than 2038"},
      {"99999999999999999999999999", "later than 2038"},
      {"2038-01-19T03:14:08Z", "later than 2038"},
      {"9999-12-31T23:59:59", "later than 2038"},
  };
  for (const auto& c : cases) {
    try {
      ADD_FAILURE() << "accepted " << c.text << " as " << parseUntil(c.text);
    } catch (const WrongUse& e) {
      EXPECT_NE(std::string(e.what()).find(c.why), std::string::npos) << c.text << ": " << e.what();
      EXPECT_NE(std::string(e.what()).find("\"" + c.text + "\""), std::string::npos) << e.what();
    }
  }
}

TEST(DurationText, TakesTheLargestUnitThatFits) {
  const struct {
    std::int64_t seconds;
    const char* want;
  } cases[] = {{-5, "0 s"},   {0, "0 s"},      {59, "59 s"},   {60, "1 min"},           {3599, "59 min"},
               {3600, "1 h"}, {86399, "23 h"}, {86400, "1 d"}, {86400LL * 400, "400 d"}};
  for (const auto& c : cases) EXPECT_EQ(durationText(c.seconds), c.want) << c.seconds;
}

}  // namespace
