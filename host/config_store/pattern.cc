// Address patterns of the recipient policies.
//
// When something after a "*" does not fit, only the latest "*" has to take one character more: whatever an earlier
// one could gain, the latest can as well. So one place to return to is enough.

#include "host/config_store/pattern.h"

#include <cstddef>

namespace Velmar::Host {
namespace {

// The place after the character that starts at `at`. A stray byte counts as a character.
std::size_t afterCharacter(std::string_view text, std::size_t at) noexcept {
  ++at;
  while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xc0) == 0x80) ++at;
  return at;
}

}  // namespace

bool patternMatches(std::string_view pattern, std::string_view text) noexcept {
  constexpr std::size_t kNone = std::string_view::npos;
  std::size_t p = 0;
  std::size_t t = 0;
  std::size_t afterStar = kNone;  // where the pattern goes on after the latest "*"
  std::size_t starEnd = 0;        // where the text goes on after what that "*" has taken
  while (t < text.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      afterStar = ++p;
      starEnd = t;
    } else if (p < pattern.size() && pattern[p] == '?') {
      ++p;
      t = afterCharacter(text, t);
    } else if (p < pattern.size() && pattern[p] == text[t]) {
      ++p;
      ++t;
    } else if (afterStar != kNone) {
      p = afterStar;
      t = starEnd = afterCharacter(text, starEnd);
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', p) == kNone;
}

}  // namespace Velmar::Host
