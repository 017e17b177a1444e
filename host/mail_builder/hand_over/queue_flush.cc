// The queue's round with what the configuration names. The administrator's command and timers come through here.

#include "host/common/host_config.h"
#include "host/mail_builder/hand_over/queue_round.h"
#include "host/mail_builder/hand_over/smtp_transport.h"
#include "host/mail_builder/message_ids.h"

namespace Velmar::Host {
namespace {

/// The name that this host gives itself, in a form that may stand in a greeting.
std::string greetingName(const HostConfig& config) {
  return messageIdDomain(config.localDomain.empty() ? config.global.hostName : config.localDomain);
}

}  // namespace

FlushResult flushQueue(const FlushOptions& options) {
  const HostConfig& config = hostConfig();
  if (config.queue.kind != QueueKind::kSmtp) {
    FlushResult nothing;
    nothing.enabled = false;
    return nothing;
  }
  const auto transport = makeSmtpTransport(config.queue, greetingName(config));
  return flushQueueWith(*transport, config.queue, options);
}

std::string checkMailServer() {
  const HostConfig& config = hostConfig();
  if (config.queue.kind != QueueKind::kSmtp) return {};
  return config.queue.url + " offers " + checkSmtpServer(config.queue, greetingName(config));
}

}  // namespace Velmar::Host
