#pragma once

// The readable text of an event: the template of its row with the values filled in.

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "host/host.h"

namespace Velmar::Host {

/// A piece of a text's template: plain text, then possibly one placeholder.
struct TextPiece {
  std::string_view plain;
  std::string_view field{};  ///< "" = no placeholder follows
  char kind = 0;             ///< 0 = the value, ':' = a number and a word, '#' = the number of values and a word
  std::string_view one{};    ///< the word for one
  std::string_view more{};   ///< and for any other number
};

/// Takes the first piece off `rest`, which is not empty. A brace that is not closed runs to the end.
constexpr TextPiece takePiece(std::string_view& rest) {
  const std::size_t open = rest.find('{');
  TextPiece piece{rest.substr(0, open)};
  rest.remove_prefix(piece.plain.size());
  if (rest.empty()) return piece;
  const std::size_t close = std::min(rest.find('}'), rest.size() - 1);
  const std::string_view inside = rest.substr(1, close - 1);
  rest.remove_prefix(close + 1);
  const std::size_t mark = std::min(inside.find_first_of(":#"), inside.size());
  piece.field = inside.substr(0, mark);
  if (mark == inside.size()) return piece;
  const std::size_t slash = std::min(inside.find('/'), inside.size());
  piece.kind = inside[mark];
  piece.one = inside.substr(mark + 1, slash - mark - 1);
  piece.more = inside.substr(std::min(slash + 1, inside.size()));
  return piece;
}

/// The place of a field in an event; the number of places when it has none of this name.
constexpr std::size_t fieldPlace(const EventInfo& event, std::string_view name) {
  const auto isIt = [name](const char* field) { return field && name == field; };
  return static_cast<std::size_t>(std::find_if(event.fields.begin(), event.fields.end(), isIt) - event.fields.begin());
}

/// Whether each placeholder of the event's text names a field and has both words where it needs them.
constexpr bool textNamesFields(const EventInfo& event) {
  std::string_view rest = event.text;
  while (!rest.empty()) {
    const bool brace = rest.find('{') != std::string_view::npos;
    const TextPiece piece = takePiece(rest);
    if (brace && fieldPlace(event, piece.field) == event.fields.size()) return false;
    if (piece.kind != 0 && (piece.one.empty() || piece.more.empty())) return false;
  }
  return true;
}

/// The text of an event with its values: raw bytes, bounded, because a value beyond 1000 bytes is cut and ends in
/// "...". What is missing or empty reads "(unknown)".
std::string eventText(const EventInfo& event, const std::vector<std::string>& fields);

/// A field's name with its ASCII letters in capitals.
std::string inCapitals(std::string_view name);

}  // namespace Velmar::Host
