// What administrators do to single mails: retry and drop.

#include <cerrno>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "host/host.h"
#include "host/mail_builder/hand_over/queue_claim.h"
#include "host/mail_builder/hand_over/queue_events.h"
#include "host/mail_builder/hand_over/queue_hold.h"
#include "host/mail_builder/spool_envelope.h"
#include "host/mail_builder/system_file.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

/// Claims the entry, wherever it is. Throws Exception when there is none or somebody else has it.
std::pair<QueueClaim, SpoolState> claimEntry(const std::string& id) {
  checkSpool();
  for (const SpoolState place : {SpoolState::kWaiting, SpoolState::kFailed, SpoolState::kWaiting}) {
    QueueClaim claim(place, id);
    if (claim.result() == ClaimResult::kTaken) return {std::move(claim), place};
    if (claim.result() == ClaimResult::kBusy) throw spoolFault(spoolPath(place, id), "is being handled right now");
  }
  throw spoolFault(spoolPath(SpoolState::kWaiting, id), errorText(ENOENT));
}

/// Whom an entry that is being dropped was for; nobody when it cannot be read, which must not keep it from going.
std::vector<std::string> recipientsOf(const QueueClaim& claim) try {
  return claim.read().entry.recipients;
} catch (const Exception&) {
  return {};
}

}  // namespace

void retryQueued(const std::string& id) {
  auto [claim, place] = claimEntry(id);
  SpoolMail mail = claim.read();
  mail.entry.nextAttempt = 0;
  if (place == SpoolState::kFailed) {
    mail.entry.attempts = 0;
    mail.entry.queuedAt = std::time(nullptr);
  }
  claim.rewrite(mail.entry, mail.content);
  if (place == SpoolState::kFailed) claim.moveTo(SpoolState::kWaiting);
  liftHold();
}

void dropQueued(const std::string& id) {
  auto [claim, place] = claimEntry(id);
  const std::vector<std::string> recipients = recipientsOf(claim);
  claim.remove();
  logQueueEvent(QueueEvent::kDropped, id, recipients, "");
}

}  // namespace Velmar::Host
