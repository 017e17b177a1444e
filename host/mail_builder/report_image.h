#pragma once

// The images of a report.

#include <string>

namespace Velmar::Host {

/// The image at a path of the system, in base64 as a mail carries it (RFC 2045 section 6.8); the shipped one of the
/// same name where there is none. Kept for the process and read again when the file has changed.
///
/// path  below the root, such as "/migadmin/www/admin/images/icon_release.png"
/// Throws Exception naming the path when neither can be read, is no regular file, or is larger than 1 MiB. Any thread.
std::string reportImage(const std::string& path);

}  // namespace Velmar::Host
