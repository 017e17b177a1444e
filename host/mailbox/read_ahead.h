#pragma once

// Lets the reads of a scan overlap when they wait for the disk.

#include <cstddef>

#include "host/mailbox/maildir.h"

namespace Velmar::Host {

/// Watches whether a scan waits for the disk, and then has threads of its own touch the next files, so that the scan
/// finds them in memory. It changes no result: what the threads meet is met again, and judged, by the scan. No thread
/// outlives a call. Used by one thread at a time.
class ReadAhead {
 public:
  /// To be called before each message is opened, in the order of the listing. Usually it only compares two numbers.
  ///
  /// position  of the message in `messages`
  /// most      how many messages the scan will read at most, this one included; at least 1
  void before(const Maildir& maildir, const Listing& messages, std::size_t position, std::size_t most);

 private:
  // A stretch of messages, in which the scan's waits are counted.
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  long waitsBefore_ = 0;   // of the scan's thread, when the stretch began
  long helpersWaits_ = 0;  // while they touched the stretch
};

}  // namespace Velmar::Host
