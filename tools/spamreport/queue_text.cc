// Counts mails for whoever flushes the queue: the queue command, and a run at its end.

#include "tools/spamreport/queue_text.h"

namespace Velmar::Tool {

std::string flushSummary(const Host::FlushResult& result) {
  std::string text = std::to_string(result.handedOn) + " handed on";
  const auto add = [&text](std::size_t count, const char* what) {
    if (count > 0) text += ", " + std::to_string(count) + " " + what;
  };
  add(result.delayed, "delayed");
  add(result.failed, "failed");
  add(result.unreadable, "unreadable");
  add(result.notDue, "not due yet");
  add(result.held, "held back");
  return text;
}

}  // namespace Velmar::Tool
