// Checks and cleans UTF-8. Decoding calls this last, so that whatever a charset yields is safe in a line.

#include "host/mail_builder/utf8.h"

#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>

#include "host/mail_builder/byte_run.h"

namespace Velmar::Host {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD
constexpr std::size_t kPiece = std::size_t{1} << 30;       // ICU counts in 32 bits

bool isControl(UChar32 c) { return c < 0x20 || (c >= 0x7f && c < 0xa0) || c == 0x2028 || c == 0x2029; }

/// Calls visit(character, bytes) for each character in order; the character is negative for a malformed sequence.
template <class Visit>
void forEachCharacter(std::string_view text, Visit visit) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  for (std::size_t from = 0; from < text.size();) {
    const auto left = static_cast<std::int32_t>(std::min(text.size() - from, kPiece));
    std::int32_t at = 0;
    UChar32 character = 0;
    U8_NEXT(bytes + from, at, left, character);
    visit(character, text.substr(from, static_cast<std::size_t>(at)));
    from += static_cast<std::size_t>(at);
  }
}

bool isPrintable(char c) { return (c >= 0x20) & (c < 0x7f); }

/// The bytes with all but those that are plain looked at, character by character.
template <class IsPlain>
std::string cleaned(std::string_view bytes, IsPlain isPlain) {
  std::string text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    const std::size_t plain = runOf(bytes, isPlain);
    text.append(bytes.substr(0, plain));
    bytes.remove_prefix(plain);
    const std::size_t other = runOf(bytes, [isPlain](char c) { return !isPlain(c); });
    forEachCharacter(bytes.substr(0, other), [&text](UChar32 c, std::string_view sequence) {
      text.append(c < 0 ? kReplacement : isControl(c) ? std::string_view(" ") : sequence);
    });
    bytes.remove_prefix(other);
  }
  return text;
}

/// LF and tab are kept.
std::string cleanedLines(std::string_view bytes) {
  return cleaned(bytes, [](char c) { return isPrintable(c) | (c == '\n') | (c == '\t'); });
}

}  // namespace

TextQuality utf8Quality(std::string_view bytes) {
  TextQuality quality;
  forEachCharacter(bytes, [&quality](UChar32 c, std::string_view) {
    if (c < 0) ++quality.malformed;
    if (c >= 0x80) ++quality.foreign;
  });
  return quality;
}

std::string oneLine(std::string_view bytes) { return cleaned(bytes, isPrintable); }

std::string cleanLines(std::string_view bytes) {
  if (bytes.find('\r') == std::string_view::npos) return cleanedLines(bytes);
  std::string unix;
  unix.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (bytes.substr(i, 2) == "\r\n") ++i;
    unix += bytes[i] == '\r' ? '\n' : bytes[i];
  }
  return cleanedLines(unix);
}

std::string shortened(std::string_view text, std::size_t characters) {
  std::size_t at = 0;
  for (; at < text.size(); ++at) {
    const bool starts = (static_cast<unsigned char>(text[at]) & 0xC0) != 0x80;
    if (starts && characters-- == 0) return std::string(text.substr(0, at)) + "\u2026";
  }
  return std::string(text);
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace Velmar::Host
