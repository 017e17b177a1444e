#pragma once

// Listens to the log.

#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "tools/spamreport/outcome.h"

namespace Velmar::Tool {

/// Keeps the events that are logged during its life, for each thread its own. There may be one at a time.
class EventCollector {
 public:
  EventCollector();
  EventCollector(const EventCollector&) = delete;
  EventCollector& operator=(const EventCollector&) = delete;
  ~EventCollector();

  /// The events that this thread logged since its last call, in their order. Any thread.
  std::vector<SeenEvent> take();

 private:
  std::mutex mutex_;
  std::map<std::thread::id, std::vector<SeenEvent>> events_;
};

}  // namespace Velmar::Tool
