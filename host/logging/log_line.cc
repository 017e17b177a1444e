// Writes events as text. Nothing that a field holds can end the line, the field, or start another one.

#include "host/logging/log_line.h"

#include <array>
#include <cstdio>
#include <cstdlib>

#include "host/logging/escape.h"
#include "host/logging/event_table.h"

namespace Velmar::Host {
namespace {

std::string timeText(const std::timespec& when) {
  std::tm local{};
  ::localtime_r(&when.tv_sec, &local);
  const long minutes = local.tm_gmtoff / 60;
  std::array<char, 96> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%03ld%c%02ld:%02ld", local.tm_year + 1900,
                local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, when.tv_nsec / 1000000,
                minutes < 0 ? '-' : '+', std::labs(minutes) / 60, std::labs(minutes) % 60);
  return text.data();
}

std::string field(const std::string& name, const std::string& value) { return " " + name + "=" + quotedField(value); }

std::string fieldName(const EventInfo* event, std::size_t index) {
  const bool known = event && index < event->fields.size() && event->fields[index];
  return known ? event->fields[index] : "field" + std::to_string(index + 1);
}

}  // namespace

std::string eventLine(const std::timespec& when, unsigned int code, const std::vector<std::string>& fields) {
  const EventInfo* event = findEvent(code);
  std::array<char, 16> hex{};
  std::snprintf(hex.data(), hex.size(), " 0x%x ", code);
  std::string line = timeText(when) + hex.data() + (event ? event->name : "unknown");
  for (std::size_t i = 0; i < fields.size(); ++i) line += field(fieldName(event, i), fields[i]);
  return line + "\n";
}

std::string debugLine(const std::timespec& when, const char* file, int line, const char* function,
                      const std::vector<std::string>& fields) {
  std::string text = timeText(when) + " - debug";
  text += field("source", std::string(file ? file : "") + ":" + std::to_string(line));
  text += field("function", function ? function : "");
  for (const std::string& value : fields) text += field("text", value);
  return text + "\n";
}

std::string unwritableLine(const std::timespec& when, const std::string& path, const std::string& error) {
  return timeText(when) + " - log-file-unwritable" + field("path", path) + field("error", error) + "\n";
}

}  // namespace Velmar::Host
