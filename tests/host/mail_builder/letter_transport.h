#pragma once

// A mail server in the test's hands: what it says to a recipient is the first letter of the address.

#include <functional>
#include <string>

#include "host/mail_builder/hand_over/transport.h"
#include "platform/types.h"

namespace Velmar::Testing {

/// a = accepted, p = permanent, x = the mail is not sendable, u = temporary and the server is unusable, else temporary.
class LetterTransport : public Host::Transport {
 public:
  std::function<void(const Host::QueuedMail&)> onMail = [](const Host::QueuedMail& /*mail*/) {};  ///< before the answer
  std::string permanent = "550 no";
  std::string tried;  ///< the first recipients of what came

  Host::HandOver send(const Host::QueuedMail& mail) override {
    onMail(mail);
    Host::HandOver answer;
    for (const std::string& recipient : mail.recipients) {
      if (recipient[0] == 'x') throw Exception("TestException", 4, "Test", __LINE__, "bare CR in the mail");
      if (recipient[0] == 'a')
        answer.recipients.push_back({Host::Verdict::kAccepted, "250 ok"});
      else if (recipient[0] == 'p')
        answer.recipients.push_back({Host::Verdict::kPermanent, permanent});
      else
        answer.recipients.push_back({Host::Verdict::kTemporary, "450 later"});
      answer.serverUnusable = answer.serverUnusable || recipient[0] == 'u';
    }
    tried += mail.id + " ";
    return answer;
  }
};

}  // namespace Velmar::Testing
