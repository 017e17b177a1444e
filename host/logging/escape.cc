// Makes any bytes fit for a line that people and programs read: what could end a line or a field, move a terminal's
// cursor or turn the reading direction is written as an escape. Log lines and the command's output go through here.

#include "host/logging/escape.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

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

/// Characters that show nothing of their own but change how the text around them is shown or split, or hide in it;
/// ascending, first and last of each range.
constexpr std::uint32_t kDeceptive[][2] = {
    {0x00, 0x1f},       {0x7f, 0x9f},        // controls
    {0xad, 0xad},       {0x34f, 0x34f},      // soft hyphen, grapheme joiner
    {0x61c, 0x61c},     {0x115f, 0x1160},    // direction mark, fillers
    {0x17b4, 0x17b5},   {0x180b, 0x180f},    // invisible vowels, Mongolian selectors
    {0x200b, 0x200f},   {0x2028, 0x202e},    // zero width, direction marks; line separators, direction overrides
    {0x2060, 0x206f},   {0x3164, 0x3164},    // invisible operators, isolates; filler
    {0xfeff, 0xfeff},   {0xffa0, 0xffa0},    // zero width, filler
    {0xfff0, 0xfffb},   {0x1d173, 0x1d17a},  // annotations, musical controls
    {0xe0000, 0xe0fff},                      // tags
};

bool isDeceptive(std::uint32_t character) {
  return std::any_of(std::begin(kDeceptive), std::end(kDeceptive),
                     [character](const auto& range) { return character >= range[0] && character <= range[1]; });
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
