// Claims spool files by lock, where they are. The queue's round and the administrator's commands change files through
// here only; nothing here knows servers.

#include "host/mail_builder/hand_over/queue_claim.h"

#include <fcntl.h>

#include <utility>

#include "host/mail_builder/durable_file.h"
#include "host/mail_builder/file_lock.h"
#include "host/mail_builder/spool_envelope.h"

namespace Velmar::Host {

QueueClaim::QueueClaim(SpoolState place, std::string id) : place_(place), id_(std::move(id)), result_(take()) {}

ClaimResult QueueClaim::take() {
  if (!isQueueId(id_)) throw spoolFault(path(), "is no queue id");
  // For writing, because some file systems lock exclusively only what may be written.
  file_ = openSpoolFile(path(), O_RDWR);
  if (!file_.isOpen()) return ClaimResult::kGone;
  if (!tryLock(file_, path())) return ClaimResult::kBusy;
  // Whoever had the lock before may have replaced, moved or removed the file since it was opened here.
  return isStillAt(file_, path()) ? ClaimResult::kTaken : ClaimResult::kGone;
}

SpoolMail QueueClaim::read() const { return readSpoolFile(file_, place_, path()); }

void QueueClaim::rewrite(const SpoolEntry& entry, const std::string& content) {
  file_ = replaceDurably(spoolPath(), spoolPlace(place_), id_, spoolEnvelopeText(entry).append(content));
}

void QueueClaim::moveTo(SpoolState place) {
  moveDurably(spoolPath(), spoolPlace(place_), spoolPlace(place), id_);
  place_ = place;
}

void QueueClaim::remove() { removeDurably(spoolPath(), spoolPlace(place_), id_); }

}  // namespace Velmar::Host
