#pragma once

// The log file.

#include <sys/types.h>

#include <mutex>
#include <string>
#include <string_view>

namespace Velmar::Host {

/// Appends lines to one file, each with one write(2), so that several processes may share it. The file may be renamed,
/// deleted or truncated at any time: the next line goes to a file of the configured name. Any thread.
class FileSink {
 public:
  /// path  of the file; its directory is made when it is missing, the file with mode 0640
  explicit FileSink(std::string path);
  FileSink(const FileSink&) = delete;
  FileSink& operator=(const FileSink&) = delete;
  ~FileSink();

  const std::string& path() const noexcept { return path_; }

  /// Appends one line, which ends with a line feed. Returns 0, or the errno of what failed; the line is lost then.
  int write(std::string_view line);

 private:
  bool isCurrent() const noexcept;
  int open();
  void close() noexcept;

  const std::string path_;
  std::mutex mutex_;
  int fd_ = -1;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  bool unfinished_ = false;  ///< the file's last line was cut short, by a full disk for instance
};

}  // namespace Velmar::Host
