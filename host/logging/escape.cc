// Makes any bytes fit for a line that people and programs read: what could end a line or a field, move a terminal's
// cursor or turn the reading direction is written as an escape. Log lines and the command's output go through here.

#include "host/logging/escape.h"

#include <array>
#include <cstdint>

#include "host/host.h"

namespace Velmar::Host {
namespace {

/// The bytes of one well-formed UTF-8 character at the start of `text` (RFC 3629), or 0.
std::size_t characterLength(std::string_view text, std::uint32_t& character) {
  static constexpr std::array<std::uint32_t, 5> kSmallest{0, 0, 0x80, 0x800, 0x10000};
  const auto first = static_cast<unsigned char>(text[0]);
  if (first < 0x80) {
    character = first;
    return 1;
  }
  const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4 || text.size() < length) return 0;
  character = first & (0xffU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[i]);
    if ((next & 0xc0) != 0x80) return 0;
    character = character << 6 | (next & 0x3f);
  }
  const bool surrogate = character >= 0xd800 && character <= 0xdfff;
  return character < kSmallest[length] || character > 0x10ffff || surrogate ? 0 : length;
}

/// Characters that show nothing of their own but change how the text around them is shown or split.
bool isDeceptive(std::uint32_t character) {
  return character < 0x20 || (character >= 0x7f && character <= 0x9f) ||
         (character >= 0x200b && character <= 0x200f) ||  // zero width, direction marks
         (character >= 0x2028 && character <= 0x202e) ||  // line separators, direction overrides
         (character >= 0x2066 && character <= 0x2069) || character == 0x061c || character == 0xfeff;
}

void appendHex(std::string& out, std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    out += "\\x";
    out += kDigits[byte >> 4];
    out += kDigits[byte & 15];
  }
}

enum class Quotes { kLeft, kEscaped };

std::string escape(std::string_view bytes, Quotes quotes) {
  std::string out;
  out.reserve(bytes.size());
  while (!bytes.empty()) {
    std::uint32_t character = 0;
    const std::size_t known = characterLength(bytes, character);
    const std::size_t length = known ? known : 1;
    const std::string_view piece = bytes.substr(0, length);
    if (piece == "\n") {
      out += "\\n";
    } else if (quotes == Quotes::kEscaped && (piece == "\"" || piece == "\\")) {
      out.append("\\").append(piece);
    } else if (!known || isDeceptive(character)) {
      appendHex(out, piece);
    } else {
      out += piece;
    }
    bytes.remove_prefix(length);
  }
  return out;
}

}  // namespace

std::string printable(std::string_view bytes) { return escape(bytes, Quotes::kLeft); }

std::string quotedField(std::string_view bytes) { return "\"" + escape(bytes, Quotes::kEscaped) + "\""; }

}  // namespace Velmar::Host
