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

DirectoryStream readingStream(Descriptor directory, const std::string& path) {
  DirectoryStream stream(::fdopendir(directory.get()));
  if (!stream) throw systemError(__LINE__, "cannot list directory", path, errno);
  directory.release();
  return stream;
}

const dirent* nextEntry(DIR* stream, const std::string& path) {
  errno = 0;
  const dirent* entry = ::readdir(stream);
  if (!entry && errno != 0) throw systemError(__LINE__, "cannot list directory", path, errno);
  return entry;
}

}  // namespace Velmar::Host
