// docs/log-events.md against the table of events: the same codes, names and fields, in the same order.

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "host/logging/event_table.h"

namespace {

using Velmar::Host::EventInfo;
using Velmar::Host::eventTable;
using Velmar::Host::findEvent;

std::vector<std::string> headingsOfTable() {
  std::vector<std::string> lines;
  for (const EventInfo& event : eventTable()) {
    char code[16];
    std::snprintf(code, sizeof code, "0x%x", event.code);
    lines.push_back(std::string("### ") + code + " " + event.name + (event.failure ? " (failure)" : ""));
    std::string fields = "Fields:";
    for (const char* field : event.fields) {
      if (field) fields += std::string(fields.ends_with(':') ? " `" : ", `") + field + "`";
    }
    lines.push_back(fields);
  }
  return lines;
}

TEST(LogEventsDocument, AgreesWithTheTable) {
  std::ifstream document(VELMAR_SOURCE_DIR "/docs/log-events.md");
  ASSERT_TRUE(document) << "docs/log-events.md is missing";
  std::vector<std::string> headings;
  int when = 0;
  int remedy = 0;
  for (std::string line; std::getline(document, line);) {
    if (line.starts_with("### 0x") || line.starts_with("Fields:")) headings.push_back(line);
    when += line.starts_with("When: ");
    remedy += line.starts_with("What to do: ");
  }
  EXPECT_EQ(headings, headingsOfTable());
  EXPECT_EQ(when, static_cast<int>(eventTable().size()));
  EXPECT_EQ(remedy, static_cast<int>(eventTable().size()));
}

TEST(EventTable, FindsEachRowAndNothingElse) {
  for (const EventInfo& event : eventTable()) EXPECT_EQ(findEvent(event.code), &event);
  for (const unsigned int code : {0U, 0x8000aU, 0x80016U, 0xffffffffU}) EXPECT_EQ(findEvent(code), nullptr) << code;
}

}  // namespace
