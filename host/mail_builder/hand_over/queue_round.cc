// Hands on the waiting mails one after the other and notes in the spool what became of each. flushQueue() calls it.
//
// The spool never forgets a recipient before the server has taken the mail for it: a crash between the server's yes and
// the note of it delivers that mail twice, and no crash delivers it never. So a mail is not even tried when there would
// be no room for the note.

#include "host/mail_builder/hand_over/queue_round.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <optional>
#include <set>
#include <utility>

#include "host/mail_builder/durable_file.h"
#include "host/mail_builder/hand_over/queue_claim.h"
#include "host/mail_builder/hand_over/queue_events.h"
#include "host/mail_builder/hand_over/queue_hold.h"
#include "host/mail_builder/hand_over/queue_outcome.h"
#include "host/mail_builder/hand_over/retry_schedule.h"
#include "host/mail_builder/message_ids.h"
#include "host/mail_builder/spool_envelope.h"
#include "host/mail_builder/system_file.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

/// Room for the notes about one mail beside its own size.
constexpr SpoolFloor kRoomForNotes{1, 8};

bool nameIsFree(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) == 0) return false;
  if (errno != ENOENT) throw spoolFault(path, errorText(errno));
  return true;
}

/// What failed gets an id of its own when the mail's own name goes on waiting, or stands for something that failed
/// before.
void nameFailedPart(QueueOutcome& outcome) {
  if (!outcome.failed) return;
  if (!outcome.waiting && nameIsFree(spoolPath(SpoolState::kFailed, outcome.failed->id))) return;
  outcome.failed->id += "-" + randomToken(4);
}

void storeFailed(const SpoolEntry& entry, const std::string& content) {
  replaceDurably(spoolPath(), spoolPlace(SpoolState::kFailed), entry.id, spoolEnvelopeText(entry).append(content));
}

/// Brings the spool to what became of the mail. What failed is stored before it is taken from the waiting file.
void settle(QueueClaim& claim, const std::string& id, const QueueOutcome& outcome, const std::string& content) {
  if (outcome.failed && outcome.failed->id == id) {
    claim.rewrite(*outcome.failed, content);
    return claim.moveTo(SpoolState::kFailed);
  }
  if (outcome.failed) storeFailed(*outcome.failed, content);
  if (outcome.waiting) return claim.rewrite(*outcome.waiting, content);
  claim.remove();
}

void logGroup(QueueEvent event, const std::string& id, const RecipientGroup& group) {
  if (!group.recipients.empty()) logQueueEvent(event, id, group.recipients, group.reply);
}

/// What waits, in the order in which it is tried: what has not been tried yet, oldest first, then by the time at which
/// it is due. So a mail that makes the server unusable keeps none from going.
std::vector<SpoolEntry> inTurn() {
  std::vector<SpoolEntry> entries = listSpool(SpoolState::kWaiting);
  std::stable_sort(entries.begin(), entries.end(),
                   [](const SpoolEntry& a, const SpoolEntry& b) { return a.nextAttempt < b.nextAttempt; });
  return entries;
}

class QueueRound {
 public:
  QueueRound(Transport& transport, const QueueConfig& config, const FlushOptions& options)
      : transport_(transport), config_(config), options_(options) {}

  FlushResult run() {
    checkSpool();
    sweepTemporary(spoolPath());
    hold_ = queueHold();
    stopped_ = hold_.failures > 0 && !mayTry(hold_.until);
    do handleNew();
    while (sawNew_ && !stopped_);
    if (serverWorks_ && !stopped_ && hold_.failures > 0) liftHold();
    return std::move(result_);
  }

 private:
  bool mayTry(long long next) const { return options_.evenIfNotDue || isDue(config_, next, std::time(nullptr)); }

  /// Handles what this round has not seen yet: mails come in meanwhile, and who watches the spool may not have noticed.
  void handleNew() {
    sawNew_ = false;
    for (const SpoolEntry& listed : inTurn()) {
      if (!seen_.insert(listed.id).second) continue;
      sawNew_ = true;
      handle(listed);
    }
  }

  void handle(const SpoolEntry& listed) {
    if (listed.state == SpoolState::kUnreadable) {
      noteUnreadable(listed.id, listed.lastReply);
    } else if (stopped_) {
      ++result_.held;
    } else if (!mayTry(listed.nextAttempt)) {
      ++result_.notDue;
    } else {
      claimAndTry(listed);
    }
  }

  void noteUnreadable(const std::string& id, const std::string& reason) {
    ++result_.unreadable;
    result_.problems.push_back({id, SpoolState::kUnreadable, {}, reason});
  }

  void claimAndTry(const SpoolEntry& listed) {
    std::optional<QueueClaim> claim;
    SpoolMail mail;
    try {
      claim.emplace(SpoolState::kWaiting, listed.id);
      if (claim->result() != ClaimResult::kTaken) return;  // somebody else sees to it
      mail = claim->read();
    } catch (const Exception& e) {
      return noteUnreadable(listed.id, e.text());
    }
    // Somebody else tried it between our list and our claim: one attempt a round is enough.
    if (mail.entry.attempts != listed.attempts) return;
    tryMail(*claim, std::move(mail));
  }

  void tryMail(QueueClaim& claim, SpoolMail mail) {
    const SpoolEntry entry = mail.entry;
    const QueuedMail queued = queuedMail(std::move(mail));
    if (!roomForNotes(entry)) return;
    const HandOver answer = answerTo(queued);
    QueueOutcome outcome = outcomeOf(entry, answer, config_, std::time(nullptr));
    if (note(claim, entry, outcome, queued.content)) report(entry.id, outcome);
    if (answer.serverUnusable) stop(outcome);
  }

  /// What the transport said; a mail that it does not send at all is refused to everybody.
  HandOver answerTo(const QueuedMail& mail) try {
    HandOver answer = transport_.send(mail);
    serverWorks_ = serverWorks_ || !answer.serverUnusable;
    return answer;
  } catch (const Exception& e) {
    return {std::vector<RecipientReply>(mail.recipients.size(), {Verdict::kPermanent, "not sent: " + e.text()}), false};
  }

  /// Brings the spool to the outcome. False when that fails for a mail that nobody has got: it waits as before.
  bool note(QueueClaim& claim, const SpoolEntry& entry, QueueOutcome& outcome, const std::string& content) try {
    nameFailedPart(outcome);
    settle(claim, entry.id, outcome, content);
    return true;
  } catch (const Exception& e) {
    // Going on could deliver one mail after the other twice.
    if (!outcome.accepted.recipients.empty()) throw;
    ++result_.delayed;
    const std::string reply = (outcome.waiting ? outcome.waiting : outcome.failed)->lastReply;
    result_.problems.push_back({entry.id, SpoolState::kWaiting, entry.recipients, reply + "; not noted: " + e.text()});
    return false;
  }

  /// A mail to one recipient needs no room: it goes, or it stays as it is.
  bool roomForNotes(const SpoolEntry& entry) {
    if (entry.recipients.size() == 1) return true;
    const std::string fault = spoolSpaceFault(spoolPath(), 2 * (entry.size + kMaxEnvelope), kRoomForNotes);
    if (fault.empty()) return true;
    ++result_.delayed;
    result_.problems.push_back({entry.id, SpoolState::kWaiting, entry.recipients, "not tried: " + fault});
    return false;
  }

  void report(const std::string& id, const QueueOutcome& outcome) {
    logGroup(QueueEvent::kHandedOver, id, outcome.accepted);
    logGroup(QueueEvent::kDelayed, id, outcome.delayed);
    if (outcome.failed) logGroup(QueueEvent::kRefused, outcome.failed->id, outcome.refused);
    if (outcome.failed) logGroup(QueueEvent::kGivenUp, outcome.failed->id, outcome.givenUp);
    result_.handedOn += !outcome.waiting && !outcome.failed;
    result_.delayed += outcome.waiting.has_value();
    result_.failed += outcome.failed.has_value();
    noteProblem(SpoolState::kWaiting, outcome.waiting);
    noteProblem(SpoolState::kFailed, outcome.failed);
  }

  void noteProblem(SpoolState state, const std::optional<SpoolEntry>& left) {
    if (left) result_.problems.push_back({left->id, state, left->recipients, left->lastReply});
  }

  void stop(const QueueOutcome& outcome) {
    stopped_ = true;
    const auto& left = outcome.waiting ? outcome.waiting : outcome.failed;
    extendHold(serverWorks_ ? QueueHold{} : hold_, left ? left->lastReply : "", config_, std::time(nullptr));
  }

  Transport& transport_;
  const QueueConfig& config_;
  const FlushOptions options_;
  FlushResult result_;
  QueueHold hold_;
  std::set<std::string> seen_;  ///< ids
  bool sawNew_ = false;
  bool stopped_ = false;
  bool serverWorks_ = false;  ///< for one mail at least
};

}  // namespace

FlushResult flushQueueWith(Transport& transport, const QueueConfig& config, const FlushOptions& options) {
  return QueueRound(transport, config, options).run();
}

}  // namespace Velmar::Host
