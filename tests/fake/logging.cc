// The log of the fake world: events and debug traces are calls.

#include "platform/logging.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "tests/fake/fake.h"

namespace Velmar {
namespace {

/// The format and the text made by it, with the mark between fields visible.
std::string logText(const char* format, std::va_list& arguments) {
  char text[4096];
  std::vsnprintf(text, sizeof text, format, arguments);
  std::string joined = Fake::join({format, text});
  std::replace(joined.begin(), joined.end(), '\x01', '|');
  return joined;
}

}  // namespace

Logger::~Logger() = default;
MigLogger::~MigLogger() = default;

Logger& Logger::instance(bool forced) {
  static Logger logger;
  if (forced) Fake::note("Logger::instance", "true");
  return logger;
}

MigLogger& MigLogger::instance(bool forced) {
  static MigLogger logger;
  if (forced) Fake::note("MigLogger::instance", "true");
  return logger;
}

void Logger::log(unsigned int event, int reserved, const char* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  char code[16];
  std::snprintf(code, sizeof code, "%x", event);
  const char* name = this == &MigLogger::instance(false) ? "MigLogger::log" : "Logger::log";
  Fake::note(name, Fake::join({code, std::to_string(reserved), logText(format, arguments)}));
  va_end(arguments);
}

}  // namespace Velmar

void basepp::dbg::debug(const char* file, int line, const char* function, int reserved, const char* format,
                        ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  const std::string text = Velmar::logText(format, arguments);
  Velmar::Fake::note("debug",
                     Velmar::Fake::join({file, std::to_string(line), function, std::to_string(reserved), text}));
  va_end(arguments);
}
