#pragma once

// The images of a report.

#include <string>

namespace Velmar::Host {

/// The bytes of the image at a path of the system; of the shipped one of the same name where there is none. Kept for
/// the process and read again when the file has changed.
///
/// path  below the root, such as "/migadmin/www/admin/images/icon_release.png"
/// Throws Exception naming the path when neither can be read, is no regular file, or is larger than 1 MiB. Any thread.
std::string reportImage(const std::string& path);

}  // namespace Velmar::Host
