// Reading one value of the configuration file: type, range, length, then the key's own rule. Every fault becomes one
// line that names file, line, key, value and reason.

#include "host/common/config_value.h"

#include <algorithm>
#include <sstream>

#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kMaxShown = 200;  // bytes of a value in a message

bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; }

// The start of the text that is shown; never half a character.
std::string_view shownStart(std::string_view text) {
  std::size_t end = std::min(text.size(), kMaxShown);
  while (end > 0 && end < text.size() && isContinuation(text[end])) --end;
  return text.substr(0, end);
}

std::string hexadecimal(unsigned char c) {
  constexpr char kDigits[] = "0123456789abcdef";
  return {'\\', 'x', kDigits[c >> 4], kDigits[c & 15]};
}

std::string shownNode(const toml::node& node) {
  if (const auto* text = node.as_string()) return '"' + onOneLine(text->get()) + '"';
  if (node.is_table()) return "(table)";
  if (node.is_array()) return "(list)";
  std::ostringstream out;
  node.visit([&out](const auto& value) {
    if constexpr (toml::is_value<decltype(value)>) out << value;
  });
  return out.str();
}

}  // namespace

std::string onOneLine(std::string_view text) {
  const std::string_view start = shownStart(text);
  std::string shown;
  for (std::size_t i = 0; i < start.size(); ++i) {
    const std::size_t control = controlLength(start, i);
    i += control > 1 ? control - 1 : 0;  // the last byte of the character says which one it is
    shown += control ? hexadecimal(static_cast<unsigned char>(start[i])) : std::string(1, start[i]);
  }
  return start.size() < text.size() ? shown + "..." : shown;
}

void refuseConfig(const std::string& file, std::size_t line, std::string_view key, std::string_view value,
                  std::string_view reason) {
  std::ostringstream out;
  out.imbue(std::locale::classic());
  out << file << ':' << std::max<std::size_t>(line, 1) << ": " << onOneLine(key) << ": " << value << ": "
      << onOneLine(reason);
  throw Exception("ConfigException", 4, "HostConfig", __LINE__, out.str());
}

ConfigValue::ConfigValue(const std::string& file, std::string key, const toml::node& node)
    : file_(&file), key_(std::move(key)), node_(&node) {}

void ConfigValue::refuse(std::string_view reason) const {
  refuseConfig(*file_, line(), key_, shownNode(*node_), reason);
}

std::size_t ConfigValue::line() const { return node_->source().begin.line; }

const toml::table& ConfigValue::table() const {
  if (const toml::table* table = node_->as_table()) return *table;
  refuse("must be a table");
}

const toml::array& ConfigValue::list(std::string_view reason) const {
  if (const toml::array* array = node_->as_array()) return *array;
  refuse(reason);
}

bool ConfigValue::boolean() const {
  if (const auto* value = node_->as_boolean()) return value->get();
  refuse("must be true or false");
}

std::int64_t ConfigValue::integer(std::int64_t least, std::int64_t most) const {
  const auto* value = node_->as_integer();
  if (!value) refuse("must be a whole number");
  if (value->get() < least || value->get() > most)
    refuse("must be from " + std::to_string(least) + " to " + std::to_string(most));
  return value->get();
}

std::string ConfigValue::text(std::size_t most, TextCheck check, Empty empty) const {
  const auto* value = node_->as_string();
  if (!value) refuse("must be a text in quotes");
  const std::string& text = value->get();
  if (text.empty() && empty == Empty::kAllowed) return text;
  if (text.empty()) refuse("must not be empty");
  if (text.size() > most)
    refuse("has " + std::to_string(text.size()) + " bytes, at most " + std::to_string(most) + " fit");
  if (const std::string fault = controlFault(text); !fault.empty()) refuse(fault);
  if (const std::string fault = check ? check(text) : ""; !fault.empty()) refuse(fault);
  return text;
}

}  // namespace Velmar::Host
