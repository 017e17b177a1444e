// docs/log-events.md against the table of events: the same codes, names, fields and texts, in the same order.

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "host/logging/event_table.h"
#include "host/logging/log_line.h"

namespace {

using namespace Velmar::Host;

TEST(LogEventsDocument, AgreesWithTheTable) {
  std::vector<std::string> want;
  for (const EventInfo& event : eventTable()) {
    EXPECT_EQ(findEvent(event.code), &event);
    char code[16];
    std::snprintf(code, sizeof code, "0x%x", event.code);
    const char* const kind = event.failure ? " (failure)" : event.warning ? " (warning)" : "";
    want.push_back(std::string("### ") + code + " " + event.name + kind);
    std::string fields = "Fields:";
    for (const char* field : event.fields) {
      if (field) fields += std::string(fields.ends_with(':') ? " `" : ", `") + field + "`";
    }
    want.push_back(fields);
    want.push_back("Text: " + eventTextForm(event));
  }
  const std::vector<std::string> fields{"3", "u@example.org", "u@example.org"};
  const std::string example = logLine(eventRecord({0, 0}, 0x80011, fields));
  bool exampleShown = false;
  std::vector<std::string> got;
  std::ifstream document(VELMAR_SOURCE_DIR "/docs/log-events.md");
  for (std::string line; std::getline(document, line);) {
    if (line.starts_with("### 0x") || line.starts_with("Fields:") || line.starts_with("Text:")) got.push_back(line);
    exampleShown |= line.ends_with(example.substr(example.find(" 0x"), example.find('\n') - example.find(" 0x")));
  }
  EXPECT_EQ(got, want);
  EXPECT_TRUE(exampleShown) << example;
  for (const unsigned int code : {0U, 0x8000aU, 0x80016U, 0x90013U}) EXPECT_EQ(findEvent(code), nullptr) << code;
}

}  // namespace
