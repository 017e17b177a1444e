// Paths as text, and opening the system's own files.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/common/root.h"
#include "platform/types.h"

namespace Velmar::File {

Path::Path(std::string text) : text_(std::move(text)) {}
Path::Path(const Path&) = default;
Path::Path(Path&&) noexcept = default;
Path& Path::operator=(const Path&) = default;
Path& Path::operator=(Path&&) noexcept = default;
Path::~Path() = default;

std::string Path::asString() const { return text_; }

Processor::Processor() = default;
Processor::~Processor() = default;

int openReadOnly(const char* path) noexcept try {
  if (!path) return -1;
  const int fd = ::open(Host::underRoot(path).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) return -1;
  struct stat status {};
  if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) return fd;
  ::close(fd);
  return -1;
} catch (const std::bad_alloc&) {
  return -1;
}

}  // namespace Velmar::File
