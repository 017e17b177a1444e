// Reads the files with the passwords for the directory and the mail server. Called for each new connection, so that a
// new password needs no restart. What is read must never appear in an error.

#include "host/common/secret_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "host/common/descriptor.h"

namespace Velmar::Host {
namespace {

std::string withError(const char* what, int error) {
  return std::string(what) + ": " + std::generic_category().message(error);
}

/// Why a file may not be used, "" when it may.
std::string refusal(int file) {
  struct stat status {};
  if (::fstat(file, &status) != 0) return withError("cannot be examined", errno);
  if (!S_ISREG(status.st_mode)) return "is no regular file";
  return (status.st_mode & S_IRWXO) == 0 ? "" : "is open to every user of this host; chmod o= it";
}

}  // namespace

std::string readSecretFile(const std::string& what, const std::string& path, std::size_t most) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  if (!file) throw secretFileFault(what, path, withError("cannot be opened", errno));
  if (const std::string reason = refusal(file.get()); !reason.empty()) throw secretFileFault(what, path, reason);
  std::string bytes(most, '\0');
  std::size_t size = 0;
  while (size < most) {
    const ssize_t got = ::read(file.get(), bytes.data() + size, most - size);
    if (got == 0) break;
    if (got < 0 && errno != EINTR) throw secretFileFault(what, path, withError("cannot be read", errno));
    if (got > 0) size += static_cast<std::size_t>(got);
  }
  bytes.resize(size);
  return bytes;
}

std::string takeLine(std::string& text) {
  const std::size_t end = text.find('\n');
  std::string line = text.substr(0, end);
  text.erase(0, end == std::string::npos ? end : end + 1);
  if (line.ends_with('\r')) line.pop_back();
  return line;
}

Exception secretFileFault(const std::string& what, const std::string& path, const std::string& reason) {
  return Exception("FileException", 4, "SecretFile", __LINE__, what + " " + path + " " + reason);
}

}  // namespace Velmar::Host
