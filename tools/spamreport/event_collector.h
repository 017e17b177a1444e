#pragma once

// Listens to the log.

#include <mutex>
#include <vector>

#include "tools/spamreport/outcome.h"

namespace Velmar::Tool {

/// Keeps the events that are logged during its life, of all threads. One at a time.
class EventCollector {
 public:
  EventCollector();
  EventCollector(const EventCollector&) = delete;
  EventCollector& operator=(const EventCollector&) = delete;
  ~EventCollector();

  /// The events since the last call, in their order.
  std::vector<SeenEvent> take();

 private:
  std::mutex mutex_;
  std::vector<SeenEvent> events_;
};

}  // namespace Velmar::Tool
