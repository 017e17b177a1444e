// Sorts the recipients of a mail by the server's answers. The queue's round calls it and then changes the spool.

#include "host/mail_builder/hand_over/queue_outcome.h"

#include <algorithm>

#include "host/mail_builder/hand_over/retry_schedule.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kLongestReply = 2000;

/// Gathers recipients and the texts about them.
class GroupBuilder {
 public:
  void add(const std::string& recipient, const std::string& text) {
    group_.recipients.push_back(recipient);
    texts_.push_back(printable(text));
  }

  RecipientGroup take() {
    const bool alike = std::all_of(texts_.begin(), texts_.end(), [&](const auto& text) { return text == texts_[0]; });
    for (std::size_t i = 0; i < texts_.size() && group_.reply.size() < kLongestReply; ++i) {
      if (alike && i > 0) break;
      if (i > 0) group_.reply += "; ";
      group_.reply += alike ? texts_[i] : printable(group_.recipients[i]) + ": " + texts_[i];
    }
    if (group_.reply.size() > kLongestReply) cut(group_.reply);
    return std::move(group_);
  }

 private:
  /// Cuts where a character begins.
  static void cut(std::string& text) {
    std::size_t end = kLongestReply;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0U) == 0x80) --end;
    text.resize(end);
    text += "...";
  }

  RecipientGroup group_;
  std::vector<std::string> texts_;
};

/// What is left of a mail for some of its recipients after one more attempt.
SpoolEntry remainder(const SpoolEntry& entry, const RecipientGroup& group, long long next) {
  SpoolEntry left = entry;
  left.recipients = group.recipients;
  left.lastReply = group.reply;
  left.nextAttempt = next;
  ++left.attempts;
  return left;
}

}  // namespace

QueueOutcome outcomeOf(const SpoolEntry& entry, const HandOver& answer, const QueueConfig& config, long long now) {
  const std::optional<long long> next = nextAttempt(config, entry.queuedAt, entry.attempts + 1, now);
  GroupBuilder accepted, delayed, refused, givenUp, failed;
  for (std::size_t i = 0; i < entry.recipients.size(); ++i) {
    const RecipientReply reply = i < answer.recipients.size() ? answer.recipients[i] : RecipientReply{};
    const std::string& recipient = entry.recipients[i];
    if (reply.verdict == Verdict::kAccepted) {
      accepted.add(recipient, reply.text);
    } else if (reply.verdict == Verdict::kTemporary && next) {
      delayed.add(recipient, reply.text);
    } else {
      (reply.verdict == Verdict::kPermanent ? refused : givenUp).add(recipient, reply.text);
      failed.add(recipient, reply.text);
    }
  }
  QueueOutcome outcome;
  outcome.accepted = accepted.take();
  outcome.delayed = delayed.take();
  outcome.refused = refused.take();
  outcome.givenUp = givenUp.take();
  if (!outcome.delayed.recipients.empty()) outcome.waiting = remainder(entry, outcome.delayed, next.value_or(0));
  const RecipientGroup lost = failed.take();
  if (!lost.recipients.empty()) outcome.failed = remainder(entry, lost, 0);
  return outcome;
}

}  // namespace Velmar::Host
