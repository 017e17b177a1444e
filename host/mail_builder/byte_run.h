#pragma once

// Where a run of like bytes ends: the question that the texts of a report are asked most often.

#include <cstddef>
#include <string_view>

namespace Velmar::Host {

/// The number of bytes at the beginning of the text that are wanted. `isWanted` looks at one byte and has no branches,
/// so that compilers ask it of a block of bytes at once.
template <class IsWanted>
std::size_t runOf(std::string_view text, IsWanted isWanted) {
  constexpr std::size_t kBlock = 16;
  std::size_t length = 0;
  for (; length + kBlock <= text.size(); length += kBlock) {
    unsigned char wanted = 0;
    for (std::size_t i = 0; i < kBlock; ++i) wanted = static_cast<unsigned char>(wanted + isWanted(text[length + i]));
    if (wanted != kBlock) break;
  }
  while (length < text.size() && isWanted(text[length])) ++length;
  return length;
}

}  // namespace Velmar::Host
