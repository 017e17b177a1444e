// The state store in a file, by SQLite. Called by the state store, which keeps the sessions and the schema.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <thread>

#include "host/common/descriptor.h"
#include "host/common/directories.h"
#include "host/common/root.h"
#include "host/users_lists/state_database.h"

namespace Velmar::Host {
namespace {

using namespace std::chrono_literals;

std::string pragma(soci::session& session, const std::string& text) {
  std::string value;
  session << "PRAGMA " + text, soci::into(value);
  return value;
}

// The connect text takes whole seconds only.
void waitForLocks(soci::session& session, std::chrono::milliseconds longest) {
  pragma(session, "busy_timeout = " + std::to_string(longest.count()));
}

int number(soci::session& session, const std::string& query) {
  int value = 0;
  session << query, soci::into(value);
  return value;
}

// The error's category does not tell; the text is the database's own.
bool isLocked(const soci::soci_error& error) {
  return error.get_error_message().find("database is locked") != std::string::npos;
}

// Which file a path names; "" when none.
std::string fileAt(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return {};
  return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

constexpr unsigned long long kLittle = 1024;  // KiB; the database's own files grow by less

// Why a place cannot be used, " (...)" or "". It must not be opened to find out: closing it would end all locks that
// this process has on it.
std::string accessFault(const std::string& path, int access) {
  if (::faccessat(AT_FDCWD, path.c_str(), access, AT_EACCESS) == 0 || errno == ENOENT) return {};
  return " (" + path + ": " + std::generic_category().message(errno) + ")";
}

std::string spaceFault(const std::string& directory) {
  struct statvfs system {};
  if (::statvfs(directory.c_str(), &system) != 0) return {};
  const unsigned long long free = static_cast<unsigned long long>(system.f_bavail) * system.f_frsize >> 10;
  return free < kLittle ? " (" + std::to_string(free) + " KiB are free in " + directory + ")" : "";
}

// The lock on the file beside the store. It also ends with the process, and a program that is executed never gets it.
class FileHold : public RunHold {
 public:
  FileHold(std::string path, Descriptor file)
      : path_(std::move(path)), file_(std::move(file)), identity_(fileAt(path_)) {}

  bool isHeld() noexcept override { return !identity_.empty() && identity_ == fileAt(path_); }

 private:
  std::string path_;
  Descriptor file_;
  std::string identity_;
};

class SqliteState : public StateDatabase {
 public:
  explicit SqliteState(const std::string& systemPath)
      : StateDatabase("sqlite://" + underRoot(systemPath), underRoot(systemPath)),
        directory_(systemPath.substr(0, systemPath.rfind('/'))) {}

  std::string circumstance() const override {
    const std::string directory = underRoot(directory_) + "/";
    std::string fault = accessFault(name(), R_OK | W_OK);
    if (fault.empty()) fault = accessFault(directory, R_OK | W_OK | X_OK);
    return fault.empty() ? spaceFault(directory) : fault;
  }

  void refuseVanished() const override {
    struct stat status {};
    if (::stat(name().c_str(), &status) != 0 && errno == ENOENT) throw error(__LINE__, "it has vanished");
  }

  // SQLite keeps one account of its file locks for the whole process. A child inherits the parent's account, but none
  // of its locks: a session of its own would have none either, and another process could take the log away under it,
  // with what was committed there.
  void refuseInherited() const override {
    throw error(__LINE__, "other threads had it open before this process was forked: fork before they use it");
  }

  std::unique_ptr<soci::session> open(std::chrono::milliseconds wait) const override {
    makeDirectory();
    prepareFile(name());
    auto session = std::make_unique<soci::session>("sqlite3", connectText());
    waitForLocks(*session, wait);
    *session << "PRAGMA synchronous = FULL";
    useWriteAheadLog(*session, wait);
    return session;
  }

  std::string identity() const override { return fileAt(name()); }

  void beginChange(soci::session& session, std::chrono::milliseconds wait) const override {
    waitForLocks(session, wait);
    session << "BEGIN IMMEDIATE";
  }

  int schemaVersion(soci::session& session) const override { return number(session, "PRAGMA user_version"); }

  void setSchemaVersion(soci::session& session, int version) const override {
    session << "PRAGMA user_version = " + std::to_string(version);
  }

  bool isForeign(soci::session& session, int version) const override {
    if (version == 0) {
      return number(session, "SELECT count(*) FROM sqlite_master") != 0 ||
             number(session, "PRAGMA application_id") != 0;
    }
    return number(session,
                  "SELECT count(*) FROM sqlite_master WHERE type = 'table' "
                  "AND name IN ('list_entry', 'preference')") != 2;
  }

  const char* growingKeyType() const override { return "INTEGER PRIMARY KEY AUTOINCREMENT"; }
  const char* textType() const override { return "TEXT"; }

  std::unique_ptr<RunHold> tryHoldRuns() const override {
    makeDirectory();
    const std::string path = name() + ".run-lock";
    prepareFile(path);
    Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK, 0640));
    if (!file.isOpen()) throw lockError(__LINE__, path, "opened");
    if (::flock(file.get(), LOCK_EX | LOCK_NB) == 0) return std::make_unique<FileHold>(path, std::move(file));
    if (errno != EWOULDBLOCK) throw lockError(__LINE__, path, "locked");
    return nullptr;
  }

 private:
  void makeDirectory() const try {
    if (!directory_.empty()) makeDirectories(directory_);
  } catch (const Exception& e) {
    throw error(__LINE__, e.text());
  }

  std::string connectText() const {
    if (name().find('"') != std::string::npos) throw error(__LINE__, "its path holds a double quote");
    return "dbname=\"" + name() + "\"";
  }

  // Readers and one writer then do not wait for each other. Two processes that do this to a new store at the same
  // moment do not queue up: one is told "locked" at once.
  void useWriteAheadLog(soci::session& session, std::chrono::milliseconds wait) const {
    const auto deadline = std::chrono::steady_clock::now() + wait;
    while (pragma(session, "journal_mode") != "wal") {
      try {
        if (pragma(session, "journal_mode=WAL") == "wal") return;
        throw error(__LINE__, "its directory does not allow a write-ahead log");
      } catch (const soci::soci_error& e) {
        if (!isLocked(e) || std::chrono::steady_clock::now() >= deadline) throw;
        std::this_thread::sleep_for(5ms);
      }
    }
  }

  Exception lockError(int line, const std::string& path, const char* what) const {
    return error(line, path + " cannot be " + what + ": " + std::generic_category().message(errno));
  }

  std::string directory_;  // a path of the system; "" = the root itself
};

}  // namespace

std::unique_ptr<StateDatabase> sqliteState(const std::string& systemPath) {
  return std::make_unique<SqliteState>(systemPath);
}

}  // namespace Velmar::Host
