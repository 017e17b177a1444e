// Writes, syncs, names, syncs the directory; each result is checked. Only the spool and the queue's hand-over use this.

#include "host/mail_builder/durable_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "host/common/directories.h"
#include "host/mail_builder/file_lock.h"
#include "host/mail_builder/message_ids.h"
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

/// A new file in tmp/ under a name of its own, locked; removed unless it has gone to its place.
class TemporaryFile {
 public:
  TemporaryFile(const std::string& base, const std::string& name) {
    // A sweep that comes between making and locking takes the file for a dead process's.
    do open(base + "/tmp/" + name + "." + randomToken(8));
    while (!tryLock(file_, path_) || statusOf(file_, path_).st_nlink == 0);
    giveToOwnerOf(base, file_, path_);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (!path_.empty()) ::unlink(path_.c_str());
  }

  const std::string& path() const { return path_; }
  const Descriptor& file() const { return file_; }

  Descriptor moved() {
    path_.clear();
    return std::move(file_);
  }

 private:
  void open(std::string path) {
    file_ = Descriptor(::open(path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, kFileMode));
    if (!file_.isOpen()) throw failed(path, "made", errno);
    path_ = std::move(path);
  }

  std::string path_;
  Descriptor file_;
};

/// Renames, but never over a file. False with nothing done when the system says no; errno is set.
bool renameToNew(const std::string& from, const std::string& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  // A file system without that flag still has link(2), which never replaces either.
  if (errno != EINVAL && errno != ENOSYS) return false;
  return ::link(from.c_str(), to.c_str()) == 0 && ::unlink(from.c_str()) == 0;
}

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
  giveToOwnerOf(base, file, path);
  writeAndSync(file, bytes, path);
  if (::linkat(AT_FDCWD, link.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) != 0) {
    throw failed(path, "made", errno);
  }
  syncNew(base, path);
  return true;
}

void createByRename(const std::string& base, const std::string& name, std::string_view bytes) {
  const std::string path = base + "/new/" + name;
  TemporaryFile temporary(base, name);
  writeAndSync(temporary.file(), bytes, temporary.path());
  if (!renameToNew(temporary.path(), path)) throw failed(path, "made", errno);
  temporary.moved();
  syncNew(base, path);
}

void createDurably(const std::string& base, const std::string& name, std::string_view bytes) {
  if (!createUnnamed(base, name, bytes)) createByRename(base, name, bytes);
}

Descriptor replaceDurably(const std::string& base, const std::string& place, const std::string& name,
                          std::string_view bytes) {
  const std::string path = base + "/" + place + "/" + name;
  TemporaryFile temporary(base, name);
  writeAndSync(temporary.file(), bytes, temporary.path());
  if (::rename(temporary.path().c_str(), path.c_str()) != 0) throw failed(path, "made", errno);
  Descriptor file = temporary.moved();
  syncDirectory(base + "/" + place);
  return file;
}

void moveDurably(const std::string& base, const std::string& from, const std::string& to, const std::string& name) {
  const std::string path = base + "/" + to + "/" + name;
  if (!renameToNew(base + "/" + from + "/" + name, path)) throw failed(path, "made", errno);
  // The new name first: a crash in between may leave both, never neither.
  syncDirectory(base + "/" + to);
  syncDirectory(base + "/" + from);
}

void removeDurably(const std::string& base, const std::string& place, const std::string& name) {
  const std::string path = base + "/" + place + "/" + name;
  if (::unlink(path.c_str()) != 0) throw failed(path, "removed", errno);
  syncDirectory(base + "/" + place);
}

void giveToOwner(const std::string& base, const std::string& name) {
  if (::geteuid() != 0) return;
  // Nothing but a directory: a link to somebody else's file would give that away.
  const std::string path = base + "/" + name;
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
  if (!file.isOpen()) throw failed(path, "opened", errno);
  giveToOwnerOf(base, file, path);
}

void sweepTemporary(const std::string& base) {
  const std::string directory = base + "/tmp/";
  for (const std::string& name : namesIn(directory)) {
    const std::string path = directory + name;
    const Descriptor file(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
    // What cannot be opened is nobody's temporary file, or gone by now.
    if (file.isOpen() && tryLock(file, path)) ::unlink(path.c_str());
  }
}

}  // namespace Velmar::Host
