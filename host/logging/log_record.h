#pragma once

// What one entry of the log says, before any sink gives it a form.

#include <ctime>
#include <string>
#include <utility>
#include <vector>

namespace Velmar::Host {

/// As syslog counts them.
enum class Severity { kError = 3, kWarning = 4, kInfo = 6, kDebug = 7 };

struct LogRecord {
  std::timespec when{};
  unsigned int code = 0;  ///< 0 = no event
  std::string name;       ///< of the event; "unknown", "debug" or a name of the log's own
  Severity severity = Severity::kInfo;
  std::string text;                                         ///< for people, raw bytes
  std::vector<std::pair<std::string, std::string>> fields;  ///< name (a-z, 0-9, "_") and value in raw bytes
};

/// An event. Fields beyond those that it is known to have are called field1, field2, ... by their place.
LogRecord eventRecord(const std::timespec& when, unsigned int code, const std::vector<std::string>& fields);

/// A debug trace; `texts` are what it says.
LogRecord debugRecord(const std::timespec& when, const char* file, int line, const char* function,
                      const std::vector<std::string>& texts);

/// "log-sink-failed": a sink of this kind ("file", "journal", "syslog") and path does not take entries; error: errno.
LogRecord sinkFailedRecord(const std::timespec& when, const char* kind, const std::string& path, int error);

/// "log-lines-dropped": so many lines were not written to stderr, because nobody read it.
LogRecord linesDroppedRecord(const std::timespec& when, unsigned long count);

}  // namespace Velmar::Host
