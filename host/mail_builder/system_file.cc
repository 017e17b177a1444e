// Reads whole files with a bound. Templates, images and the spool come through here.

#include "host/mail_builder/system_file.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>

#include "host/common/file_time.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

// A file changed this shortly before it was looked at may change once more within the same tick of its time stamp.
constexpr std::int64_t kUnsettled = 50'000'000;  // nanoseconds

constexpr std::size_t kStep = std::size_t{64} << 10;

struct CloseDirectory {
  void operator()(DIR* directory) const noexcept { ::closedir(directory); }
};

Exception notListed(const std::string& path) {
  return Exception("FileException", 4, "SystemFile", __LINE__, path + " cannot be listed: " + errorText(errno));
}

}  // namespace

FileIdentity identityOf(const struct stat& status) noexcept {
  return {status.st_dev, status.st_ino, status.st_size, nanoseconds(status.st_mtim), nanoseconds(status.st_ctim)};
}

FileIdentity identityAt(const std::string& path) noexcept {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? identityOf(status) : FileIdentity{};
}

bool isSettled(const FileIdentity& identity) noexcept {
  const std::int64_t now = nanosecondsNow();
  const auto justNow = [now](std::int64_t time) { return time > now - kUnsettled && time <= now; };
  return !justNow(identity.modified) && !justNow(identity.changed);
}

std::string readUpTo(int fd, std::size_t limit, const std::string& path) {
  std::string bytes;
  struct stat status {};
  if (::fstat(fd, &status) == 0 && status.st_size > 0) {
    bytes.reserve(std::min(static_cast<std::size_t>(status.st_size), limit) + 1);
  }
  for (;;) {
    const std::size_t before = bytes.size();
    bytes.resize(before + std::clamp(bytes.capacity() - before, std::size_t{1}, kStep));
    const ssize_t got = ::read(fd, bytes.data() + before, bytes.size() - before);
    bytes.resize(before + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    if (got == 0) return bytes;
    if (got < 0 && errno != EINTR) {
      throw Exception("FileException", 4, "SystemFile", __LINE__, path + " cannot be read: " + errorText(errno));
    }
    if (bytes.size() > limit) {
      throw Exception("FileException", 4, "SystemFile", __LINE__,
                      path + " is larger than " + std::to_string(limit) + " bytes");
    }
  }
}

std::vector<std::string> namesIn(const std::string& path) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, CloseDirectory> directory(::opendir(path.c_str()));
  if (!directory) {
    if (errno == ENOENT) return names;
    throw notListed(path);
  }
  for (;;) {
    errno = 0;
    const struct dirent* entry = ::readdir(directory.get());
    if (!entry && errno != 0) throw notListed(path);
    if (!entry) return names;
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  }
}

std::string errorText(int error) { return std::generic_category().message(error); }

}  // namespace Velmar::Host
