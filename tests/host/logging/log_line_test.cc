// The text of a line, and that no field can make it another one.

#include "host/logging/log_line.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

namespace {

using Velmar::Host::debugLine;
using Velmar::Host::eventLine;

class LogLine : public testing::Test {
 protected:
  void SetUp() override { setZone("Europe/Berlin"); }
  void TearDown() override { setZone("UTC"); }
  static void setZone(const char* zone) {
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
};

TEST_F(LogLine, NamesEventAndFields) {
  EXPECT_EQ(eventLine({1795334400, 7000000}, 0x80011, {"3", "u@example.org", "u@example.org,v@example.org"}),
            "2026-11-22T09:00:00.007+01:00 0x80011 report-built count=\"3\" mailbox=\"u@example.org\" "
            "recipients=\"u@example.org,v@example.org\"\n");
  EXPECT_EQ(eventLine({1795334400, 999999999}, 0x8000c, {" "}),
            "2026-11-22T09:00:00.999+01:00 0x8000c web-host-left-empty text=\" \"\n");
}

TEST_F(LogLine, NumbersFieldsThatItDoesNotKnow) {
  EXPECT_EQ(eventLine({0, 0}, 0x1234, {"a", "b"}),
            "1970-01-01T01:00:00.000+01:00 0x1234 unknown field1=\"a\" field2=\"b\"\n");
  EXPECT_EQ(eventLine({0, 0}, 0x8000e, {"u@d", "more"}),
            "1970-01-01T01:00:00.000+01:00 0x8000e report-disabled mailbox=\"u@d\" field2=\"more\"\n");
}

TEST_F(LogLine, WritesTheZoneOfTheMoment) {
  struct Case {
    const char* zone;
    std::time_t when;
    std::string want;
  };
  const Case cases[] = {
      {"Europe/Berlin", 1784710800, "2026-07-22T11:00:00.000+02:00"},  // summer time
      {"Asia/Kathmandu", 1795334400, "2026-11-22T13:45:00.000+05:45"},
      {"America/St_Johns", 1795334400, "2026-11-22T04:30:00.000-03:30"},
      {"UTC", -1, "1969-12-31T23:59:59.000+00:00"},
  };
  for (const Case& c : cases) {
    setZone(c.zone);
    EXPECT_EQ(eventLine({c.when, 0}, 0x8000e, {}), c.want + " 0x8000e report-disabled\n") << c.zone;
  }
}

TEST_F(LogLine, IsOneLineWhateverItsFieldsHold) {
  const std::string forged = "x\"\n2026-11-22T09:00:00.000+01:00 0x80011 report-built count=\"9\xe2\x80\xa8";
  for (const std::string& line :
       {eventLine({0, 0}, 0x8000b, {forged}), debugLine({0, 0}, forged.c_str(), 1, forged.c_str(), {forged})}) {
    EXPECT_EQ(line.find('\n'), line.size() - 1) << line;
    EXPECT_EQ(line.find("\xe2\x80\xa8"), std::string::npos) << line;
    EXPECT_EQ(line.find(" count=\"9"), std::string::npos) << line;
  }
}

TEST_F(LogLine, DebugLineNamesItsPlace) {
  EXPECT_EQ(debugLine({0, 0}, "SpamreportGenerator", 953, "deliver", {"domain=example.org"}),
            "1970-01-01T01:00:00.000+01:00 - debug source=\"SpamreportGenerator:953\" function=\"deliver\" "
            "text=\"domain=example.org\"\n");
}

}  // namespace
