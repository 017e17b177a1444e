#pragma once

// How the queue hands a mail on.

#include <string>
#include <vector>

#include "host/host.h"

namespace Velmar::Host {

enum class Verdict { kAccepted, kTemporary, kPermanent };

/// What the server said about one recipient.
struct RecipientReply {
  Verdict verdict = Verdict::kTemporary;
  std::string text;  ///< one line: the server's reply ("550 5.1.1 no such user"), or why there is none
};

/// What became of one mail.
struct HandOver {
  std::vector<RecipientReply> recipients;  ///< one for each recipient of the mail, in its order
  /// The server could not be used at all (no connection, TLS, authentication, 421): other mails would fare the same.
  bool serverUnusable = false;
};

/// A way to hand mails on. One thread at a time.
class Transport {
 public:
  virtual ~Transport() = default;

  /// Hands the mail to the recipients. Never reports kAccepted unless the server took responsibility (250 after the
  /// final dot). Does not throw for anything the server or the network does; throws Exception for a mail that must not
  /// be sent at all (bare CR or LF in its content, a sender that cannot stand in an envelope).
  virtual HandOver send(const QueuedMail& mail) = 0;
};

}  // namespace Velmar::Host
