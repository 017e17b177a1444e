#pragma once

// What may stand in a text of the configuration file. Pure: nothing is looked up, nothing depends on the locale.

#include <cstddef>
#include <string>
#include <string_view>

namespace Velmar::Host {

/// Says what is wrong with a text (valid UTF-8, not empty), as in "KEY: VALUE: <this>"; "" when nothing is.
using TextCheck = std::string (*)(std::string_view text);

/// The bytes of the control character (U+0000 to U+001F, U+007F to U+009F) that starts at this place; 0 = none does.
std::size_t controlLength(std::string_view text, std::size_t at);

/// NUL and other control characters.
std::string controlFault(std::string_view text);

/// A mail domain: ASCII letters, digits, "-" and all above ASCII, in labels between dots.
std::string domainNameFault(std::string_view text);

/// Bytes of the longest host whose base URL, "https://HOST:65535", fits into the 255 bytes that a report has for it.
constexpr std::size_t kLongestHost = 241;

/// A host name or IPv4 address: ASCII letters, digits, "-" and "_" in labels between dots, at most kLongestHost bytes.
std::string hostNameFault(std::string_view text);

/// The host of a URL: a host name or an IPv6 address without brackets and zone.
std::string webHostFault(std::string_view text);

/// The local part of an account: an ASCII dot-atom (RFC 5322 section 3.2.3).
std::string accountNameFault(std::string_view text);

/// A single component of a path.
std::string pathComponentFault(std::string_view text);

/// An absolute path of a file, without "." and ".." components.
std::string filePathFault(std::string_view text);

/// An IPv4 address (dotted quad) or an IPv6 address without brackets and zone.
std::string ipAddressFault(std::string_view text);

/// "smtp://HOST[:PORT]": a host name, an IPv4 address or an IPv6 address in brackets.
std::string smtpUrlFault(std::string_view text);

/// "ldap://HOST[:PORT]", "ldaps://HOST[:PORT]" or "ldapi://PATH" with the path percent-encoded.
std::string ldapUrlFault(std::string_view text);

/// "sqlite:///PATH" or "postgresql://...".
std::string stateUrlFault(std::string_view text);

/// The name of an LDAP attribute (RFC 4512 section 1.4).
std::string ldapAttributeFault(std::string_view text);

/// An LDAP filter in parentheses (RFC 4515). Only its outer form is looked at.
std::string ldapFilterFault(std::string_view text);

/// The same with "{address}" in it.
std::string userFilterFault(std::string_view text);

/// An RFC 5322 address list with at least one address, each with its domain.
std::string addressListFault(std::string_view text);

}  // namespace Velmar::Host
