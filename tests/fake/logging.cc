// The log of the fake world: events with their fields apart, debug traces as calls.

#include "platform/logging.h"

#include <cstdarg>
#include <string>
#include <vector>

#include "tests/fake/fake.h"

namespace Velmar {
namespace {

/// One text for each conversion of the format.
std::vector<std::string> fieldsOf(const char* format, std::va_list& arguments) {
  std::vector<std::string> fields;
  for (const char* p = format; *p; ++p) {
    if (*p != '%') continue;
    ++p;
    if (*p == 's') {
      fields.emplace_back(va_arg(arguments, const char*));
    } else if (*p == 'd') {
      fields.push_back(std::to_string(va_arg(arguments, int)));
    } else if (*p == 'z') {
      ++p;
      fields.push_back(std::to_string(va_arg(arguments, ssize_t)));
    } else {
      fields.push_back(std::string("unknown conversion ") + *p);
    }
  }
  return fields;
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
  const char* name = this == &MigLogger::instance(false) ? "MigLogger" : "Logger";
  Fake::addEvent({event, format, fieldsOf(format, arguments), name});
  va_end(arguments);
  Fake::note("log", Fake::join({std::to_string(event & 0xffff), std::to_string(reserved)}));
}

}  // namespace Velmar

void basepp::dbg::debug(const char* file, int line, const char* function, int reserved, const char* format,
                        ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  std::string text = Velmar::Fake::join({file, std::to_string(line), function, std::to_string(reserved), format});
  for (const std::string& field : Velmar::fieldsOf(format, arguments)) text += "," + field;
  va_end(arguments);
  Velmar::Fake::note("debug", text);
}
