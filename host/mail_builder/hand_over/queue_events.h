#pragma once

// What the queue writes to the log.

#include <string>
#include <vector>

namespace Velmar::Host {

/// Codes of the queue's events; their names and fields stand in the table of events.
enum class QueueEvent : unsigned int {
  kHandedOver = 0x90001,
  kDelayed = 0x90002,
  kRefused = 0x90003,
  kGivenUp = 0x90004,
  kDropped = 0x90005,
};

/// Writes one event, with the recipients separated by commas. `reply` is left out of kDropped. Any thread.
void logQueueEvent(QueueEvent event, const std::string& id, const std::vector<std::string>& recipients,
                   const std::string& reply);

}  // namespace Velmar::Host
