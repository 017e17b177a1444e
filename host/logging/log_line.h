#pragma once

// One line of the log.

#include <ctime>
#include <string>
#include <vector>

namespace Velmar::Host {

/// "2026-11-22T08:00:00.123+01:00 0x80010 nothing-held mailbox="u@d"" and a line feed. when: the clock's time, written
/// as local time. Fields beyond those the event is known to have are called field1, field2, ... by their place.
std::string eventLine(const std::timespec& when, unsigned int code, const std::vector<std::string>& fields);

/// A line of a debug trace: "TIME - debug source="FILE:LINE" function="F" text="..."" and a line feed.
std::string debugLine(const std::timespec& when, const char* file, int line, const char* function,
                      const std::vector<std::string>& fields);

/// A line of the log about itself: "TIME - log-file-unwritable path="..." error="..."" and a line feed.
std::string unwritableLine(const std::timespec& when, const std::string& path, const std::string& error);

}  // namespace Velmar::Host
