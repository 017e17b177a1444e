#pragma once

// The transfer encoding of the report's texts.

#include <string>
#include <string_view>

namespace Velmar::Host {

/// Appends `text`, any bytes with LF line ends, to `out` as quoted-printable (RFC 2045 section 6.7): CR LF at the end
/// of each line, no line longer than 76 characters. Never writes "=_", so a boundary that holds it stands out.
/// Any thread; linear time.
void appendQuotedPrintable(std::string_view text, std::string& out);

}  // namespace Velmar::Host
