#pragma once

// The page of a report as one file that a browser shows.

#include <string>

namespace Velmar::Tool {

/// `html` with each "cid:ID" that names an image part of `mail` replaced by a data: URI with that image.
///
/// mail  a mail of this software's own making: MIME parts with base64 images; line ends CRLF or LF
/// References to other parts stay as they are. Linear time.
std::string inlineImages(const std::string& html, const std::string& mail);

}  // namespace Velmar::Tool
