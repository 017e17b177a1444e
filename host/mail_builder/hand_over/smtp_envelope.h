#pragma once

// A mail as it goes over the wire, and what it asks of a server. Pure: no server is involved.

#include <cstddef>
#include <string>
#include <string_view>

#include "host/host.h"
#include "host/mail_builder/hand_over/smtp_reply.h"

namespace Velmar::Host {

/// A mail that may be sent: its sender and its line ends are checked.
class OutgoingMail {
 public:
  /// Throws Exception when the sender cannot stand in an envelope, or when the content holds a CR or LF that is not
  /// part of CR LF: servers differ in what they take for the end of a mail then. Lines of any length are sent as they
  /// are. `mail` must outlive this.
  explicit OutgoingMail(const QueuedMail& mail);

  /// Why no recipient can have the mail from a server that offers this; "" when they can.
  std::string refusal(const EhloKeywords& offered) const;
  /// The same for one recipient, also for an address that cannot stand in an envelope. To be asked before
  /// rcptCommand().
  std::string recipientRefusal(std::size_t recipient, const EhloKeywords& offered) const;

  // Commands with their CR LF.
  std::string mailCommand(const EhloKeywords& offered) const;
  std::string rcptCommand(std::size_t recipient, const EhloKeywords& offered) const;

  /// The content with doubled dots, its last line end and the final dot.
  const std::string& wire() const noexcept { return wire_; }

 private:
  const QueuedMail& mail_;
  std::string wire_;
  std::size_t size_ = 0;  ///< bytes as SIZE counts them: with line ends, without doubled dots
  bool eightBit_ = false;
  bool utf8Header_ = false;  ///< in a header or the sender
};

/// Why an address cannot stand between "<" and ">" in an envelope; "" when it can.
/// LOCAL@DOMAIN; LOCAL may be quoted and hold blanks then; UTF-8 may stand in both.
std::string envelopeAddressFault(std::string_view address);

/// The content as it follows DATA, with the final dot. Throws Exception when a CR or LF stands alone in it.
std::string wireContent(std::string_view content);

}  // namespace Velmar::Host
