// Checks of what this software keeps on disk and of the files that the configuration names. What a report would make is
// not made here: whether it could be made is looked at instead.

#include <fcntl.h>
#include <pwd.h>
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

[[noreturn]] void refuse(const std::string& path, const char* what) {
  throw std::system_error(errno, std::generic_category(), path + " cannot be " + what);
}

/// Whether this user could make the file: the nearest directory above it that is there must take it.
void checkMakeable(const fs::path& path) {
  fs::path above = path.parent_path();
  while (!fs::exists(above) && above != above.parent_path()) above = above.parent_path();
  if (::faccessat(AT_FDCWD, above.c_str(), W_OK | X_OK, AT_EACCESS) != 0) refuse(above.string(), "written to");
}

/// Whether it is there. What is not must be such that this user could make it.
bool isThere(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0) return true;
  if (errno != ENOENT) refuse(path, "looked at");
  checkMakeable(path);
  return false;
}

std::string nameOf(uid_t user) {
  const struct passwd* entry = ::getpwuid(user);
  return entry ? entry->pw_name : "user " + std::to_string(user);
}

/// What this user may do is what the other checks look at.
std::vector<Finding> lookAtUser() {
  const std::string directory = fs::path(Host::ownPlaces().secret).parent_path();
  struct stat status {};
  const std::string self = nameOf(::geteuid());
  if (::stat(directory.c_str(), &status) != 0 || status.st_uid == ::geteuid()) return good(self);
  return note(self + " may do other things than " + nameOf(status.st_uid) + ", to whom " + directory + " belongs");
}

std::vector<Finding> lookAtStateStore() {
  const std::string file = Host::ownPlaces().state;
  if (!file.empty() && !isThere(file)) return good(file + " will be made");
  return good(Host::checkState() + " can be read and written");
}

/// Whether mails can be put into the spool.
void checkPlaces(const std::string& spool) {
  for (const char* place : {"/new", "/tmp", "/failed"}) {
    const std::string path = spool + place;
    if (isThere(path) && ::faccessat(AT_FDCWD, path.c_str(), R_OK | W_OK | X_OK, AT_EACCESS) != 0) {
      refuse(path, "read and written");
    }
  }
  if (isThere(spool)) Host::checkSpoolRoom();
}

std::vector<Finding> lookAtSpool() {
  checkPlaces(Host::ownPlaces().spool);
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
  const std::string path = Host::ownPlaces().secret;
  if (!isThere(path)) return good(path + " will be made");
  Host::checkSecret();
  return good("signs links");
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
  checks.push_back({"user", lookAtUser, "run this check as the user who sends the reports: runuser -u USER -- ..."});
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
