// Keeps the installation's secret on disk: 32 random bytes that nobody but the system's own user may read.
//
// Links already mailed out depend on it, so it is never replaced: a file that is there and unfit is an error for the
// administrator to look at. It is made whole without a name, or under a passing one, and then linked, which fails when
// another process was first.

#include "host/text_network/installation_secret.h"

#include <fcntl.h>
#include <openssl/rand.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>

#include "host/common/descriptor.h"
#include "host/common/directories.h"
#include "host/common/root.h"
#include "host/host.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr char kDirectory[] = "/var/lib/velmar";

Exception secretFault(int line, const std::string& path, const std::string& reason) {
  return Exception("SecretException", 4, "InstallationSecret", line, "installation secret " + path + ": " + reason);
}

Exception systemFault(int line, const std::string& path, const char* what) {
  return secretFault(line, path, std::string(what) + ": " + std::generic_category().message(errno));
}

/// A name that is removed when its scope ends.
class PassingName {
 public:
  explicit PassingName(std::string path) : path_(std::move(path)) {}
  PassingName(const PassingName&) = delete;
  PassingName& operator=(const PassingName&) = delete;
  ~PassingName() { ::unlink(path_.c_str()); }
  const char* c_str() const { return path_.c_str(); }

 private:
  std::string path_;
};

void checkFitness(const struct stat& status, const std::string& path) {
  if (!S_ISREG(status.st_mode)) throw secretFault(__LINE__, path, "no regular file");
  if (status.st_size != static_cast<off_t>(Secret{}.size())) {
    throw secretFault(__LINE__, path, "has " + std::to_string(status.st_size) + " bytes instead of 32");
  }
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) throw secretFault(__LINE__, path, "open to group or others");
}

/// The secret on disk; nothing when there surely is none.
std::optional<Secret> readSecret(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  if (!file.isOpen() && errno == ENOENT) return {};
  if (!file.isOpen() && errno == ELOOP) throw secretFault(__LINE__, path, "no regular file");
  if (!file.isOpen()) throw systemFault(__LINE__, path, "cannot be opened");
  struct stat status;
  if (::fstat(file.get(), &status) != 0) throw systemFault(__LINE__, path, "cannot be examined");
  checkFitness(status, path);
  Secret secret{};
  const ssize_t got = ::read(file.get(), secret.data(), secret.size());
  if (got < 0) throw systemFault(__LINE__, path, "cannot be read");
  if (static_cast<std::size_t>(got) != secret.size()) throw secretFault(__LINE__, path, "shrank while it was read");
  return secret;
}

void writeSecret(int fd, const std::string& path) {
  Secret secret{};
  if (RAND_priv_bytes(secret.data(), static_cast<int>(secret.size())) != 1) {
    throw secretFault(__LINE__, path, "OpenSSL has no random bytes");
  }
  const ssize_t put = ::write(fd, secret.data(), secret.size());
  if (put < 0) throw systemFault(__LINE__, path, "cannot be written");
  if (static_cast<std::size_t>(put) != secret.size()) throw secretFault(__LINE__, path, "cannot be written whole");
  if (::fchmod(fd, S_IRUSR | S_IWUSR) != 0 || ::fsync(fd) != 0) {
    throw systemFault(__LINE__, path, "cannot be brought to disk");
  }
}

void giveName(const char* from, const std::string& path, int flags) {
  if (::linkat(AT_FDCWD, from, AT_FDCWD, path.c_str(), flags) != 0 && errno != EEXIST) {
    throw systemFault(__LINE__, path, "cannot be put in place");
  }
}

/// Makes the secret as a file without a name, so that no process that dies leaves one behind. False where the file
/// system has no such files, or /proc is missing.
bool createUnnamed(const std::string& directory, const std::string& path) {
  const Descriptor file(::open(directory.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, S_IRUSR | S_IWUSR));
  const std::string link = "/proc/self/fd/" + std::to_string(file.get());
  if (!file.isOpen() || ::access(link.c_str(), F_OK) != 0) return false;
  giveToOwnerOf(directory, file, path);
  writeSecret(file.get(), path);
  giveName(link.c_str(), path, AT_SYMLINK_FOLLOW);
  return true;
}

void createUnderPassingName(const std::string& directory, const std::string& path) {
  std::string name = directory + "/.secret.XXXXXX";
  const Descriptor file(::mkostemp(name.data(), O_CLOEXEC));
  if (!file.isOpen()) throw systemFault(__LINE__, path, "cannot be made");
  const PassingName passing(name);
  giveToOwnerOf(directory, file, path);
  writeSecret(file.get(), path);
  giveName(passing.c_str(), path, 0);
}

/// Puts a new secret in place unless another process was first.
void createSecret(const std::string& directory, const std::string& path) {
  if (!createUnnamed(directory, path)) createUnderPassingName(directory, path);
  syncDirectory(directory);
}

Secret loadSecret(const std::string& root, bool create) {
  const std::string directory = root + kDirectory;
  const std::string path = directory + "/secret";
  if (const auto secret = readSecret(path)) return *secret;
  if (!create) throw secretFault(__LINE__, path, "does not exist");
  makeDirectories(kDirectory);
  createSecret(directory, path);
  if (const auto secret = readSecret(path)) return *secret;
  throw secretFault(__LINE__, path, "vanished");
}

}  // namespace

Secret installationSecret(bool create) {
  static std::mutex mutex;
  static std::map<std::string, Secret> secrets;
  const std::string where = root();
  const std::lock_guard lock(mutex);
  if (const auto kept = secrets.find(where); kept != secrets.end()) return kept->second;
  return secrets.emplace(where, loadSecret(where, create)).first->second;
}

void checkSecret() { installationSecret(true); }

}  // namespace Velmar::Host
