#pragma once

// The way every directory of a mailbox is opened and read.

#include <dirent.h>

#include <cstddef>
#include <string>

#include "host/common/descriptor.h"
#include "platform/types.h"

namespace Velmar::Host {

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

/// Reads the entries of an open directory, from where it stands to its end. The C library's streams ask the system for
/// more than that, which counts where mailboxes are small and many. Large: for the stack.
class DirectoryReader {
 public:
  /// Both arguments outlive the object; `path` is for messages.
  DirectoryReader(const Descriptor& directory, const std::string& path) : directory_(directory), path_(path) {}

  /// The next entry, valid until the next call; null at the end. Throws Exception when the directory cannot be read on.
  const dirent64* next();

 private:
  bool fill();

  const Descriptor& directory_;
  const std::string& path_;
  std::size_t at_ = 0;
  std::size_t end_ = 0;
  alignas(dirent64) char entries_[std::size_t{32} << 10];
};

}  // namespace Velmar::Host
