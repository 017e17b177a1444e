#pragma once

// The links, addresses and subjects by which a reader acts on held messages. docs/actions.md describes the forms.
//
// The web service and the mail-action handler parse them, so every character counts, asymmetries included.
// Pure functions; inputs are taken as they stand, nothing is validated.

#include <cstdint>
#include <sstream>
#include <string>

namespace Velmar {

/// The link key: folded into the access hash, the delete-all token and the login link.
inline constexpr std::uint32_t kLinkKey = 0x5d2a7c31;

/// Lower-case hexadecimal digits of a signed 64-bit value, two's complement, without prefix and padding.
std::string hexOf(std::int64_t value);

/// OWNER ":" hex(end xor key) ":" hex(length xor key) ":" HASH. Only the low 32 bits change by the key.
std::string deleteAllToken(const std::string& owner, std::int64_t periodEnd, std::int64_t periodSeconds,
                           const std::string& accessHash);

/// ":" OWNER ":" ID ":" HASH. It begins with a colon and the id is not escaped.
std::string webToken(const std::string& owner, const std::string& messageId, const std::string& accessHash);

/// Escapes texts for a URL, whatever the process's locale. It is dearer to make than to use. Used by one thread.
class UrlEscaper {
 public:
  UrlEscaper();
  std::string operator()(const std::string& text);

 private:
  std::ostringstream out_;
};

/// OWNER ":" escaped(ID). No hash.
std::string mailToken(const std::string& owner, const std::string& messageId, UrlEscaper& escaped);

std::string releaseUrl(const std::string& baseUrl, const std::string& webToken);
std::string deleteUrl(const std::string& baseUrl, const std::string& webToken);
std::string deleteAllUrl(const std::string& baseUrl, const std::string& deleteAllToken);

/// "mailto:" ADDRESS "?subject=" SUBJECT; neither is escaped.
std::string mailAction(const std::string& address, const std::string& subject);

/// Subject of the HTML part's delete-all action: a blank follows the colon.
std::string deleteAllMailSubject(const std::string& deleteAllToken);
/// Subject of the plain text's delete-all action: no blank follows the colon. The difference is kept.
std::string deleteAllTextSubject(const std::string& deleteAllToken);

/// When a login link made at `now` expires. The product hours * 3600 is formed in 32 bits and wraps there; kept so.
std::int64_t accessLinkExpiry(std::int64_t now, std::int32_t hours);

/// The link to the reader's preferences: with a login that is valid for `accessLinkHours`, or the plain "/mail" page
/// when the hours are 0 or negative or no access value can be made.
std::string preferenceUrl(const std::string& baseUrl, const std::string& owner, std::int32_t accessLinkHours,
                          std::int64_t now);

}  // namespace Velmar
