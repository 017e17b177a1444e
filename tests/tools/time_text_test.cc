// The --until option: forms, zones, changes of the clock, and what is refused.

#include "tools/spamreport/time_text.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "tools/spamreport/commands.h"

namespace {

using Velmar::Tool::parseUntil;

TEST(ParseUntil, TakesEachForm) {
  ::setenv("TZ", "Europe/Berlin", 1);
  const std::pair<std::string, std::int64_t> cases[] = {
      {"0", 0},
      {"2147483647", 2147483647},
      {"2026-11-22T08:00-0330", 1795347000},
      {"2026-11-22T08:00:59+14", 1795284059},
      {"2024-02-29T00:00Z", 1709164800},
      {"1970-01-01T00:00:01Z", 1},
      {"2038-01-19T03:14:07Z", 2147483647},
      {"2026-03-29T01:59:59", 1774745999},
      {"2026-03-29T03:00", 1774746000},
      {"2026-10-25T02:30", 1792888200},  // the first of two
  };
  for (const auto& [text, want] : cases) {
    // In both orders, for the C library remembers what it found last.
    for (const char* before : {"2026-01-15T12:00", "2026-07-15T12:00"}) {
      parseUntil(before);
      EXPECT_EQ(parseUntil(text), want) << text;
    }
  }
}

TEST(ParseUntil, RefusesAndSaysWhy) {
  ::setenv("TZ", "Europe/Berlin", 1);
  const char* const form = "not seconds since the epoch";
  const std::pair<std::string, const char*> cases[] = {
      {"", form},
      {"5 ", form},
      {"2026-11-22T8:00", form},
      {"2026-11-22T08:00ZZ", form},
      {"2026-11-22T08:00+01:", form},
      {"2026-06-31T08:00Z", "no such day"},
      {"2026-11-22T08:00:60Z", "second 60"},
      {"2026-03-29T02:59:59", "the local clock skips"},
      {"1970-01-01T00:00Z", "before 1970"},
      {"99999999999999999999999999", "later than 2038"},
      {"2038-01-19T03:14:08Z", "later than 2038"},
  };
  for (const auto& [text, why] : cases) {
    try {
      ADD_FAILURE() << "accepted " << text << " as " << parseUntil(text);
    } catch (const Velmar::Tool::WrongUse& e) {
      EXPECT_NE(std::string(e.what()).find("\"" + text + "\": "), std::string::npos) << e.what();
      EXPECT_NE(std::string(e.what()).find(why), std::string::npos) << text << ": " << e.what();
    }
  }
}

}  // namespace
