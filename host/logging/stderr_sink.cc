// Lines to standard error with a bounded wait. The descriptor belongs to the program and may be shared with others, so
// it is not set to non-blocking: poll(2) tells whether the next piece fits, and a piece is small enough to fit then.

#include "host/logging/stderr_sink.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <ctime>

#include "host/logging/log_line.h"
#include "host/logging/log_record.h"

namespace Velmar::Host {
namespace {

/// The largest piece that is written at once: a regular file takes a whole line, which so stays whole beside the lines
/// of other processes; a pipe that poll(2) calls writable has room for PIPE_BUF bytes.
std::size_t largestPiece() {
  struct stat status {};
  return ::fstat(STDERR_FILENO, &status) == 0 && S_ISREG(status.st_mode) ? SIZE_MAX : PIPE_BUF;
}

std::timespec now() {
  std::timespec when{};
  ::clock_gettime(CLOCK_REALTIME, &when);
  return when;
}

}  // namespace

void StderrSink::write(std::string_view line) {
  const std::lock_guard lock(mutex_);
  patient_ = writeWaiting(pending() + std::string(line));
  dropped_ = patient_ ? 0 : dropped_ + 1;
}

/// What has to be said before the next line.
std::string StderrSink::pending() const {
  std::string text = unfinished_ ? "\n" : "";
  if (dropped_ > 0) text += logLine(linesDroppedRecord(now(), dropped_));
  return text;
}

/// False when nobody read.
bool StderrSink::writeWaiting(std::string_view bytes) {
  const std::size_t piece = largestPiece();
  while (!bytes.empty()) {
    if (!waitWritable(STDERR_FILENO, patient_ ? patience_ : std::chrono::milliseconds{0})) return false;
    std::size_t written = 0;
    const int error = writeWithoutSignal(STDERR_FILENO, bytes.substr(0, piece), written);
    if (written > 0) unfinished_ = bytes[written - 1] != '\n';
    if (error != 0) return true;
    bytes.remove_prefix(written);
  }
  return true;
}

bool stderrLeadsToJournal() noexcept {
  const char* stream = std::getenv("JOURNAL_STREAM");  // "DEVICE:INODE"
  struct stat status {};
  if (!stream || ::fstat(STDERR_FILENO, &status) != 0) return false;
  char* end = nullptr;
  if (std::strtoull(stream, &end, 10) != status.st_dev || *end != ':') return false;
  return std::strtoull(end + 1, &end, 10) == status.st_ino && *end == '\0';
}

}  // namespace Velmar::Host
