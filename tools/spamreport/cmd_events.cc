// spamreport events: the log events in short; docs/log-events.md has them at length.

#include <array>
#include <cstdio>
#include <iostream>

#include "host/host.h"
#include "tools/spamreport/commands.h"
#include "tools/spamreport/table.h"

namespace Velmar::Tool {

int printEvents() {
  std::vector<std::vector<std::string>> rows{{"CODE", "NAME", "FIELDS", "MEANING", "TEXT"}};
  for (const Host::EventInfo& event : Host::eventTable()) {
    std::array<char, 16> code{};
    std::snprintf(code.data(), code.size(), "0x%x", event.code);
    std::string fields;
    for (const char* field : event.fields) {
      if (field) fields += (fields.empty() ? "" : ", ") + std::string(field);
    }
    rows.push_back({code.data(), event.name, fields, event.meaning, Host::eventTextForm(event)});
  }
  std::cout << alignedTable(rows);
  return kGood;
}

}  // namespace Velmar::Tool
