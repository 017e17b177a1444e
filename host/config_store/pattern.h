#pragma once

#include <string_view>

namespace Velmar::Host {

/// Whether a pattern stands for the whole text, byte for byte.
///
/// pattern  "*" stands for any run of bytes, also none; "?" for one character (of UTF-8); all else for itself
/// Fold case on both sides first where it does not count. At most length of pattern times length of text steps, no
/// recursion, no memory.
bool patternMatches(std::string_view pattern, std::string_view text) noexcept;

}  // namespace Velmar::Host
