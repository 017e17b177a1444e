// Writes texts of unknown origin so that every reader of JSON accepts them.

#include "tools/spamreport/json.h"

#include <array>
#include <cstdio>

namespace Velmar::Tool {
namespace {

constexpr char kReplacement[] = "\xef\xbf\xbd";

/// One character at the start of a text; length 0 = the first byte begins none.
struct Character {
  std::size_t length = 0;
  char32_t code = 0;
};

struct Form {
  unsigned char mask, lead;
  char32_t least;  ///< smaller codes have a shorter form
};
constexpr std::array<Form, 4> kForms{{{0x80, 0x00, 0}, {0xe0, 0xc0, 0x80}, {0xf0, 0xe0, 0x800}, {0xf8, 0xf0, 0x10000}}};

Character firstOf(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  for (std::size_t i = 0; i < kForms.size(); ++i) {
    const Form& form = kForms[i];
    if ((byte(0) & form.mask) != form.lead) continue;
    char32_t code = byte(0) & static_cast<unsigned char>(~form.mask);
    for (std::size_t k = 1; k <= i; ++k) {
      if (k >= text.size() || (byte(k) & 0xc0U) != 0x80U) return {};
      code = code << 6U | (byte(k) & 0x3fU);
    }
    const bool surrogate = code >= 0xd800 && code <= 0xdfff;
    return code < form.least || code > 0x10ffff || surrogate ? Character{} : Character{i + 1, code};
  }
  return {};
}

/// Controls, line separators, and what turns the direction of a line: the text is looked at on terminals too.
bool mustBeEscaped(char32_t code) {
  return code < 0x20 || (code >= 0x7f && code < 0xa0) || (code >= 0x2028 && code <= 0x202e) ||
         (code >= 0x2066 && code <= 0x2069);
}

std::string written(const Character& character, std::string_view text) {
  if (character.length == 0) return kReplacement;
  if (character.code == '"' || character.code == '\\') return std::string("\\") + text[0];
  if (character.code == '\n') return "\\n";
  if (!mustBeEscaped(character.code)) return std::string(text.substr(0, character.length));
  std::array<char, 8> escape{};
  std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(character.code & 0xffffU));
  return escape.data();
}

}  // namespace

std::string jsonText(std::string_view bytes) {
  std::string text = "\"";
  while (!bytes.empty()) {
    const Character character = firstOf(bytes);
    text += written(character, bytes);
    bytes.remove_prefix(character.length == 0 ? 1 : character.length);
  }
  return text + "\"";
}

}  // namespace Velmar::Tool
