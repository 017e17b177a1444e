// Takes the events of reports from the log, for the outcome that the command prints.

#include "tools/spamreport/event_collector.h"

#include <utility>

#include "host/host.h"

namespace Velmar::Tool {

EventCollector::EventCollector() {
  Host::setEventObserver([this](const Host::Event& event) {
    const std::lock_guard lock(mutex_);
    events_[std::this_thread::get_id()].push_back({event.code, event.name, event.fields});
  });
}

EventCollector::~EventCollector() { Host::setEventObserver(nullptr); }

std::vector<SeenEvent> EventCollector::take() {
  const std::lock_guard lock(mutex_);
  return std::exchange(events_[std::this_thread::get_id()], {});
}

}  // namespace Velmar::Tool
