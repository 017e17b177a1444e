// Checks recipients before the library is called, which takes them as they come: it cuts long ones, and turns what is
// no address into a directory that does not exist.

#include "tools/spamreport/recipients.h"

#include <algorithm>
#include <string_view>

#include "platform/types.h"
#include "tools/spamreport/commands.h"
#include "tools/spamreport/names.h"

namespace Velmar::Tool {
namespace {

constexpr std::size_t kLongestRecipient = 127;  // the library cuts longer ones
constexpr std::size_t kLongestPath = 254;       // of the mailbox directory; the library finds no address in longer ones

[[noreturn]] void refuse(const std::string& text, const std::string& reason) {
  throw WrongUse("\"" + text + "\": " + reason);
}

std::string lowerCase(std::string text) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  std::transform(text.begin(), text.end(), text.begin(), lower);
  return text;
}

std::string trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\n\v\f\r";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return "";
  return std::string(text.substr(first, text.find_last_not_of(kBlanks) - first + 1));
}

using Names = std::vector<std::string>;

/// The name among `names` that is the same as `name` without regard to case; its end when there is none.
Names::const_iterator findName(const Names& names, const std::string& name) {
  const auto same = [wanted = lowerCase(name)](const std::string& other) { return lowerCase(other) == wanted; };
  return std::find_if(names.begin(), names.end(), same);
}

Mailbox recipientOf(const Names& domains, const std::string& text) {
  const std::string address = mailboxAddress(text);
  const std::size_t at = address.find('@');
  const auto domain = findName(domains, address.substr(at + 1));
  if (domain == domains.end()) refuse(text, "not of the domain " + joined(domains, " or "));
  const std::string local = address.substr(0, at);
  if (("/home/" + *domain + "/" + local + "~" + *domain).size() > kLongestPath) {
    refuse(text, "its mailbox directory has a path of more than " + std::to_string(kLongestPath) + " bytes");
  }
  return {*domain, local + "@" + *domain};
}

}  // namespace

std::string chooseDomain(const std::string& domain, const std::vector<std::string>& configured) {
  const auto found = findName(configured, domain);
  if (found != configured.end()) return *found;
  refuse(domain,
         configured.empty() ? "no domain is configured" : "not a configured domain (" + joined(configured, ", ") + ")");
}

std::string mailboxAddress(const std::string& text) {
  const EmailAddress parsed = EmailAddress::rfc5322Parse(text, true);
  if (parsed.isEmptyAddress()) refuse(text, "not a mail address");
  if (parsed.address() != text) refuse(text, "not a bare address: write " + parsed.address());
  for (const char c : {'/', ','}) {
    if (text.find(c) != std::string::npos)
      refuse(text, std::string("a mailbox cannot have \"") + c + "\" in its address");
  }
  if (text.find('@') != text.rfind('@')) refuse(text, "a mailbox cannot have two \"@\" in its address");
  if (text.size() > kLongestRecipient) {
    refuse(text, "longer than " + std::to_string(kLongestRecipient) + " bytes");
  }
  return text;
}

bool isMailboxAddress(const std::string& text) try {
  mailboxAddress(text);
  return true;
} catch (const WrongUse&) {
  return false;
}

std::vector<Mailbox> parseRecipients(const std::vector<std::string>& domains, const std::string& list) {
  std::vector<Mailbox> recipients;
  for (std::size_t start = 0; start <= list.size();) {
    const std::size_t comma = std::min(list.find(',', start), list.size());
    const std::string text = trimmed(std::string_view(list).substr(start, comma - start));
    start = comma + 1;
    if (text.empty()) continue;
    const Mailbox recipient = recipientOf(domains, text);
    const bool known = std::find(recipients.begin(), recipients.end(), recipient) != recipients.end();
    if (!known) recipients.push_back(recipient);
  }
  if (recipients.empty()) refuse(list, "names no recipient");
  return recipients;
}

}  // namespace Velmar::Tool
