#pragma once

// The tables that describe the example host.

#include <cstdint>
#include <string>
#include <vector>

namespace Velmar::Tool {

/// One line of a table.
struct TableRow {
  int line = 0;
  std::vector<std::string> fields;
};

/// The rows of a text: fields separated by tabs, lines that start with "#" and empty ones left out.
/// name  of the file, for messages. Throws std::invalid_argument ("NAME:LINE: ...") for a row without `columns` fields.
std::vector<TableRow> parseTable(const std::string& text, const std::string& name, std::size_t columns);

/// A held message of the example host.
struct DemoMessage {
  std::string mailbox;   ///< address
  std::int64_t age = 0;  ///< seconds before now
  std::string flags;     ///< Maildir flags, may be empty
  std::string folder;    ///< "new" or "cur"
  std::string file;      ///< name of the message's file among the demo's messages
};

/// The table of held messages. Throws std::invalid_argument naming the line and the value.
std::vector<DemoMessage> parseDemoIndex(const std::string& text, const std::string& name);

/// The name of a message's file in its Maildir. number: tells messages of one second apart.
std::string maildirName(const DemoMessage& message, std::int64_t now, std::size_t number);

/// The directory of a mailbox's quarantine below the root, without a slash at the start.
std::string quarantineDirectory(const std::string& address);

}  // namespace Velmar::Tool
