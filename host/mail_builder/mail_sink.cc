// Diverts finished mails for previews, tests and measurements. VXMPopulateEmail hands every mail in here.

#include "host/mail_builder/mail_sink.h"

#include <memory>
#include <mutex>
#include <utility>

#include "host/common/host_config.h"
#include "host/mail_builder/spool.h"

namespace Velmar::Host {
namespace {

using Sink = std::function<void(const QueuedMail&)>;

std::mutex sinkMutex;
std::shared_ptr<const Sink> currentSink;

SpoolFloor configuredFloor() {
  const QueueConfig& config = hostConfig().queue;
  return {config.minFreeMib, config.minFreeInodes};
}

}  // namespace

void setMailSink(std::function<void(const QueuedMail&)> sink) {
  auto next = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
  const std::lock_guard lock(sinkMutex);
  currentSink.swap(next);
}

void acceptMail(const QueuedMail& mail) {
  std::shared_ptr<const Sink> sink;
  {
    const std::lock_guard lock(sinkMutex);
    sink = currentSink;
  }
  if (sink) return (*sink)(mail);
  writeToSpool(mail, configuredFloor());
}

void checkSpoolRoom() {
  const std::string fault = spoolSpaceFault(spoolPath(), 0, configuredFloor());
  if (!fault.empty()) throw Exception("SpoolException", 4, "MailSink", __LINE__, spoolPath() + ": " + fault);
}

}  // namespace Velmar::Host
