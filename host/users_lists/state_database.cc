// What the errors of all state stores have in common: one line, the store's name, no secrets.

#include "host/users_lists/state_database.h"

namespace Velmar::Host {
namespace {

// A database server explains itself in several lines.
std::string inOneLine(const std::string& text) {
  std::string line;
  for (const char c : text) {
    const bool blank = c == ' ' || c == '\n' || c == '\t' || c == '\r';
    if (!blank) {
      line += c;
    } else if (!line.empty() && line.back() != ' ') {
      line += ' ';
    }
  }
  if (line.ends_with(' ')) line.pop_back();
  return line;
}

}  // namespace

Exception StateDatabase::error(int line, const std::string& reason) const {
  return Exception("StateException", 4, "StateStore", line,
                   "state store " + name_ + ": " + inOneLine(withoutSecrets(reason)));
}

}  // namespace Velmar::Host
