#pragma once

// Showing a page to whoever sits at this host.

#include <filesystem>

namespace Velmar::Tool {

/// Opens a file with xdg-open, found on PATH, and waits until that ends. Throws std::runtime_error with the reason.
void openPage(const std::filesystem::path& file);

}  // namespace Velmar::Tool
