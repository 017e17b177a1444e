#pragma once

// Standard error as a sink of the log.

#include <chrono>
#include <mutex>
#include <string>
#include <string_view>

#include "host/logging/write_fully.h"

namespace Velmar::Host {

/// Writes lines to stderr. When nobody reads it, one line waits for some time; from then on lines are dropped until
/// somebody reads again, and a line "log-lines-dropped" then says how many. Where the reader is gone lines are
/// lost without a word, and the process does not hear of it: no SIGPIPE. Any thread.
class StderrSink {
 public:
  explicit StderrSink(std::chrono::milliseconds patience = kReaderPatience) : patience_(patience) {}

  /// line  ends with a line feed
  void write(std::string_view line);

 private:
  bool writeWaiting(std::string_view bytes);
  std::string pending() const;

  const std::chrono::milliseconds patience_;
  std::mutex mutex_;
  bool patient_ = true;      // whether the next line may wait
  bool unfinished_ = false;  // the last line was cut short
  unsigned long dropped_ = 0;
};

/// Whether stderr is the stream that the service manager reads into the journal, as JOURNAL_STREAM tells.
bool stderrLeadsToJournal() noexcept;

}  // namespace Velmar::Host
