#pragma once

// Template modifiers that turn values into words.
//
//   {{RELEASE_EMAIL_ADDR:x-mailto-to}}       the address of a mailto: link, for a plain-text body
//   {{RELEASE_EMAIL_ADDR:x-mailto-subject}}  its subject, percent-decoded, one line
//   {{ORIG_SUBJECT:x-inert=160}}             a held text for the page, see inertText(): 160 characters, 320 bytes
//   {{ORIG_SUBJECT:x-inert-text=160}}        the same for plain text
//   {{TITLE_LOGO:x-alt=WORDS:...}}           WORDS in place of the value, before an image modifier

#include <string>
#include <string_view>

namespace Velmar::Host {

/// Makes the modifiers known to ctemplate, once a process. Must come before a template that uses them is parsed.
/// Any thread.
void registerTextModifiers();

/// The address in "mailto:ADDRESS?subject=SUBJECT", as written; a text without "mailto:" is taken for the address.
std::string_view mailtoAddress(std::string_view link);

/// The subject behind the first "?subject=", percent-decoded, as one line; "" when there is none. It runs to the end
/// of the link: an "&" belongs to it, because addresses and subjects stand in these links unescaped.
std::string mailtoSubject(std::string_view link);

}  // namespace Velmar::Host
