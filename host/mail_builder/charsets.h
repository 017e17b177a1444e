#pragma once

// Charsets of mail, converted to UTF-8 by ICU.

#include <string>
#include <string_view>

#include "host/mail_builder/utf8.h"

namespace Velmar::Host {

/// A charset by the name under which its converter is kept.
struct Charset {
  std::string name;       ///< "" = a charset that nobody knows
  bool stateful = false;  ///< bytes mean something only from the start of their own encoded word

  bool known() const noexcept { return !name.empty(); }
};

/// Looks up a name as mail writes it, without regard to case and punctuation. Charsets that senders habitually
/// mistake for a larger one (GB 2312, ISO 8859-1 and the like) give that larger one.
///
/// Names longer than 64 bytes or with other bytes than letters, digits and "._:+()-" are unknown, and only names
/// in ICU's own table of aliases are known, as far as ICU has their data. Any thread.
Charset findCharset(std::string_view name);

/// Appends the text that `bytes` mean in a known charset to `utf8`, U+FFFD for each sequence without meaning, and
/// says how well it went. Each call starts in the charset's initial state. Malformed UTF-8 is appended as it is.
/// Throws Exception when ICU fails. Any thread; linear time.
TextQuality appendAsUtf8(const Charset& charset, std::string_view bytes, std::string& utf8);

}  // namespace Velmar::Host
