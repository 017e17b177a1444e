// The log's file. It looks before each line whether its name still leads to the open file: one stat(2), which costs
// less than the write, makes rotation safe without a signal.

#include "host/logging/file_sink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "host/common/directories.h"
#include "host/logging/write_fully.h"

namespace Velmar::Host {

FileSink::FileSink(std::string path) : path_(std::move(path)) {}

FileSink::~FileSink() { close(); }

int FileSink::write(std::string_view line) {
  const std::lock_guard lock(mutex_);
  if (!isCurrent()) {
    if (const int error = open()) return error;
  }
  // A cut line is ended first, so that it costs only itself.
  const std::string bytes = (unfinished_ ? "\n" : "") + std::string(line);
  std::size_t written = 0;
  const int error = writeFully(fd_, bytes, written);
  if (written > 0) unfinished_ = bytes[written - 1] != '\n';
  return error;
}

bool FileSink::isCurrent() const noexcept {
  struct stat status {};
  return fd_ >= 0 && ::stat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
}

int FileSink::open() {
  close();
  std::error_code ignored;  // the open below says what is wrong
  std::filesystem::create_directories(std::filesystem::path(path_).parent_path(), ignored);
  prepareFile(path_);
  // Without O_NONBLOCK a FIFO of this name would hold up every report.
  const int fd = ::open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, 0640);
  if (fd < 0) return errno;
  struct stat status {};
  const int error = ::fstat(fd, &status) != 0 ? errno : S_ISREG(status.st_mode) ? 0 : EINVAL;
  if (error) {
    ::close(fd);
    return error;
  }
  fd_ = fd;
  device_ = status.st_dev;
  inode_ = status.st_ino;
  return 0;
}

void FileSink::close() noexcept {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  unfinished_ = false;
}

}  // namespace Velmar::Host
