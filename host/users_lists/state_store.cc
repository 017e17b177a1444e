// Opens the state store and keeps one session a thread. Called by the list and preference operations through
// withState. It never answers for the store: whatever cannot be read, written or understood is an exception, since
// "not in the list" leads to deleted links.

#include "host/users_lists/state_store.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>

#include "host/common/directories.h"
#include "host/common/root.h"

namespace Velmar::Host {
namespace {

using namespace std::chrono_literals;

constexpr char kStateDirectory[] = "/var/lib/velmar";
constexpr int kSchemaVersion = 1;

// Bytes as given stand beside the key they are found by. `id` grows for ever: it is the order of addition.
constexpr const char* kSchema[] = {
    "CREATE TABLE list_entry (id INTEGER PRIMARY KEY AUTOINCREMENT, owner_key TEXT NOT NULL, list TEXT NOT NULL, "
    "entry_key TEXT NOT NULL, owner TEXT NOT NULL, entry TEXT NOT NULL, UNIQUE (owner_key, list, entry_key))",
    "CREATE TABLE preference (address_key TEXT PRIMARY KEY, address TEXT NOT NULL, language TEXT NOT NULL)",
};

std::atomic<std::chrono::milliseconds> lockTimeout{5s};

// Which file a session has open; another one may take its place while the session lives.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;

  bool operator==(const FileIdentity&) const = default;
};

FileIdentity identityOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return {};
  return {status.st_dev, status.st_ino};
}

void makeStateDirectory() try { makeDirectories(kStateDirectory); } catch (const Exception& e) {
  throw stateError(__LINE__, e.text());
}

std::string pragma(soci::session& session, const std::string& text) {
  std::string value;
  session << "PRAGMA " + text, soci::into(value);
  return value;
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

// Readers and one writer then do not wait for each other. Two processes that do this to a new store at the same
// moment do not queue up: one is told "locked" at once.
void useWriteAheadLog(soci::session& session, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (pragma(session, "journal_mode") != "wal") {
    try {
      if (pragma(session, "journal_mode=WAL") == "wal") return;
      throw stateError(__LINE__, "its directory does not allow a write-ahead log");
    } catch (const soci::soci_error& error) {
      if (!isLocked(error) || std::chrono::steady_clock::now() >= deadline) throw;
      std::this_thread::sleep_for(5ms);
    }
  }
}

// A store that this process has used cannot be new: whoever reads an empty one in its place would take every list for
// empty. It is left to the administrator, and nothing is put in its way.
class KnownStores {
 public:
  void add(const std::string& path) {
    const std::lock_guard lock(mutex_);
    paths_.insert(path);
  }

  void refuseVanished(const std::string& path) {
    const std::lock_guard lock(mutex_);
    struct stat status {};
    if (paths_.count(path) && ::stat(path.c_str(), &status) != 0 && errno == ENOENT) {
      throw stateError(__LINE__, "it has vanished");
    }
  }

 private:
  std::mutex mutex_;
  std::set<std::string> paths_;
};

KnownStores knownStores;

void createSchema(soci::session& session) {
  if (number(session, "SELECT count(*) FROM sqlite_master") != 0) {
    throw stateError(__LINE__, "it is a database, but not one of this system");
  }
  for (const char* statement : kSchema) session << statement;
  session << "PRAGMA user_version = " + std::to_string(kSchemaVersion);
}

void checkSchema(soci::session& session) {
  if (number(session, "PRAGMA user_version") == kSchemaVersion) return;
  StateChange change(session);
  const int version = number(session, "PRAGMA user_version");  // another process may have been faster
  if (version == 0) {
    createSchema(session);
  } else if (version != kSchemaVersion) {
    throw stateError(__LINE__, "its schema version is " + std::to_string(version) + ", this software knows version " +
                                   std::to_string(kSchemaVersion));
  }
  change.commit();
}

std::string connectText(const std::string& path) {
  if (path.find('"') != std::string::npos) throw stateError(__LINE__, "its path holds a double quote");
  return "dbname=\"" + path + "\"";
}

// One session and what it was opened for.
struct ThreadSession {
  explicit ThreadSession(std::string storePath)
      : path(std::move(storePath)), process(::getpid()), session("sqlite3", connectText(path)) {
    const std::chrono::milliseconds timeout = lockTimeout.load();
    // In milliseconds; the connect text takes whole seconds only.
    pragma(session, "busy_timeout = " + std::to_string(timeout.count()));
    session << "PRAGMA synchronous = FULL";
    useWriteAheadLog(session, timeout);
    checkSchema(session);
    file = identityOf(path);
  }

  bool serves(const std::string& storePath) const { return path == storePath && file == identityOf(path); }

  std::string path;
  pid_t process;
  soci::session session;
  FileIdentity file;
};

thread_local std::unique_ptr<ThreadSession> current;

// A connection must not be used, nor even closed, by a child of the process that opened it: the child leaves it alone.
void abandonInheritedSession() {
  if (current && current->process != ::getpid()) static_cast<void>(current.release());
}

}  // namespace

std::string statePath() { return underRoot(std::string(kStateDirectory) + "/state.db"); }

void setStateLockTimeout(std::chrono::milliseconds timeout) { lockTimeout = timeout; }

std::string addressKey(std::string_view address) {
  std::string key(address);
  const std::size_t at = key.rfind('@');
  for (std::size_t i = at == std::string::npos ? key.size() : at; i < key.size(); ++i) {
    if (key[i] >= 'A' && key[i] <= 'Z') key[i] = static_cast<char>(key[i] + ('a' - 'A'));
  }
  return key;
}

Exception stateError(int line, const std::string& reason) {
  return Exception("StateException", 4, "StateStore", line, "state store " + statePath() + ": " + reason);
}

soci::session& threadState() {
  abandonInheritedSession();
  const std::string path = statePath();
  if (!current || !current->serves(path)) {
    current.reset();
    knownStores.refuseVanished(path);
    makeStateDirectory();
    current = std::make_unique<ThreadSession>(path);
    knownStores.add(path);
  }
  return current->session;
}

void dropThreadState() noexcept { current.reset(); }

StateChange::StateChange(soci::session& session) : session_(session) { session_ << "BEGIN IMMEDIATE"; }

StateChange::~StateChange() {
  if (!open_) return;
  try {
    session_ << "ROLLBACK";
  } catch (const soci::soci_error&) {
    // The store undid it already, or the session is dropped and undoes it.
  }
}

void StateChange::commit() {
  session_ << "COMMIT";
  open_ = false;
}

}  // namespace Velmar::Host
