// Opens the state store, keeps one session a thread, and brings its schema up to date. Called by the operations on
// lists, preferences and scheduled runs through withState. It never answers for the store: whatever cannot be read,
// written or understood is an exception, since "not in the list" leads to deleted links.

#include "host/users_lists/state_store.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <system_error>

#include "host/common/host_config.h"
#include "host/common/root.h"
#include "host/host.h"
#include "host/users_lists/circuit_breaker.h"

namespace Velmar::Host {
namespace {

using namespace std::chrono_literals;

constexpr int kSchemaVersion = 2;

// What leads to each version of the schema from the one before. {KEY} is a key that grows for ever, {TEXT} a text.
// Bytes as given stand beside the key they are found by; `id` is the order of addition.
// In reported_until the address "" stands for the whole domain.
constexpr struct {
  int version;
  const char* statement;
} kSchemaSteps[] = {
    {1,
     "CREATE TABLE list_entry (id {KEY}, owner_key {TEXT} NOT NULL, list {TEXT} NOT NULL, entry_key {TEXT} NOT NULL, "
     "owner {TEXT} NOT NULL, entry {TEXT} NOT NULL, UNIQUE (owner_key, list, entry_key))"},
    {1, "CREATE TABLE preference (address_key {TEXT} PRIMARY KEY, address {TEXT} NOT NULL, language {TEXT} NOT NULL)"},
    {2,
     "CREATE TABLE reported (domain {TEXT} NOT NULL, address {TEXT} NOT NULL, reported_until BIGINT NOT NULL, "
     "PRIMARY KEY (domain, address))"},
};

std::atomic<std::chrono::milliseconds> lockTimeout{5s};
constexpr auto kLongWait = 1s;
constexpr auto kPauseOfOpening = 10s;
constexpr std::chrono::milliseconds kShortestWait = 100ms;

// The URL that stands in for the configured one.
std::mutex urlMutex;
std::string urlInstead;

std::string stateUrl() {
  {
    const std::lock_guard lock(urlMutex);
    if (!urlInstead.empty()) return urlInstead;
  }
  return hostConfig().state.url;
}

std::unique_ptr<StateDatabase> databaseAt(const std::string& url) {
  constexpr std::string_view kFile = "sqlite://";
  return url.starts_with(kFile) ? sqliteState(url.substr(kFile.size())) : postgresqlState(url);
}

// What all threads of this process know of a store.
struct StoreRecord {
  explicit StoreRecord(std::chrono::milliseconds wait) : changeWait(wait) {}

  // A store that was used cannot be new: whoever reads an empty one in its place would take every list for empty. It is
  // left to the administrator, and nothing is put in its way.
  std::atomic<bool> used{false};
  // A store that was waited for in vain is not tried again for a while: a run would wait for it once a mailbox.
  CircuitBreaker opening{kPauseOfOpening};
  // How long a change waits for others. It is always tried, since what it notes may be done already, but each time in
  // vain halves it until one succeeds.
  std::atomic<std::chrono::milliseconds> changeWait;
};

StoreRecord& recordOf(const StateDatabase& database) {
  static std::mutex mutex;
  static std::map<std::string, StoreRecord> records;
  const std::lock_guard lock(mutex);
  return records.try_emplace(database.place(), lockTimeout.load()).first->second;
}

template <class Open>
void openUnlessInVain(CircuitBreaker& breaker, const StateDatabase& database, const Open& open) {
  const auto begin = CircuitBreaker::Clock::now();
  if (const auto refusal = breaker.refusal(begin)) throw database.error(__LINE__, *refusal);
  try {
    open();
    breaker.succeeded();
  } catch (const soci::soci_error& error) {
    const auto end = CircuitBreaker::Clock::now();
    if (end - begin >= kLongWait) {
      breaker.failed(end, error.get_error_message());
    } else {
      breaker.succeeded();
    }
    throw;
  }
}

std::string inWordsOf(const StateDatabase& database, std::string statement) {
  const std::pair<std::string, const char*> words[] = {{"{KEY}", database.growingKeyType()},
                                                       {"{TEXT}", database.textType()}};
  for (const auto& [mark, word] : words) {
    for (std::size_t at = 0; (at = statement.find(mark)) != std::string::npos;)
      statement.replace(at, mark.size(), word);
  }
  return statement;
}

void takeSchemaSteps(const StateSession& state, int from) {
  for (const auto& [version, statement] : kSchemaSteps) {
    if (version > from) state.run(inWordsOf(state.database, statement));
  }
  state.database.setSchemaVersion(state.sql, kSchemaVersion);
}

// All steps or none. Another process may be faster, so what is decided is looked at under the lock.
void bringSchemaUpToDate(const StateSession& state, bool known) {
  const StateDatabase& database = state.database;
  if (database.schemaVersion(state.sql) == kSchemaVersion) return;
  StateChange change(state);
  const int version = database.schemaVersion(state.sql);
  if (version == kSchemaVersion) return;
  if (version < 0 || version > kSchemaVersion) {
    throw database.error(__LINE__, "its schema version is " + std::to_string(version) +
                                       ", this software knows version " + std::to_string(kSchemaVersion));
  }
  if (version == 0 && known) throw database.error(__LINE__, "it has vanished: what is there now is empty");
  if (database.isForeign(state.sql, version)) {
    throw database.error(__LINE__, "it is a database, but not one of this system");
  }
  takeSchemaSteps(state, version);
  change.commit();
}

// Sessions of all threads; and whether this process began, by a fork, while other threads than the forking one had
// some.
std::atomic<int> openSessions{0};
std::atomic<bool> inheritsSessions{false};

// What a thread has of the store.
struct ThreadStore {
  std::string place;  // URL and root that the database was made for
  std::unique_ptr<StateDatabase> database;
  std::unique_ptr<soci::session> session;
  KeptQueries queries;   // of the session
  std::string identity;  // of what the session has open

  ~ThreadStore() { close(); }

  void open();

  void close() noexcept {
    queries.clear();
    if (!session) return;
    session.reset();
    --openSessions;
  }
};

thread_local ThreadStore current;

// A child can neither use nor close a session of its parent. So the thread that forks closes its own before; those of
// other threads stay open in the child for ever, as nobody there can reach them.
void lookAfterForks() {
  static const int failure = ::pthread_atfork([] { current.close(); }, nullptr,
                                              [] { inheritsSessions = inheritsSessions || openSessions != 0; });
  if (failure != 0) throw stateError(__LINE__, "cannot look after forks: " + std::generic_category().message(failure));
}

void ThreadStore::open() {
  lookAfterForks();
  if (inheritsSessions) database->refuseInherited();
  StoreRecord& record = recordOf(*database);
  const bool known = record.used;
  if (known) database->refuseVanished();
  ++openSessions;  // before there is one: another thread may fork meanwhile
  try {
    openUnlessInVain(record.opening, *database, [&] {
      auto opened = database->open(lockTimeout.load());
      bringSchemaUpToDate({*opened, *database, queries}, known);
      session = std::move(opened);
    });
  } catch (...) {
    --openSessions;
    throw;
  }
  identity = database->identity();
  record.used = true;
}

}  // namespace

void setStateUrl(const std::string& url) {
  const std::lock_guard lock(urlMutex);
  urlInstead = url;
}

void setStateLockTimeout(std::chrono::milliseconds timeout) { lockTimeout = timeout; }

std::string addressKey(std::string_view address) {
  std::string key(address);
  const std::size_t at = key.rfind('@');
  for (std::size_t i = at == std::string::npos ? key.size() : at; i < key.size(); ++i) {
    if (key[i] >= 'A' && key[i] <= 'Z') key[i] = static_cast<char>(key[i] + ('a' - 'A'));
  }
  return key;
}

void StateSession::prepare(soci::statement& prepared, const std::string& text, std::vector<std::string>& values) const {
  for (std::string& value : values) {
    value = database.stored(value);
    prepared.exchange(soci::use(value));
  }
  prepared.alloc();
  prepared.prepare(text, soci::details::st_one_time_query);
  prepared.define_and_bind();
}

void StateSession::setValues(KeptQuery& query, std::vector<std::string> values) const {
  for (std::size_t i = 0; i < values.size(); ++i) query.values.at(i) = database.stored(values[i]);
}

StateDatabase& threadDatabase() {
  const std::string url = stateUrl();
  const std::string place = root() + "\n" + url;
  if (!current.database || current.place != place) {
    current.close();
    current.database = databaseAt(url);
    current.place = place;
  }
  return *current.database;
}

Exception stateError(int line, const std::string& reason) { return threadDatabase().error(line, reason); }

StateSession threadState() {
  const StateDatabase& database = threadDatabase();
  if (!current.session || current.identity != database.identity()) {
    current.close();
    current.open();
  }
  return {*current.session, database, current.queries};
}

void dropThreadState() noexcept { current.close(); }

void endFailedState(bool mayRepeat) {
  try {
    throw;
  } catch (const soci::soci_error& error) {
    const bool broken = current.session && !current.session->is_connected();
    dropThreadState();
    if (broken && mayRepeat) return;
    throw stateError(__LINE__, error.get_error_message() + threadDatabase().circumstance());
  } catch (...) {
    dropThreadState();
    throw;
  }
}

StateChange::StateChange(const StateSession& state) : session_(state.sql) {
  std::atomic<std::chrono::milliseconds>& changeWait = recordOf(state.database).changeWait;
  const std::chrono::milliseconds wait = changeWait;
  try {
    state.database.beginChange(session_, wait);
    changeWait = lockTimeout.load();
  } catch (const soci::soci_error&) {
    changeWait = std::max(wait / 2, std::min(kShortestWait, wait));
    throw;
  }
}

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

std::string checkState() {
  return withState([](StateSession& state) {
    StateChange undone(state);
    for (const char* table : {"list_entry", "preference", "reported"}) {
      state.rows<long long>(std::string("SELECT count(*) FROM ") + table, {});
      state.run(std::string("DELETE FROM ") + table + " WHERE 1 = 0");
    }
    return state.database.name();
  });
}

}  // namespace Velmar::Host
