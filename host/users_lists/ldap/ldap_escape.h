#pragma once

// Filters of the directory's searches.

#include <span>
#include <string>
#include <string_view>

namespace Velmar::Host {

/// Any bytes as an assertion value of a filter (RFC 4515, section 3): whatever could mean something there, and what is
/// not printable ASCII, becomes \HH.
std::string escapedFilterValue(std::string_view bytes);

/// `pattern` with each "{address}" in it replaced by the escaped address, which is not looked through again.
std::string userFilter(std::string_view pattern, std::string_view address);

/// What finds the groups that fit `groupFilter` and have one of `members`: names as the directory gave them, at least
/// one.
std::string memberFilter(std::string_view groupFilter, std::string_view memberAttribute,
                         std::span<const std::string> members);

}  // namespace Velmar::Host
