// spamreport queue: what waits in the spool.

#include <ctime>
#include <iostream>

#include "host/host.h"
#include "tools/spamreport/commands.h"
#include "tools/spamreport/table.h"
#include "tools/spamreport/time_text.h"

namespace Velmar::Tool {
namespace {

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

}  // namespace

int listQueue() {
  const std::int64_t now = std::time(nullptr);
  std::vector<std::vector<std::string>> rows{{"ID", "AGE", "BYTES", "SENDER", "RECIPIENTS"}};
  for (const Host::SpoolEntry& entry : Host::listSpool()) {
    rows.push_back({entry.id, durationText(now - entry.queuedAt), std::to_string(entry.size),
                    entry.sender.empty() ? "<>" : entry.sender, joined(entry.recipients)});
  }
  std::cout << (rows.size() > 1 ? alignedTable(rows) : "The queue is empty.\n");
  return kGood;
}

int showQueued(const std::string& id) {
  std::cout << Host::readSpool(id).content;
  return kGood;
}

}  // namespace Velmar::Tool
