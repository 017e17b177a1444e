#pragma once

// What a run would find of one mailbox, found without changing anything.

#include <string>
#include <vector>

namespace Velmar::Tool {

/// The bare address of a mailbox with its domain as the configuration spells it.
/// Throws WrongUse for what is no address of a mailbox or of a domain that is not configured.
std::string configuredAddress(const std::string& text);

/// The directory of a mailbox, below the root: "/home/DOMAIN/USER~DOMAIN".
std::string directoryOf(const std::string& address);

/// Whether the mailbox belongs to a deleted user. Throws Exception when it could not look.
bool isDeletedUser(const std::string& address);

/// The addresses that a mailbox stands for.
struct Links {
  std::vector<std::string> confirmed;  ///< both sides name the other: reports go to these instead of the mailbox
  std::vector<std::string> oneSided;   ///< a run removes these
};

/// The links of a mailbox as a run would find them, without its repair. Throws Exception when it could not look.
Links linksOf(const std::string& address);

}  // namespace Velmar::Tool
