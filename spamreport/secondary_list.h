#pragma once

// The addresses that are linked to a mailbox's address in the mail lists.

#include <string>

namespace Velmar {

/// The confirmed links of `address`, comma-separated without blanks, in the order of its list.
///
/// A link goes both ways: the address lists a name in its "primaryaddr" list, and the name lists the address in its
/// "secondaryaddr" list. A one-sided link is deleted from "primaryaddr", and one log event names all deleted ones.
/// "" for a text without "@". Passes on what the list operations throw; links deleted before stay deleted.
/// The lists are not locked between reading and deleting.
std::string get_secondary_list(const std::string& address);

}  // namespace Velmar
