// Opening and reading directories. Used by the Maildir store and the listing of mailboxes.
// Nothing here follows a symbolic link below a domain's directory, and "is not there" is never said of what could
// not be looked at.

#include "host/mailbox/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace Velmar::Host {
namespace {

bool isSymbolicLink(const Descriptor& parent, const char* name) {
  struct stat status {};
  return ::fstatat(parent.get(), name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode);
}

}  // namespace

Exception systemError(int line, const std::string& what, const std::string& path, int error) {
  return Exception("MailboxException", 4, "Maildir", line,
                   what + " " + path + ": " + std::generic_category().message(error));
}

Descriptor openDirectory(const std::string& path, int flags) {
  Descriptor directory(::open(path.c_str(), O_DIRECTORY | O_CLOEXEC | flags));
  if (!directory && errno != ENOENT) throw systemError(__LINE__, "cannot open directory", path, errno);
  return directory;
}

Descriptor openSubdirectory(const Descriptor& parent, const char* name, const std::string& path, int flags) {
  Descriptor directory(::openat(parent.get(), name, O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | flags));
  if (directory) return directory;
  const int error = errno;
  // A link is reported as "not a directory", which would hide what is wrong.
  if (isSymbolicLink(parent, name)) throw systemError(__LINE__, "symbolic link is not followed:", path, ELOOP);
  if (error != ENOENT) throw systemError(__LINE__, "cannot open directory", path, error);
  return directory;
}

bool DirectoryReader::fill() {
  const ssize_t got = ::getdents64(directory_.get(), entries_, sizeof entries_);
  // A directory that was removed while it was open has no entries (any more).
  if (got < 0 && errno != ENOENT) throw systemError(__LINE__, "cannot list directory", path_, errno);
  at_ = 0;
  end_ = got > 0 ? static_cast<std::size_t>(got) : 0;
  return end_ > 0;
}

const dirent64* DirectoryReader::next() {
  if (at_ == end_ && !fill()) return nullptr;
  const auto* const entry = reinterpret_cast<const dirent64*>(entries_ + at_);
  at_ += entry->d_reclen;
  return entry;
}

}  // namespace Velmar::Host
