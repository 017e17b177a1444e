#pragma once

// Directories that the host platform makes for itself.

#include <string>
#include <string_view>

#include "host/common/descriptor.h"

namespace Velmar::Host {

/// Makes what is missing of a directory of the system below the root, each new name on disk before it returns. From the
/// component "velmar" on directories are closed to others (0750): they hold addresses and mail. The root is never made.
/// systemPath  starts with "/", e.g. "/var/lib/velmar"
/// Throws Exception with the path and the system's error.
void makeDirectories(std::string_view systemPath);

/// Gives a file that root has just made in a directory to the owner and group of that directory: the user to whom it
/// belongs could not use the file else. Does nothing for other users; where not even root may give files away, the file
/// stays root's, which is no reason to lose it. Throws as above.
void giveToOwnerOf(const std::string& directory, const Descriptor& file, const std::string& path);

/// Makes an empty file (0640) for the owner of its directory, when root is about to make one of this name. What goes
/// wrong is told by whoever opens it. Throws nothing.
void prepareFile(const std::string& path);

/// Brings the names in a directory to disk. Throws as above.
void syncDirectory(const std::string& path);

}  // namespace Velmar::Host
