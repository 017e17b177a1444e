#pragma once

// Small files of the system, read whole and recognised again.

#include <sys/stat.h>

#include <cstddef>
#include <string>

namespace Velmar::Host {

/// An open file descriptor; closed with its owner.
class Descriptor {
 public:
  explicit Descriptor(int fd) noexcept : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept;
  Descriptor& operator=(Descriptor&& other) noexcept;
  ~Descriptor();

  bool isOpen() const noexcept { return fd_ >= 0; }
  int get() const noexcept { return fd_; }

 private:
  int fd_;
};

/// What tells one state of a file from another without reading it.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  long long modified = 0;  ///< nanoseconds since the epoch
  long long changed = 0;   ///< of the inode, nanoseconds since the epoch

  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

FileIdentity identityOf(const struct stat& status) noexcept;

/// The rest of an open file. Throws Exception naming `path` when it cannot be read or holds more than `limit` bytes.
std::string readUpTo(int fd, std::size_t limit, const std::string& path);

/// The text of an error number ("Permission denied"). Any thread.
std::string errorText(int error);

}  // namespace Velmar::Host
