// Locks the files of the spool. Whoever changes or removes one holds its lock; readers need none, because files are
// never changed in place.

#include "host/mail_builder/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "host/mail_builder/system_file.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

Exception failed(const std::string& path, const char* what, int error) {
  return Exception("SpoolException", 4, "FileLock", __LINE__, path + " cannot be " + what + ": " + errorText(error));
}

}  // namespace

bool tryLock(const Descriptor& file, const std::string& path) {
  while (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK) return false;
    if (errno != EINTR) throw failed(path, "locked", errno);
  }
  return true;
}

bool isStillAt(const Descriptor& file, const std::string& path) {
  struct stat named {};
  if (::fstatat(AT_FDCWD, path.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return false;
    throw failed(path, "looked at", errno);
  }
  const struct stat open = statusOf(file, path);
  return named.st_dev == open.st_dev && named.st_ino == open.st_ino;
}

struct stat statusOf(const Descriptor& file, const std::string& path) {
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) throw failed(path, "looked at", errno);
  return status;
}

}  // namespace Velmar::Host
