#pragma once

// Header values for the wire: encoded words (RFC 2047), display names (RFC 5322), folded lines.

#include <string>
#include <string_view>

#include "platform/types.h"

namespace Velmar::Host {

/// One line of UTF-8 as the value of an unstructured field (Subject). ASCII text stays as it is, unless it could be
/// taken for encoded words or cannot be folded; other text becomes encoded words of at most 64 characters.
std::string encodeUnstructured(std::string_view text);

/// One line of UTF-8 as a phrase (RFC 5322 section 3.2.5): atoms, a quoted string or encoded words.
std::string encodePhrase(std::string_view text);

/// "address", or "phrase <address>" when there is a display name. An international domain stands in its ASCII form,
/// all else of the address as it is given.
std::string encodeMailbox(std::string_view displayName, const EmailAddress& address);

/// "NAME: VALUE" with CR LF at its end, folded at blanks to lines of 76 characters where there are blanks.
/// Throws Exception naming the field when a line would exceed 998 bytes.
std::string foldedField(const std::string& name, std::string_view value);

}  // namespace Velmar::Host
