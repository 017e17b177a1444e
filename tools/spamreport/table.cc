// Lays out tables. Everything that subcommands print in columns goes through here, and so through printable().

#include "tools/spamreport/table.h"

#include <algorithm>

#include "host/host.h"

namespace Velmar::Tool {
namespace {

std::size_t widthOf(const std::string& text) {
  const auto startsCharacter = [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; };
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), startsCharacter));
}

using Rows = std::vector<std::vector<std::string>>;

Rows printableRows(Rows rows) {
  for (auto& row : rows) {
    for (std::string& cell : row) cell = Host::printable(cell);
  }
  return rows;
}

std::vector<std::size_t> columnWidths(const Rows& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], widthOf(row[i]));
  }
  return widths;
}

}  // namespace

std::string alignedTable(const Rows& cells) {
  const Rows rows = printableRows(cells);
  const std::vector<std::size_t> widths = columnWidths(rows);
  std::string text;
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) line += row[i] + std::string(widths[i] - widthOf(row[i]) + 2, ' ');
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

}  // namespace Velmar::Tool
