#pragma once

// Which images reports can show.

#include <string_view>

namespace Velmar::Tool {

/// "PNG", "JPEG" or "GIF" by the first bytes of a file (at least 8 of them), "" for anything else.
std::string_view imageKind(std::string_view bytes);

}  // namespace Velmar::Tool
