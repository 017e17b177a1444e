#pragma once

// Directories that the host platform makes for itself.

#include <string>
#include <string_view>

namespace Velmar::Host {

/// Makes what is missing of a directory of the system below the root, each new name on disk before it returns. From the
/// component "velmar" on directories are closed to others (0750): they hold addresses and mail. The root is never made.
/// systemPath  starts with "/", e.g. "/var/lib/velmar"
/// Throws Exception with the path and the system's error.
void makeDirectories(std::string_view systemPath);

/// Brings the names in a directory to disk. Throws as above.
void syncDirectory(const std::string& path);

}  // namespace Velmar::Host
