#pragma once

// A mail server in the test's hands: what it says to a recipient is the first letter of the address.

#include <functional>
#include <string>

#include "host/mail_builder/hand_over/transport.h"
#include "platform/types.h"

namespace Velmar::Testing {

/// a = accepted, t = temporary, p = permanent, u = temporary and the server is unusable, x = the mail is not sendable.
class LetterTransport : public Host::Transport {
 public:
  /// Called for each mail before the answer.
  std::function<void(const Host::QueuedMail&)> onMail = [](const Host::QueuedMail&) {};
  /// Answers that stand in for the letters' own, e.g. "550 no".
  std::string temporary = "450 later", permanent = "550 no";
  std::string tried;  ///< what came: "ID:RECIPIENT,RECIPIENT; "

  Host::HandOver send(const Host::QueuedMail& mail) override {
    onMail(mail);
    Host::HandOver answer;
    std::string names;
    for (const std::string& recipient : mail.recipients) {
      names += (names.empty() ? "" : ",") + recipient.substr(0, recipient.find('@'));
      answer.recipients.push_back(replyTo(recipient));
      answer.serverUnusable = answer.serverUnusable || recipient[0] == 'u';
    }
    tried += mail.id + ":" + names + "; ";
    return answer;
  }

 private:
  Host::RecipientReply replyTo(const std::string& recipient) const {
    switch (recipient[0]) {
      case 'a':
        return {Host::Verdict::kAccepted, "250 ok"};
      case 'p':
        return {Host::Verdict::kPermanent, permanent};
      case 'x':
        throw Exception("TestException", 4, "Test", __LINE__, "bare CR in the mail");
      default:
        return {Host::Verdict::kTemporary, temporary};
    }
  }
};

}  // namespace Velmar::Testing
