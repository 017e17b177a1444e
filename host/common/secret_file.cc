// Reads the password for the directory. Called for each new connection, so that a new password needs no restart.
// It must never appear in an error.

#include "host/users_lists/ldap/password_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "host/common/descriptor.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kMaxPassword = 1024;

[[noreturn]] void refuse(const std::string& path, const std::string& reason) {
  throw Exception("DirectoryException", 4, "PasswordFile", __LINE__, "password file " + path + " " + reason);
}

[[noreturn]] void refuse(const std::string& path, const std::string& what, int error) {
  refuse(path, what + ": " + std::generic_category().message(error));
}

void checkFile(int file, const std::string& path) {
  struct stat status {};
  if (::fstat(file, &status) != 0) refuse(path, "cannot be examined", errno);
  if (!S_ISREG(status.st_mode)) refuse(path, "is no regular file");
  if ((status.st_mode & S_IRWXO) != 0) refuse(path, "is open to others than its owner and group");
}

/// The beginning of the file: enough for the longest first line and its end.
std::string beginningOf(int file, const std::string& path) {
  std::array<char, kMaxPassword + 2> part;
  std::string text;
  while (text.size() < part.size()) {
    const ssize_t count = ::read(file, part.data(), part.size() - text.size());
    if (count == 0) break;
    if (count > 0) {
      text.append(part.data(), static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      refuse(path, "cannot be read", errno);
    }
  }
  return text;
}

}  // namespace

std::string passwordFromFile(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  if (!file) refuse(path, "cannot be opened", errno);
  checkFile(file.get(), path);
  std::string password = beginningOf(file.get(), path);
  if (const std::size_t end = password.find('\n'); end != std::string::npos) password.resize(end);
  if (password.ends_with('\r')) password.pop_back();
  if (password.empty()) refuse(path, "has an empty first line");
  if (password.size() > kMaxPassword) refuse(path, "has a first line of over 1024 bytes");
  return password;
}

}  // namespace Velmar::Host
