// Encodes and folds header values. The template makes From and Subject with it, the mail builder its header.
//
// Own code: the encoder of GMime 3.2.13 makes encoded words longer than the 75 characters that RFC 2047 allows, leaves
// "=?...?=" in plain text (which readers then decode), and in phrases writes "=" raw.

#include "host/mail_builder/header_encoding.h"

#include <algorithm>
#include <array>

#include "host/mail_builder/message_ids.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr std::string_view kWordStart = "=?UTF-8?";
constexpr std::size_t kMaxWord = 64;  // RFC 2047 allows 75; less leaves room for the field's name in its line
constexpr std::size_t kMaxEncoded = kMaxWord - kWordStart.size() - 4;  // without "Q?" and "?="
constexpr std::size_t kWantedLine = 76;
constexpr std::size_t kMaxLine = 998;  // RFC 5322 section 2.1.1, without CR LF
constexpr std::size_t kMaxToken = 200;

bool isAlphanumeric(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

/// Stands for itself in the Q encoding, also in a phrase (RFC 2047 section 5, rule 3).
bool isQSafe(char c) { return isAlphanumeric(c) || std::string_view("!*+-/").find(c) != std::string_view::npos; }

bool isAtomText(char c) {
  return isAlphanumeric(c) || std::string_view("!#$%&'*+-/=?^_`{|}~").find(c) != std::string_view::npos;
}

bool isAscii(char c) { return c >= 0x20 && c < 0x7f; }

bool hasLongToken(std::string_view text) {
  std::size_t length = 0;
  return std::any_of(text.begin(), text.end(), [&length](char c) {
    length = c == ' ' ? 0 : length + 1;
    return length > kMaxToken;
  });
}

bool needsWords(std::string_view text) {
  return !std::all_of(text.begin(), text.end(), isAscii) || text.find("=?") != std::string_view::npos ||
         hasLongToken(text);
}

std::size_t qLength(std::string_view text) {
  std::size_t length = 0;
  for (const char c : text) length += c == ' ' || isQSafe(c) ? 1 : 3;
  return length;
}

std::size_t base64Length(std::size_t bytes) { return (bytes + 2) / 3 * 4; }

std::string encodeQ(std::string_view text) {
  constexpr std::string_view kHex = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == ' ') {
      encoded += '_';
    } else if (isQSafe(c)) {
      encoded += c;
    } else {
      encoded += {'=', kHex[byte >> 4], kHex[byte & 15]};
    }
  }
  return encoded;
}

std::string encodeBase64(std::string_view text) {
  return Buffer(text.data(), static_cast<unsigned int>(text.size()), false).toBase64String();
}

/// The length of the longest beginning of `text` that fits into one word and cuts no character.
std::size_t wordLength(std::string_view text, bool base64) {
  std::size_t end = 0;
  std::size_t length = 0;
  while (end < text.size()) {
    std::size_t next = end + 1;
    while (next < text.size() && (static_cast<unsigned char>(text[next]) & 0xc0) == 0x80) ++next;
    length = base64 ? base64Length(next) : length + qLength(text.substr(end, next - end));
    if (length > kMaxEncoded && end > 0) break;
    end = next;
  }
  return end;
}

/// Encoded words with single blanks between them, which decoding drops.
std::string encodeWords(std::string_view text) {
  const bool base64 = base64Length(text.size()) < qLength(text);
  std::string words;
  while (!text.empty()) {
    const std::string_view piece = text.substr(0, wordLength(text, base64));
    if (!words.empty()) words += ' ';
    words.append(kWordStart).append(base64 ? "B?" : "Q?");
    words.append(base64 ? encodeBase64(piece) : encodeQ(piece)).append("?=");
    text.remove_prefix(piece.size());
  }
  return words;
}

std::string quotedString(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

/// Where the line that starts at `from` is to end: at the last blank that keeps it short, else at the first one.
/// A line never ends before its first other character, so none consists of blanks alone.
std::size_t lineEnd(std::string_view value, std::size_t from, std::size_t room) {
  if (value.size() - from <= room) return value.size();
  const std::size_t text = value.find_first_not_of(' ', from);
  std::size_t end = value.rfind(' ', from + room);
  if (end == std::string_view::npos || end <= text) end = value.find(' ', text);
  return std::min(end, value.size());
}

/// A domain as it may stand in a header field that no SMTPUTF8 was agreed for.
std::string wireDomain(const std::string& domain) {
  const bool international = std::any_of(domain.begin(), domain.end(), [](char c) { return (c & 0x80) != 0; });
  const std::string ascii = international ? asciiDomain(domain) : "";
  return ascii.empty() ? domain : ascii;
}

}  // namespace

std::string encodeUnstructured(std::string_view text) {
  return needsWords(text) ? encodeWords(text) : std::string(text);
}

std::string encodePhrase(std::string_view text) {
  if (needsWords(text)) return encodeWords(text);
  const bool atoms = std::all_of(text.begin(), text.end(), [](char c) { return c == ' ' || isAtomText(c); });
  return atoms && text.find("  ") == std::string_view::npos ? std::string(text) : quotedString(text);
}

std::string encodeMailbox(std::string_view displayName, const EmailAddress& address) {
  const std::string text = address.localPart() + "@" + wireDomain(address.domain());
  return displayName.empty() ? text : encodePhrase(displayName) + " <" + text + ">";
}

std::string foldedField(const std::string& name, std::string_view value) {
  std::string field = name + ": ";
  value = value.substr(0, value.find_last_not_of(' ') + 1);
  std::size_t lineStart = 0;
  for (std::size_t from = 0; from < value.size();) {
    const std::size_t before = field.size() - lineStart;
    const std::size_t end = lineEnd(value, from, before < kWantedLine ? kWantedLine - before : 0);
    field.append(value.substr(from, end - from));
    if (field.size() - lineStart > kMaxLine) {
      throw Exception("MailBuilderException", 4, "HeaderEncoding", __LINE__,
                      name + ": a line would be longer than " + std::to_string(kMaxLine) + " bytes");
    }
    from = end;
    field += "\r\n";
    lineStart = field.size();
  }
  if (value.empty()) field += "\r\n";
  return field;
}

}  // namespace Velmar::Host
