#pragma once

// Replies of an SMTP server: RFC 5321 section 4.2.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Velmar::Host {

/// One whole reply.
struct SmtpReply {
  int code = 0;                    ///< 200 to 599
  std::vector<std::string> lines;  ///< what follows the code and its separator, at least one; raw bytes of the server

  /// 2 to 5.
  int kind() const noexcept { return code / 100; }
};

/// Takes replies out of a stream of bytes that arrive in any portions.
class SmtpReplyParser {
 public:
  static constexpr std::size_t kMaxLine = 4096;  ///< bytes with the line end; RFC 5321 promises at most 512
  static constexpr std::size_t kMaxLines = 256;  ///< lines of one reply

  /// Adds what has arrived.
  void feed(std::string_view bytes);

  /// The next whole reply; none when more bytes are needed, or when what arrived is no reply: see fault().
  std::optional<SmtpReply> next();

  /// What is wrong with what the server sent, without its bytes; "" = nothing. A fault stays.
  const std::string& fault() const noexcept { return fault_; }

  /// Whether bytes wait that next() has not handed out.
  bool hasLeftover() const noexcept { return at_ < buffer_.size() || !partial_.lines.empty(); }

 private:
  std::optional<std::string_view> takeLine();
  bool takeReplyLine(std::string_view line);

  std::string buffer_;
  std::size_t at_ = 0;  ///< start of what is not taken yet
  SmtpReply partial_;   ///< the lines so far of a reply of several lines
  std::string fault_;
};

/// The reply as one printable line of bounded length: "550 5.1.1 no such user".
std::string describe(const SmtpReply& reply);

/// Whether a reply to RCPT says that this mail has enough recipients and the others shall come with the next one:
/// 452, or 552 as old servers say, with the status X.5.3 or none.
bool isTooManyRecipients(const SmtpReply& reply);

/// What a server offers.
struct EhloKeywords {
  bool pipelining = false;
  bool dsn = false;
  bool smtpUtf8 = false;
  bool eightBitMime = false;
  bool startTls = false;
  bool auth = false;
  bool size = false;                 ///< whether SIZE is offered
  unsigned long long sizeLimit = 0;  ///< bytes of the largest mail; 0 = no limit named
};

/// The keywords of a reply to EHLO, in any case; its first line is the server's name. Unknown ones are skipped.
EhloKeywords parseEhlo(const SmtpReply& reply);

}  // namespace Velmar::Host
