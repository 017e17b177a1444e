// Fills the texts of events, pure functions: for every line of the log and for the command's list of events.

#include "host/logging/event_text.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kLongestValue = 1000;  // bytes

bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; }

std::string bounded(const std::string& value) {
  if (value.empty()) return "(unknown)";
  if (value.size() <= kLongestValue) return value;
  std::size_t end = kLongestValue;
  while (end > kLongestValue - 4 && isContinuation(value[end])) --end;  // no half character
  return value.substr(0, end) + "...";
}

/// How many values a list holds: one more than it has commas outside quoted local parts.
std::size_t entries(std::string_view list) {
  std::size_t count = list.empty() ? 0 : 1;
  bool quoted = false;
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (list[i] == '"') quoted = !quoted;
    if (quoted && list[i] == '\\') ++i;
    if (!quoted && i < list.size() && list[i] == ',') ++count;
  }
  return count;
}

std::string counted(const std::string& number, const TextPiece& piece) {
  return number + " " + std::string(number == "1" ? piece.one : piece.more);
}

std::string filled(const TextPiece& piece, const std::string& value) {
  if (piece.kind == '#') return counted(std::to_string(entries(value)), piece);
  if (piece.kind == ':') return counted(bounded(value), piece);
  return bounded(value);
}

std::string generalForm(const TextPiece& piece) {
  const std::string name = piece.kind == '#' ? "N" : inCapitals(piece.field);
  return piece.kind == 0 ? name : counted(name, piece);
}

}  // namespace

std::string inCapitals(std::string_view name) {
  std::string text(name);
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

std::string eventText(const EventInfo& event, const std::vector<std::string>& fields) {
  std::string text;
  for (std::string_view rest = event.text; !rest.empty();) {
    const TextPiece piece = takePiece(rest);
    text += piece.plain;
    if (piece.field.empty()) continue;
    const std::size_t place = fieldPlace(event, piece.field);
    text += filled(piece, place < fields.size() ? fields[place] : "");
  }
  return text;
}

std::string eventTextForm(const EventInfo& event) {
  std::string text;
  for (std::string_view rest = event.text; !rest.empty();) {
    const TextPiece piece = takePiece(rest);
    text += piece.plain;
    if (!piece.field.empty()) text += generalForm(piece);
  }
  return text;
}

}  // namespace Velmar::Host
