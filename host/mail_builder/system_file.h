#pragma once

// Small files of the system, read whole and recognised again.

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/common/descriptor.h"

namespace Velmar::Host {

/// What tells one state of a file from another without reading it.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  std::int64_t modified = 0;  ///< nanoseconds since the epoch
  std::int64_t changed = 0;   ///< of the inode, nanoseconds since the epoch

  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

FileIdentity identityOf(const struct stat& status) noexcept;

/// Of the file that `path` leads to; FileIdentity{} when there is none, or it cannot be looked at.
FileIdentity identityAt(const std::string& path) noexcept;

/// Whether a change of the file after now would show in its identity: time stamps are coarse.
bool isSettled(const FileIdentity& identity) noexcept;

/// The rest of an open file. Throws Exception naming `path` when it cannot be read or holds more than `limit` bytes.
std::string readUpTo(int fd, std::size_t limit, const std::string& path);

/// The names in a directory, in no order, without those that start with a dot; a missing directory has none.
/// Throws Exception naming `path` when it cannot be listed.
std::vector<std::string> namesIn(const std::string& path);

/// The text of an error number ("Permission denied"). Any thread.
std::string errorText(int error);

}  // namespace Velmar::Host
