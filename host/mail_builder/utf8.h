#pragma once

// UTF-8 as the mail builder emits it: well formed, and one line.

#include <cstddef>
#include <string>
#include <string_view>

namespace Velmar::Host {

/// What a reading of bytes in some charset found.
struct TextQuality {
  std::size_t malformed = 0;  ///< sequences that mean nothing in the charset
  std::size_t foreign = 0;    ///< characters above U+007F that were understood
};

/// Counts over bytes read as UTF-8.
TextQuality utf8Quality(std::string_view bytes);

/// The bytes as one line of valid UTF-8: control characters (C0, DEL, C1, U+2028, U+2029) become blanks, malformed
/// sequences U+FFFD. Never shorter in characters than the input; linear time.
std::string oneLine(std::string_view bytes);

/// The bytes as lines of valid UTF-8: CR LF and lone CR become LF; control characters other than LF and tab become
/// blanks, malformed sequences U+FFFD.
std::string cleanLines(std::string_view bytes);

/// The first `characters` characters of valid UTF-8; what is cut off leaves an ellipsis.
std::string shortened(std::string_view text, std::size_t characters);

/// The part between leading and trailing blanks, tabs and line ends.
std::string_view trimmed(std::string_view text);

}  // namespace Velmar::Host
