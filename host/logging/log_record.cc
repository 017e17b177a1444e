// Makes the entries of the log out of events and traces, with what the table knows of them. It formats nothing.

#include "host/logging/log_record.h"

#include <system_error>

#include "host/logging/event_table.h"
#include "host/logging/event_text.h"

namespace Velmar::Host {
namespace {

std::string fieldName(const EventInfo* event, std::size_t index) {
  const bool known = event && index < event->fields.size() && event->fields[index];
  return known ? event->fields[index] : "field" + std::to_string(index + 1);
}

Severity severityOf(const EventInfo* event) {
  if (event && event->failure) return Severity::kError;
  return !event || event->warning ? Severity::kWarning : Severity::kInfo;
}

}  // namespace

LogRecord eventRecord(const std::timespec& when, unsigned int code, const std::vector<std::string>& fields) {
  const EventInfo* event = findEvent(code);
  LogRecord record{when, code, event ? event->name : "unknown", severityOf(event), {}, {}};
  record.text = event ? eventText(*event, fields) : "an event that is not in the list";
  for (std::size_t i = 0; i < fields.size(); ++i) record.fields.emplace_back(fieldName(event, i), fields[i]);
  return record;
}

LogRecord debugRecord(const std::timespec& when, const char* file, int line, const char* function,
                      const std::vector<std::string>& texts) {
  LogRecord record{when, 0, "debug", Severity::kDebug, {}, {}};
  for (const std::string& text : texts) record.text += (record.text.empty() ? "" : " ") + text;
  record.fields.emplace_back("source", std::string(file ? file : "") + ":" + std::to_string(line));
  record.fields.emplace_back("function", function ? function : "");
  return record;
}

LogRecord sinkFailedRecord(const std::timespec& when, const char* kind, const std::string& path, int error) {
  const std::string reason = std::generic_category().message(error);
  return {when,
          0,
          "log-sink-failed",
          Severity::kError,
          std::string("the log cannot be written to the ") + kind + " " + path + ": " + reason,
          {{"sink", kind}, {"path", path}, {"error", reason}}};
}

LogRecord linesDroppedRecord(const std::timespec& when, unsigned long count) {
  const std::string number = std::to_string(count);
  return {when,
          0,
          "log-lines-dropped",
          Severity::kWarning,
          number + (count == 1 ? " line was" : " lines were") + " dropped, because nobody read them",
          {{"count", number}}};
}

}  // namespace Velmar::Host
