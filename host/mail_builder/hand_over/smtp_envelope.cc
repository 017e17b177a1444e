// Turns a mail into commands and content for the dialogue. Called by the SMTP transport before it talks to the server,
// so that a mail that could end early or smuggle in commands is never begun.

#include "host/mail_builder/hand_over/smtp_envelope.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "host/mail_builder/utf8.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

// 64 bytes before the "@" and 255 behind it are what RFC 5321 promises to be taken; nobody has more.
constexpr std::size_t kMaxAddress = 320;

Exception unsendable(const std::string& text) { return Exception("SmtpException", 4, "Smtp", __LINE__, text); }

bool isEightBit(char c) { return static_cast<unsigned char>(c) >= 0x80; }

/// Eight bytes at a time: this looks at every byte of every mail.
bool hasEightBit(std::string_view text) {
  std::uint64_t seen = 0;
  for (; text.size() >= sizeof seen; text.remove_prefix(sizeof seen)) {
    std::uint64_t eight = 0;
    std::memcpy(&eight, text.data(), sizeof eight);
    seen |= eight;
  }
  return (seen & 0x8080808080808080U) != 0 || std::any_of(text.begin(), text.end(), isEightBit);
}

bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

bool isLetterOrDigit(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

bool onlyLettersDigitsAnd(std::string_view others, std::string_view text) {
  return std::all_of(text.begin(), text.end(), [&](char c) {
    return isLetterOrDigit(c) || isEightBit(c) || others.find(c) != std::string_view::npos;
  });
}

/// Whether the text is one quoted string from end to end.
bool isQuoted(std::string_view local) {
  if (local.size() < 2 || local.front() != '"' || local.back() != '"') return false;
  for (std::size_t i = 1; i + 1 < local.size(); ++i) {
    if (local[i] == '"') return false;
    if (local[i] == '\\' && ++i + 1 == local.size()) return false;
  }
  return true;
}

bool isDomain(std::string_view domain) {
  if (domain.size() > 2 && domain.front() == '[' && domain.back() == ']') {
    return onlyLettersDigitsAnd(".:-", domain.substr(1, domain.size() - 2));
  }
  return !domain.empty() && onlyLettersDigitsAnd(".-_", domain);
}

Exception loneLineEnd(std::size_t at) {
  return unsendable("the mail holds a CR or LF that is no line end, at byte " + std::to_string(at) +
                    ": servers could take it for the end of the mail");
}

}  // namespace

std::string envelopeAddressFault(std::string_view address) {
  if (address.size() > kMaxAddress) return "is longer than " + std::to_string(kMaxAddress) + " bytes";
  if (std::any_of(address.begin(), address.end(), isControl)) return "holds a control character";
  // Inside quotes they would be allowed, but servers that look for the first ">" read parameters behind it.
  if (address.find_first_of("<>") != std::string_view::npos) return "holds \"<\" or \">\"";
  if (utf8Quality(address).malformed > 0) return "is not UTF-8";
  const std::size_t at = address.rfind('@');
  if (at == std::string_view::npos || at == 0) return "has no local part or no domain";
  const std::string_view local = address.substr(0, at);
  if (!isQuoted(local) && !onlyLettersDigitsAnd("!#$%&'*+-/=?^_`{|}~.", local)) {
    return "holds what may only stand between quotes before its \"@\"";
  }
  return isDomain(address.substr(at + 1)) ? "" : "has no domain name behind its \"@\"";
}

std::string wireContent(std::string_view content) {
  std::string wire;
  wire.reserve(content.size() + content.size() / 64 + 8);
  for (std::size_t start = 0; start < content.size();) {
    const std::size_t cr = content.find('\r', start);
    const std::string_view line = content.substr(start, cr - start);  // to the end without a CR
    if (const std::size_t lf = line.find('\n'); lf != std::string_view::npos) throw loneLineEnd(start + lf);
    if (cr != std::string_view::npos && content.substr(cr + 1, 1) != "\n") throw loneLineEnd(cr);
    if (line.starts_with('.')) wire += '.';
    wire.append(line).append("\r\n");
    start += line.size() + 2;
  }
  wire += ".\r\n";
  return wire;
}

OutgoingMail::OutgoingMail(const QueuedMail& mail) : mail_(mail), wire_(wireContent(mail.content)) {
  const std::string fault = mail.sender.empty() ? "" : envelopeAddressFault(mail.sender);
  if (!fault.empty()) throw unsendable("the sender \"" + mail.sender + "\" " + fault);
  const std::string_view content = mail.content;
  size_ = content.size() + (content.empty() || content.ends_with('\n') ? 0 : 2);
  eightBit_ = hasEightBit(content);
  utf8Header_ = hasEightBit(mail.sender) || (eightBit_ && hasEightBit(content.substr(0, content.find("\r\n\r\n"))));
}

std::string OutgoingMail::refusal(const EhloKeywords& offered) const {
  if (utf8Header_ && !offered.smtpUtf8) return "the sender or a header needs SMTPUTF8, which the server does not offer";
  if (eightBit_ && !offered.eightBitMime) return "the mail needs 8BITMIME, which the server does not offer";
  if (offered.sizeLimit > 0 && size_ > offered.sizeLimit) {
    return "the mail has " + std::to_string(size_) + " bytes, the server takes at most " +
           std::to_string(offered.sizeLimit);
  }
  return "";
}

std::string OutgoingMail::recipientRefusal(std::size_t recipient, const EhloKeywords& offered) const {
  const std::string& address = mail_.recipients[recipient];
  const std::string fault = envelopeAddressFault(address);
  if (!fault.empty()) return "the address \"" + printable(address) + "\" " + fault;
  return !offered.smtpUtf8 && hasEightBit(address) ? "the address needs SMTPUTF8, which the server does not offer" : "";
}

std::string OutgoingMail::mailCommand(const EhloKeywords& offered) const {
  const bool utf8 =
      utf8Header_ || (offered.smtpUtf8 && std::any_of(mail_.recipients.begin(), mail_.recipients.end(), hasEightBit));
  std::string command = "MAIL FROM:<" + mail_.sender + ">";
  if (offered.size) command += " SIZE=" + std::to_string(size_);
  if (eightBit_) command += " BODY=8BITMIME";
  if (utf8) command += " SMTPUTF8";
  return command + "\r\n";
}

std::string OutgoingMail::rcptCommand(std::size_t recipient, const EhloKeywords& offered) const {
  const bool never = mail_.suppressDsn && offered.dsn;
  return "RCPT TO:<" + mail_.recipients[recipient] + (never ? "> NOTIFY=NEVER\r\n" : ">\r\n");
}

}  // namespace Velmar::Host
