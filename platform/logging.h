#pragma once

// The log of events and the debug trace.

#include "platform/export.h"

namespace Velmar {

/// Takes log events. Any thread.
///
/// An event is a code, a fixed printf-like format and its texts. A format of several fields separates them by the
/// byte 0x01; texts may hold any bytes and never become part of the format. Formats use %s, %d, %u, %zd, %zu and %%.
class VLM_EXPORT Logger {
 public:
  /// The log of the mail system. forced is false. Never throws; lives as long as the process.
  static Logger& instance(bool forced);

  Logger() = default;
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;
  virtual ~Logger();

  /// Writes one event. reserved is 0. An event that cannot be written is lost, never an exception.
  void log(unsigned int event, int reserved, const char* format, ...) noexcept VLM_PRINTF_LIKE(4, 5);
};

/// The log of mail migration and templates, with the same operation.
class VLM_EXPORT MigLogger : public Logger {
 public:
  static MigLogger& instance(bool forced);
  ~MigLogger() override;
};

}  // namespace Velmar

namespace basepp::dbg {

/// Writes a debug trace. Callers test the debug mask (nCfg_debug_zone) first.
/// file, line, function  where it stands; reserved is 0. Never throws. Any thread.
VLM_EXPORT void debug(const char* file, int line, const char* function, int reserved, const char* format, ...) noexcept
    VLM_PRINTF_LIKE(5, 6);

}  // namespace basepp::dbg
