#pragma once

// Whole files.

#include <filesystem>
#include <string>

namespace Velmar::Tool {

/// Both throw std::system_error naming the file.
std::string readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, const std::string& content);

}  // namespace Velmar::Tool
