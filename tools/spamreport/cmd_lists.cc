// spamreport lists: shows and changes the address lists of users.

#include <algorithm>
#include <iostream>

#include "host/host.h"
#include "platform/types.h"
#include "platform/users_lists.h"
#include "tools/spamreport/commands.h"
#include "tools/spamreport/recipients.h"
#include "tools/spamreport/table.h"

namespace Velmar::Tool {
namespace {

constexpr std::size_t kLongestEntry = 1000;

bool isControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7f;
}

/// Reports join the entries of a list by commas, so an entry with one would come back as two.
void checkPart(const char* what, const std::string& text) {
  const bool odd = std::any_of(text.begin(), text.end(), isControl) || text.find(',') != std::string::npos;
  if (text.empty() || odd || text.size() > kLongestEntry) {
    throw WrongUse(std::string(what) + " \"" + text + "\": must be 1 to " + std::to_string(kLongestEntry) +
                   " bytes without commas and control characters");
  }
}

void checkOptions(const ListEntryOptions& options) {
  mailboxAddress(options.owner);
  checkPart("list", options.list);
  checkPart("entry", options.entry);
}

/// The lists that reports read hold addresses: anything else would be dropped as a one-sided link.
void checkEntry(const ListEntryOptions& options) {
  if (options.list != "primaryaddr" && options.list != "secondaryaddr") return;
  if (EmailAddress::rfc5322Parse(options.entry, true).address() != options.entry) {
    throw WrongUse("entry \"" + options.entry + "\": the list " + options.list + " holds mail addresses");
  }
}

}  // namespace

int showLists(const std::string& owner) {
  mailboxAddress(owner);
  std::vector<std::vector<std::string>> rows;
  for (const auto& [list, entry] : Host::listEntries(owner)) rows.push_back({list, entry});
  if (rows.empty()) {
    std::cout << "No lists of " << Host::printable(owner) << ".\n";
  } else {
    std::cout << alignedTable(rows);
  }
  return kGood;
}

int addToList(const ListEntryOptions& options) {
  checkOptions(options);
  checkEntry(options);
  Host::addListEntry(options.owner, options.list, options.entry);
  return kGood;
}

int removeFromList(const ListEntryOptions& options) {
  checkOptions(options);
  if (!mail_list_find(options.owner.c_str(), options.list.c_str(), options.entry.c_str(), 0)) {
    std::cerr << "spamreport: "
              << Host::printable("list " + options.list + " of " + options.owner + " has no entry " + options.entry)
              << "\n";
    return kFailed;
  }
  mail_list_delete_from(options.owner.c_str(), options.list.c_str(), options.entry.c_str(), 0);
  return kGood;
}

}  // namespace Velmar::Tool
