// Writes, syncs, names, syncs the directory; each result is checked. Only the spool uses this.

#include "host/mail_builder/durable_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "host/common/directories.h"
#include "host/mail_builder/system_file.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr mode_t kFileMode = 0640;

Exception failed(const std::string& path, const char* what, int error) {
  return Exception("SpoolException", 4, "DurableFile", __LINE__, path + " cannot be " + what + ": " + errorText(error));
}

void writeAndSync(const Descriptor& file, std::string_view bytes, const std::string& path) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(file.get(), bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) throw failed(path, "written", errno);
    if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  if (::fsync(file.get()) != 0) throw failed(path, "synced", errno);
}

/// Makes a new name in new/ safe, or takes it away again.
void syncNew(const std::string& base, const std::string& path) {
  try {
    syncDirectory(base + "/new");
  } catch (...) {
    ::unlink(path.c_str());
    throw;
  }
}

/// Removes a temporary file unless it has gone to its place.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string path) : path_(std::move(path)) {}
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (!path_.empty()) ::unlink(path_.c_str());
  }

  const std::string& path() const { return path_; }
  void moved() { path_.clear(); }

 private:
  std::string path_;
};

}  // namespace

bool createUnnamed(const std::string& base, const std::string& name, std::string_view bytes) {
  const std::string path = base + "/new/" + name;
  const Descriptor file(::open((base + "/tmp").c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, kFileMode));
  if (!file.isOpen()) {
    if (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL) return false;
    throw failed(path, "written", errno);
  }
  const std::string link = "/proc/self/fd/" + std::to_string(file.get());
  if (::access(link.c_str(), F_OK) != 0) return false;
  writeAndSync(file, bytes, path);
  if (::linkat(AT_FDCWD, link.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) != 0) {
    throw failed(path, "made", errno);
  }
  syncNew(base, path);
  return true;
}

void createByRename(const std::string& base, const std::string& name, std::string_view bytes) {
  const std::string path = base + "/new/" + name;
  const std::string temporaryPath = base + "/tmp/" + name;
  const Descriptor file(::open(temporaryPath.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, kFileMode));
  if (!file.isOpen()) throw failed(temporaryPath, "made", errno);
  TemporaryFile temporary(temporaryPath);
  writeAndSync(file, bytes, temporaryPath);
  if (::renameat2(AT_FDCWD, temporaryPath.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) != 0) {
    // A file system without that flag still has link(2), which never replaces either.
    if (errno != EINVAL && errno != ENOSYS) throw failed(path, "made", errno);
    if (::link(temporaryPath.c_str(), path.c_str()) != 0) throw failed(path, "made", errno);
  } else {
    temporary.moved();
  }
  syncNew(base, path);
}

void createDurably(const std::string& base, const std::string& name, std::string_view bytes) {
  if (!createUnnamed(base, name, bytes)) createByRename(base, name, bytes);
}

}  // namespace Velmar::Host
