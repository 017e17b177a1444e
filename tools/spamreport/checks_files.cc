// Checks of what this software keeps on disk and of the files that the configuration names. They make what a report
// would make as well: the state store, the secret, the directories of the spool. A log file is not made.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

#include "host/host.h"
#include "tools/spamreport/checks.h"
#include "tools/spamreport/time_text.h"

namespace Velmar::Tool {
namespace {

namespace fs = std::filesystem;
using Host::ConfiguredFile;

std::vector<Finding> lookAtStateStore() { return good(Host::checkState() + " can be read and written"); }

std::vector<Finding> lookAtSpool() {
  Host::checkSpool();
  Host::checkSpoolRoom();
  std::size_t waiting = 0;
  std::size_t failed = 0;
  long long oldest = std::time(nullptr);
  for (const Host::SpoolEntry& entry : Host::listSpool()) {
    if (entry.state == Host::SpoolState::kUnreadable) throw std::runtime_error(entry.lastReply);
    ++(entry.state == Host::SpoolState::kWaiting ? waiting : failed);
    if (entry.state == Host::SpoolState::kWaiting) oldest = std::min(oldest, entry.queuedAt);
  }
  const std::string failures = counted(failed, "mail has failed", "mails have failed") + ", see spamreport queue list";
  if (waiting == 0) return failed == 0 ? good("empty") : note(failures);
  const std::string waits = counted(waiting, "mail waits", "mails wait") + ", the oldest for " +
                            durationText(static_cast<std::int64_t>(std::time(nullptr)) - oldest);
  return failed == 0 ? good(waits) : note(waits + "; " + failures);
}

std::vector<Finding> lookAtSecret() {
  Host::checkSecret();
  return good("signs links");
}

[[noreturn]] void refuse(const std::string& path, const char* what) {
  throw std::system_error(errno, std::generic_category(), path + " cannot be " + what);
}

/// Whether this user could make the file: the nearest directory above it that is there must take it.
void checkMakeable(const fs::path& path) {
  fs::path above = path.parent_path();
  while (!fs::exists(above) && above != above.parent_path()) above = above.parent_path();
  if (::faccessat(AT_FDCWD, above.c_str(), W_OK | X_OK, AT_EACCESS) != 0) refuse(above.string(), "written to");
}

std::vector<Finding> lookAtLog(const std::string& path) {
  const int file = ::open(path.c_str(), O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (file < 0 && errno != ENOENT) refuse(path, "opened for appending");
  if (file < 0) {
    checkMakeable(path);
    return good(path + " will be made");
  }
  struct stat status {};
  const bool regular = ::fstat(file, &status) == 0 && S_ISREG(status.st_mode);
  ::close(file);
  return regular ? good(path) : bad(path + " is no regular file");
}

struct stat statusOfReadable(const std::string& path) {
  const int file = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  struct stat status {};
  const bool looked = file >= 0 && ::fstat(file, &status) == 0;
  if (!looked) refuse(path, "read");
  ::close(file);
  if (!S_ISREG(status.st_mode)) throw std::runtime_error(path + " is no regular file");
  return status;
}

std::vector<Finding> lookAtPassword(const std::string& path) {
  if (statusOfReadable(path).st_mode & S_IRWXO) return bad(path + " is open to every user of this host");
  return good(path);
}

std::vector<Finding> lookAtCertificates(const std::string& path) {
  statusOfReadable(path);
  return good(path);
}

Check fileCheck(const ConfiguredFile& file) {
  const std::string& path = file.path;
  switch (file.use) {
    case ConfiguredFile::Use::kLog:
      return {file.key, [path] { return lookAtLog(path); }, "let this user write there, or name another file"};
    case ConfiguredFile::Use::kPassword:
      return {file.key, [path] { return lookAtPassword(path); },
              "let this user read it and others not: chown to this user and chmod 600, for instance"};
    case ConfiguredFile::Use::kCertificates:
      return {file.key, [path] { return lookAtCertificates(path); }, "let this user read it, or name another file"};
  }
  throw std::logic_error("unknown use of " + file.key);
}

}  // namespace

void addFileChecks(Checks& checks) {
  checks.push_back(
      {"state store", lookAtStateStore,
       "let this user read and write what [state] of the configuration names, by default state.db in var/lib/velmar"});
  checks.push_back({"spool", lookAtSpool,
                    "let this user read and write var/spool/velmar, move away what is damaged, make room there"});
  checks.push_back(
      {"secret", lookAtSecret,
       "let this user, and nobody else, read var/lib/velmar/secret; without it reports have no login link"});
  for (const ConfiguredFile& file : Host::configuredFiles()) checks.push_back(fileCheck(file));
}

}  // namespace Velmar::Tool
