// Writes entries of the log as bytes, pure functions. Nothing that a field holds can end the line, the field, or start
// another one.

#include "host/logging/log_line.h"

#include <array>
#include <cstdio>
#include <cstdlib>

#include "host/host.h"
#include "host/logging/escape.h"
#include "host/logging/event_text.h"

namespace Velmar::Host {
namespace {

constexpr int kFacilityMail = 2;
constexpr char kIdentifier[] = "spamreport";

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

/// The time as RFC 3164 section 4.1.2 wants it, whatever the locale.
std::string syslogTimeText(const std::timespec& when) {
  static constexpr std::array kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::tm local{};
  ::localtime_r(&when.tv_sec, &local);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%s %2d %02d:%02d:%02d", kMonths[static_cast<std::size_t>(local.tm_mon)],
                local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  return text.data();
}

std::string codeText(unsigned int code) {
  std::array<char, 16> hex{};
  std::snprintf(hex.data(), hex.size(), "0x%x", code);
  return code == 0 ? "-" : hex.data();
}

/// A value that holds a line feed is led by its length, 64 bits, the lowest byte first.
std::string journalField(const std::string& name, const std::string& value) {
  if (value.find('\n') == std::string::npos) return name + "=" + value + "\n";
  std::string length;
  for (unsigned shift = 0; shift < 64; shift += 8) length += static_cast<char>(value.size() >> shift & 0xff);
  return name + "\n" + length + value + "\n";
}

}  // namespace

std::string logLine(const LogRecord& record) {
  std::string line = timeText(record.when) + " " + codeText(record.code) + " " + record.name;
  line += " " + quotedField(record.text);
  for (const auto& [name, value] : record.fields) line += " " + name + "=" + quotedField(value);
  return line + "\n";
}

std::string journalDatagram(const LogRecord& record) {
  std::string bytes = journalField("MESSAGE", printable(record.text));
  bytes += journalField("PRIORITY", std::to_string(static_cast<int>(record.severity)));
  bytes += journalField("SYSLOG_IDENTIFIER", kIdentifier);
  bytes += journalField("SYSLOG_FACILITY", std::to_string(kFacilityMail));
  if (record.code != 0) bytes += journalField("VELMAR_EVENT", codeText(record.code));
  bytes += journalField("VELMAR_EVENT_NAME", record.name);
  for (const auto& [name, value] : record.fields) bytes += journalField("VELMAR_" + inCapitals(name), value);
  return bytes;
}

std::string syslogDatagram(const LogRecord& record, pid_t pid) {
  const int priority = kFacilityMail * 8 + static_cast<int>(record.severity);
  return "<" + std::to_string(priority) + ">" + syslogTimeText(record.when) + " " + kIdentifier + "[" +
         std::to_string(pid) + "]: " + record.name + ": " + printable(record.text);
}

}  // namespace Velmar::Host
