#pragma once

// Lists of names in a sentence or a cell of a table.

#include <string>
#include <vector>

namespace Velmar::Tool {

/// The names, separated by `separator`.
inline std::string joined(const std::vector<std::string>& names, const char* separator) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : separator) + name;
  return text;
}

}  // namespace Velmar::Tool
