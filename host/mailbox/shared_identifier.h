#pragma once

// Held messages that an action cannot tell apart.

#include <string>
#include <string_view>
#include <vector>

namespace Velmar::Host {

/// Logs one event with the first two of these file names, by order of their bytes, that have their identifying part in
/// common (see identifyingPart()); none when all differ.
/// mailbox  path of the quarantine
void tellSharedIdentifier(const std::string& mailbox, std::vector<std::string_view> names);

}  // namespace Velmar::Host
