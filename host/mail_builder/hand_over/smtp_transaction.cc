// The dialogue for one mail. The SMTP transport runs it, one after the other in a session. With PIPELINING the commands
// of up to a hundred recipients go out at once, together with DATA when they are the last; else one by one.

#include "host/mail_builder/hand_over/smtp_transaction.h"

#include <algorithm>
#include <utility>

namespace Velmar::Host {
namespace {

// Their replies fit into the socket's buffer: the server never waits for us while we wait for it.
constexpr std::size_t kCommandsAtOnce = 100;
constexpr int kPatienceAfterContent = 10;

/// What a reply other than 2xx means. Behind DATA, 3xx and 2xx are where they do not belong.
Verdict refusalOf(const SmtpReply& reply) { return reply.kind() == 5 ? Verdict::kPermanent : Verdict::kTemporary; }

}  // namespace

SmtpTransaction::SmtpTransaction(SmtpConnection& connection, const OutgoingMail& mail,
                                 std::vector<std::size_t> recipients, std::vector<RecipientReply>& replies)
    : connection_(connection), mail_(mail), recipients_(std::move(recipients)), replies_(replies) {
  for (const std::size_t recipient : recipients_) replies_[recipient] = {};
}

void SmtpTransaction::run() {
  connection_.endTransaction();
  const std::size_t step = connection_.offered().pipelining ? kCommandsAtOnce : 1;
  for (std::size_t next = 0; next < commandCount() && !isPointless(next);) {
    const std::size_t until = std::min(next + step, commandCount());
    connection_.send(commandLines(next, until));
    for (; next < until; ++next) take(next, connection_.receive());
    if (enough_) next = leaveOut(next);
  }
  finish();
}

void SmtpTransaction::fail(const SessionLost& lost) {
  const char* doubt = contentSent_ ? "; the mail was sent whole and may arrive twice" : "";
  for (const std::size_t recipient : recipients_) {
    if (replies_[recipient].text.empty()) replies_[recipient] = {Verdict::kTemporary, lost.reason + doubt};
  }
}

std::string SmtpTransaction::commandLines(std::size_t from, std::size_t until) const {
  const EhloKeywords& offered = connection_.offered();
  std::string lines;
  for (std::size_t command = from; command < until; ++command) {
    if (command == 0) {
      lines += mail_.mailCommand(offered);
    } else {
      lines += isData(command) ? "DATA\r\n" : mail_.rcptCommand(recipients_[command - 1], offered);
    }
  }
  return lines;
}

bool SmtpTransaction::isPointless(std::size_t next) const {
  return mailRefused_ || (isData(next) && accepted_.empty());
}

/// Leaves the recipients from this command on to the next transaction, unasked: servers count what they are offered
/// beyond their limit as errors, and end the session over many. Returns the command that comes next.
std::size_t SmtpTransaction::leaveOut(std::size_t next) {
  for (; next < commandCount() && !isData(next); ++next) {
    replies_[recipients_[next - 1]] = replies_[tooMany_.back()];
    tooMany_.push_back(recipients_[next - 1]);
  }
  return next;
}

void SmtpTransaction::take(std::size_t command, const SmtpReply& reply) {
  answered_ = true;
  if (isData(command)) {
    data_ = reply;
  } else if (command > 0) {
    takeRecipient(recipients_[command - 1], reply);
  } else if (reply.kind() == 2) {
    connection_.setTransactionOpen(true);
  } else {
    mailRefused_ = true;
    settle(recipients_, reply);
  }
}

void SmtpTransaction::takeRecipient(std::size_t recipient, const SmtpReply& reply) {
  if (mailRefused_) return;  // it has the reply to MAIL
  if (reply.kind() == 2) {
    accepted_.push_back(recipient);
    return;
  }
  settle({recipient}, reply);
  if (!isTooManyRecipients(reply)) return;
  // 552 means the same as 452 here.
  replies_[recipient].verdict = Verdict::kTemporary;
  tooMany_.push_back(recipient);
  enough_ = enough_ || !accepted_.empty();
}

void SmtpTransaction::finish() {
  if (data_.kind() == 3) {
    accepted_.empty() ? sendNothing() : sendContent();
  } else if (data_.code != 0) {
    settle(accepted_, data_);
  }
}

void SmtpTransaction::sendContent() {
  contentSent_ = connection_.send(mail_.wire());
  const SmtpReply reply = connection_.receive(kPatienceAfterContent);
  if (!contentSent_ && reply.kind() == 2) throw SessionLost{"the server accepted a mail before its end"};
  connection_.setTransactionOpen(false);
  for (const std::size_t recipient : accepted_) {
    replies_[recipient] = {reply.kind() == 2 ? Verdict::kAccepted : refusalOf(reply), describe(reply)};
  }
  if (reply.kind() == 2) left_ = tooMany_;
}

/// The server wants a content although it refused everybody. What it says to the empty one concerns nobody.
void SmtpTransaction::sendNothing() {
  connection_.send(".\r\n");
  connection_.receive();
  connection_.setTransactionOpen(false);
}

/// Gives these recipients a refusal as their verdict.
void SmtpTransaction::settle(const std::vector<std::size_t>& recipients, const SmtpReply& reply) {
  for (const std::size_t recipient : recipients) {
    replies_[recipient] = {refusalOf(reply), describe(reply)};
  }
}

}  // namespace Velmar::Host
