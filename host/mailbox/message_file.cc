// Opens one held message and reads its header by bounded reads. Called by the mailbox for each message of a window.
// It must not block on what lies in the mailbox, must not read bodies, and must not map the file: a file that shrinks
// under a mapping kills the process.

#include "host/mailbox/message_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

namespace Velmar::Host {
namespace {

constexpr std::size_t kFirstRead = std::size_t{8} << 10;
constexpr std::size_t kGrowth = 4;  // so that scanning anew after each read stays linear
constexpr int kOpenFlags = O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY;

bool isRegularFile(const Descriptor& file) {
  struct stat status {};
  return ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
}

// Bytes read, fewer than `size` only at the end of the file (or after a signal); -1 when it cannot be read.
ssize_t readAt(const Descriptor& file, char* buffer, std::size_t size, std::size_t offset) {
  ssize_t got = 0;
  do {
    got = ::pread(file.get(), buffer, size, static_cast<off_t>(offset));
  } while (got < 0 && errno == EINTR);
  return got;
}

// Appends up to `size` bytes of the file to `text`, which holds its beginning. False when it cannot be read.
bool readOn(const Descriptor& file, std::string& text, std::size_t size) {
  std::size_t have = text.size();
  const std::size_t wanted = have + size;
  text.resize(wanted);
  ssize_t got = 1;
  while (got > 0 && have < wanted) {
    got = readAt(file, text.data() + have, wanted - have, have);
    if (got > 0) have += static_cast<std::size_t>(got);
  }
  text.resize(have);
  return got >= 0;
}

// For a header that the first read does not hold, or that has no end.
std::optional<HeaderBlock> readLongHeader(const Descriptor& file, std::string text) {
  for (;;) {
    const std::size_t before = text.size();
    const std::size_t target = std::min(std::max(before * kGrowth, kFirstRead), kHeaderCap);
    if (!readOn(file, text, target - before)) return std::nullopt;
    HeaderBlock header(text);
    if (header.complete() || text.size() < target || target == kHeaderCap) return header;
  }
}

}  // namespace

int MessageOpener::openFile(int folder, const char* name) {
  if (keepAccessTime_) {
    const int file = ::openat(folder, name, kOpenFlags | O_NOATIME);
    if (file >= 0 || errno != EPERM) return file;
    keepAccessTime_ = false;
  }
  return ::openat(folder, name, kOpenFlags);
}

OpenedMessage MessageOpener::open(int folder, const char* name, bool regular, const std::string& folderPath) {
  int descriptor = -1;
  do {
    descriptor = openFile(folder, name);
  } while (descriptor < 0 && errno == EINTR);
  const int error = errno;
  Descriptor file(descriptor);
  if (file) return {regular || isRegularFile(file) ? std::move(file) : Descriptor(), false, 0};
  if (error == EMFILE || error == ENFILE || error == ENOMEM) {
    throw systemError(__LINE__, "cannot open a message in", folderPath, error);
  }
  // EBADF: the folder itself has gone.
  const bool gone = error == ENOENT || error == ESTALE || error == EBADF;
  const bool noFile = error == ELOOP || error == ENXIO;  // a link, a socket: never a message
  return {Descriptor(), gone, gone || noFile ? 0 : error};
}

bool MessageOpener::touch(int folder, const char* name, int bound) noexcept {
  const Descriptor file(openFile(folder, name));
  if (file.get() >= bound) return false;
  char block[kFirstRead];
  if (file) readAt(file, block, sizeof block, 0);
  return true;
}

std::optional<HeaderBlock> readHeader(const Descriptor& file) {
  char first[kFirstRead];
  const ssize_t got = readAt(file, first, sizeof first, 0);
  if (got < 0) return std::nullopt;
  const std::string_view text(first, static_cast<std::size_t>(got));
  HeaderBlock header(text);
  if (header.complete()) return header;
  return readLongHeader(file, std::string(text));
}

}  // namespace Velmar::Host
