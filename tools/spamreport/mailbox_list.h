#pragma once

// The mailboxes of a whole domain.

#include <optional>
#include <string>
#include <vector>

namespace Velmar::Tool {

/// The addresses of a domain's mailboxes, sorted; nothing when it should have a directory for them and has none.
/// Throws Exception when it could not look.
std::optional<std::vector<std::string>> listMailboxes(const std::string& domain);

}  // namespace Velmar::Tool
