#pragma once

// Tables for people.

#include <string>
#include <vector>

namespace Velmar::Tool {

/// Lines of aligned columns, two blanks apart, each ended by a line feed and without blanks at its end. Cells hold any
/// bytes and are made printable here. A column is as wide as its widest cell, counted in UTF-8 characters.
std::string alignedTable(const std::vector<std::vector<std::string>>& rows);

}  // namespace Velmar::Tool
