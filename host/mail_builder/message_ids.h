#pragma once

// Names that nobody else has.

#include <cstddef>
#include <string>

namespace Velmar::Host {

/// Lower-case hexadecimal digits of `bytes` random bytes from the system. Throws Exception when it has none.
std::string randomToken(std::size_t bytes);

/// The ASCII form of an international domain name (RFC 5891); "" when it has none.
std::string asciiDomain(const std::string& domain);

/// The right side of a message identifier: `domain`, in ASCII form where it is an international name, or
/// "localhost.invalid" where it is no dot-atom (RFC 5322 section 3.2.3): an identifier needs a right side that is
/// legal, not one that exists, and a report must not fail for it.
std::string messageIdDomain(const std::string& domain);

}  // namespace Velmar::Host
