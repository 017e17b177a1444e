// Counts the dots of keys before the configuration is parsed.
//
// A key nests one table per dot, toml++ bounds brackets but not dots, and it destroys nested tables recursively: one
// line "[a.a.a...]" of 120 kB overflows the stack. No key of the configuration has more than one dot.

#include "host/common/config_nesting.h"

#include <algorithm>

namespace Velmar::Host {
namespace {

// The place after a text that starts at `at`: basic or literal, on one line or on several.
std::size_t afterText(std::string_view toml, std::size_t at) {
  const char quote = toml[at];
  const char three[] = {quote, quote, quote};
  const std::string_view triple(three, 3);
  const bool several = toml.substr(at, 3) == triple;
  for (at += several ? 3 : 1; at < toml.size(); ++at) {
    if (toml[at] == '\\' && quote == '"') {
      ++at;
    } else if (several && toml.substr(at, 3) == triple) {
      // Up to two quotes before the closing three belong to the text.
      return std::min(toml.find_first_not_of(quote, at), toml.size());
    } else if (!several && (toml[at] == quote || toml[at] == '\n')) {
      return at + 1;
    }
  }
  return toml.size();
}

}  // namespace

std::size_t lineWithDeepKey(std::string_view toml, std::size_t most) {
  std::size_t dots = 0;
  for (std::size_t at = 0; at < toml.size();) {
    const char c = toml[at];
    if (c == '#') {
      at = std::min(toml.find('\n', at), toml.size());
    } else if (c == '"' || c == '\'') {
      at = afterText(toml, at);
    } else {
      ++at;
      dots += c == '.' ? 1 : 0;
      if (c == '\n') dots = 0;
    }
    if (dots > most)
      return 1 +
             static_cast<std::size_t>(std::count(toml.begin(), toml.begin() + static_cast<std::ptrdiff_t>(at), '\n'));
  }
  return 0;
}

}  // namespace Velmar::Host
