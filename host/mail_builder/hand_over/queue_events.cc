// Writes the queue's events through the platform's log. The round and the administrator's commands call it after the
// change is on disk.

#include "host/mail_builder/hand_over/queue_events.h"

#include "platform/logging.h"

namespace Velmar::Host {
namespace {

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ",") + name;
  return text;
}

}  // namespace

void logQueueEvent(QueueEvent event, const std::string& id, const std::vector<std::string>& recipients,
                   const std::string& reply) {
  const auto code = static_cast<unsigned int>(event);
  const std::string names = joined(recipients);
  if (event == QueueEvent::kDropped) {
    Logger::instance(false).log(code, 0, "%s\x01%s", id.c_str(), names.c_str());
  } else {
    Logger::instance(false).log(code, 0, "%s\x01%s\x01%s", id.c_str(), names.c_str(), reply.c_str());
  }
}

}  // namespace Velmar::Host
