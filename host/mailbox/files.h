#pragma once

// Owning types for descriptors and directory streams, and the way every directory of a mailbox is opened.

#include <dirent.h>

#include <memory>
#include <string>
#include <utility>

#include "host/common/descriptor.h"
#include "platform/types.h"

namespace Velmar::Host {

struct CloseDirectory {
  void operator()(DIR* stream) const noexcept { ::closedir(stream); }
};
/// Owns one directory stream; empty = none.
using DirectoryStream = std::unique_ptr<DIR, CloseDirectory>;

/// The exception "WHAT PATH: the system's text for `error`".
Exception systemError(int line, const std::string& what, const std::string& path, int error);

/// Opens a directory; the last component of `path` and those before it may be symbolic links.
/// flags  further flags of open(2), e.g. O_PATH
/// Returns an empty descriptor when there is surely no such directory. Throws Exception when it could not look.
Descriptor openDirectory(const std::string& path, int flags);

/// Opens the directory `name` inside `parent` and refuses a symbolic link in its place: mail of one user must never be
/// reached through the directory of another.
///
/// path   of the directory, for messages
/// flags  further flags of open(2), e.g. O_PATH
/// Returns an empty descriptor when there is surely no such directory. Throws Exception for a symbolic link and when
/// it could not look.
Descriptor openSubdirectory(const Descriptor& parent, const char* name, const std::string& path, int flags);

/// A stream over an open directory. Throws Exception.
DirectoryStream readingStream(Descriptor directory, const std::string& path);

/// The next entry; null at the end. Throws Exception, naming `path`, when the directory cannot be read on.
const dirent* nextEntry(DIR* stream, const std::string& path);

}  // namespace Velmar::Host
