#pragma once

// One SMTP transaction: MAIL, RCPT, DATA, the content, and who has it then.

#include <cstddef>
#include <string>
#include <vector>

#include "host/mail_builder/hand_over/smtp_connection.h"
#include "host/mail_builder/hand_over/smtp_envelope.h"
#include "host/mail_builder/hand_over/transport.h"

namespace Velmar::Host {

/// Offers one mail to some of its recipients, once. Use: construct, run(), look.
class SmtpTransaction {
 public:
  /// recipients  their places in the mail, at least one
  /// replies     one for each recipient of the mail; those of `recipients` are filled in
  SmtpTransaction(SmtpConnection& connection, const OutgoingMail& mail, std::vector<std::size_t> recipients,
                  std::vector<RecipientReply>& replies);

  /// Throws SessionLost when the session ends before the last reply; see fail().
  void run();

  /// Fills in the recipients that the end of the session left open.
  void fail(const SessionLost& lost);

  /// Whether the server has answered the first command.
  bool isAnswered() const noexcept { return answered_; }

  /// The recipients that the server did not want in this transaction but may want in another. Each has a reply, for the
  /// case that there is none. Empty unless the mail was accepted for others.
  const std::vector<std::size_t>& left() const noexcept { return left_; }

 private:
  std::size_t commandCount() const noexcept { return recipients_.size() + 2; }
  bool isData(std::size_t command) const noexcept { return command == recipients_.size() + 1; }
  std::string commandLines(std::size_t from, std::size_t until) const;
  bool isPointless(std::size_t next) const;
  std::size_t leaveOut(std::size_t next);
  void take(std::size_t command, const SmtpReply& reply);
  void takeRecipient(std::size_t recipient, const SmtpReply& reply);
  void finish();
  void sendContent();
  void sendNothing();
  void settle(const std::vector<std::size_t>& recipients, const SmtpReply& reply);

  SmtpConnection& connection_;
  const OutgoingMail& mail_;
  std::vector<std::size_t> recipients_;
  std::vector<RecipientReply>& replies_;
  bool answered_ = false;
  bool mailRefused_ = false;
  SmtpReply data_;                     ///< the answer to DATA; code 0 = not asked
  std::vector<std::size_t> accepted_;  ///< by RCPT
  std::vector<std::size_t> tooMany_;   ///< refused because there are enough, or not offered any more for that
  bool enough_ = false;                ///< whether one was refused so behind one that was accepted
  std::vector<std::size_t> left_;      ///< of these, for the next transaction
  bool contentSent_ = false;
};

}  // namespace Velmar::Host
