#pragma once

// Texts in JSON (RFC 8259).

#include <string>
#include <string_view>

namespace Velmar::Tool {

/// Any bytes as a JSON string with its quotes, in valid UTF-8: each byte that belongs to no character becomes U+FFFD.
/// Control characters, also DEL and the C1 ones, and the line separators U+2028 and U+2029 are escaped.
std::string jsonText(std::string_view bytes);

}  // namespace Velmar::Tool
