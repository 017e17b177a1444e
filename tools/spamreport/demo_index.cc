// Reads the tables of the example host. Each line is checked, because its fields become paths.

#include "tools/spamreport/demo_index.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace Velmar::Tool {
namespace {

constexpr std::size_t kMostDigits = 10;

[[noreturn]] void refuse(const std::string& name, int line, const std::string& reason) {
  throw std::invalid_argument(name + ":" + std::to_string(line) + ": " + reason);
}

std::vector<std::string> splitAtTabs(std::string_view line) {
  std::vector<std::string> fields;
  while (true) {
    const std::size_t tab = line.find('\t');
    fields.emplace_back(line.substr(0, tab));
    if (tab == std::string_view::npos) return fields;
    line.remove_prefix(tab + 1);
  }
}

bool isComponent(const std::string& text) {
  return !text.empty() && text != "." && text != ".." && text.find('/') == std::string::npos &&
         text.find('\0') == std::string::npos;
}

bool isMailbox(const std::string& address) {
  const std::size_t at = address.rfind('@');
  return at != std::string::npos && at > 0 && isComponent(address.substr(0, at)) && isComponent(address.substr(at + 1));
}

bool isAge(const std::string& text) {
  const auto digit = [](char c) { return c >= '0' && c <= '9'; };
  return !text.empty() && text.size() <= kMostDigits && std::all_of(text.begin(), text.end(), digit);
}

/// Maildir wants its flags in ASCII order, each once.
bool areFlags(const std::string& text) {
  const auto letter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
  return std::all_of(text.begin(), text.end(), letter) &&
         std::adjacent_find(text.begin(), text.end(), std::greater_equal<>()) == text.end();
}

DemoMessage messageOf(const TableRow& row, const std::string& name) {
  const auto& fields = row.fields;
  if (!isMailbox(fields[0])) refuse(name, row.line, "mailbox \"" + fields[0] + "\" is no address");
  if (!isAge(fields[1])) refuse(name, row.line, "age \"" + fields[1] + "\" is no number of seconds");
  const std::string flags = fields[2] == "-" ? "" : fields[2];
  if (!areFlags(flags)) refuse(name, row.line, "flags \"" + fields[2] + "\" are not letters in ASCII order");
  if (fields[3] != "new" && fields[3] != "cur") refuse(name, row.line, "\"" + fields[3] + "\" is neither new nor cur");
  if (fields[3] == "new" && !flags.empty()) refuse(name, row.line, "a message in new has no flags");
  if (!isComponent(fields[4])) refuse(name, row.line, "message \"" + fields[4] + "\" is no file name");
  return {fields[0], std::stoll(fields[1]), flags, fields[3], fields[4]};
}

}  // namespace

std::vector<TableRow> parseTable(const std::string& text, const std::string& name, std::size_t columns) {
  std::vector<TableRow> rows;
  int number = 0;
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    ++number;
    if (line.empty() || line.front() == '#') continue;
    rows.push_back({number, splitAtTabs(line)});
    const std::size_t found = rows.back().fields.size();
    if (found != columns) {
      refuse(name, number, std::to_string(found) + " fields instead of " + std::to_string(columns));
    }
  }
  return rows;
}

std::vector<DemoMessage> parseDemoIndex(const std::string& text, const std::string& name) {
  std::vector<DemoMessage> messages;
  for (const TableRow& row : parseTable(text, name, 5)) messages.push_back(messageOf(row, name));
  return messages;
}

std::string maildirName(const DemoMessage& message, std::int64_t now, std::size_t number) {
  const std::string base = std::to_string(now - message.age) + ".M" + std::to_string(number) + "P1.demo";
  return message.folder == "cur" ? base + ":2," + message.flags : base;
}

std::string quarantineDirectory(const std::string& address) {
  const std::size_t at = address.rfind('@');
  const std::string domain = address.substr(at + 1);
  return "home/" + domain + "/" + address.substr(0, at) + "~" + domain + "/quarantine";
}

}  // namespace Velmar::Tool
