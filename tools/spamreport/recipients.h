#pragma once

// The mailboxes that a run is asked for.

#include <string>
#include <vector>

namespace Velmar::Tool {

struct Mailbox {
  std::string domain;
  std::string address;
  bool operator==(const Mailbox&) const = default;
};

/// `domain` as the configuration spells it. configured: the names of its domains.
/// Throws WrongUse naming the configured ones when it is none of them.
std::string chooseDomain(const std::string& domain, const std::vector<std::string>& configured);

/// The bare address of a mailbox that can exist on this host: one address with one "@", no "/" or ",", no control
/// characters, at most 127 bytes. Throws WrongUse naming the text and the reason.
std::string mailboxAddress(const std::string& text);

/// The same as a question.
bool isMailboxAddress(const std::string& text);

/// The members of a list that is separated by commas, in its order, each once, with the domain as in `domains`. Blanks
/// around an address and empty places are skipped.
/// Throws WrongUse for the first one that is no address of a mailbox of these domains, and for a list without any.
std::vector<Mailbox> parseRecipients(const std::vector<std::string>& domains, const std::string& list);

}  // namespace Velmar::Tool
