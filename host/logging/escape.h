#pragma once

// Values of log lines.

#include <string>
#include <string_view>

namespace Velmar::Host {

/// Any bytes between quotes: as printable() writes them, and quotes and backslashes as \" and \\, so that each value
/// can be read back and none can end its quotes.
std::string quotedField(std::string_view bytes);

}  // namespace Velmar::Host
