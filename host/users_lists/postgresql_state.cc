// The state store in a PostgreSQL database, which several hosts can share. Called by the state store, which keeps the
// sessions and the schema. It must not show a password, nor wait without end for a server.

#include <unistd.h>

#include "host/users_lists/postgresql_url.h"
#include "host/users_lists/state_database.h"

namespace Velmar::Host {
namespace {

using namespace std::chrono_literals;

// Advisory locks of this system: the first number tells it from others in the same database.
constexpr char kChangeLock[] = "(1449946482, 1)";
constexpr char kRunLock[] = "(1449946482, 2)";

constexpr auto kLongestStatement = 30s;
constexpr auto kRunLockWait = 5s;

int number(soci::session& session, const std::string& query) {
  int value = 0;
  session << query, soci::into(value);
  return value;
}

std::string milliseconds(std::chrono::milliseconds time) { return "'" + std::to_string(time.count()) + "'"; }

// How soon the server gives up a host that was lost without a word, as by a power cut: the change or the scheduled run
// that it was at would else keep all others out for hours. Servers differ in what they know.
constexpr char kGiveUpLostHosts[] =
    "SELECT set_config(name, value, false) FROM pg_settings JOIN (VALUES ('tcp_keepalives_idle', '30'), "
    "('tcp_keepalives_interval', '10'), ('tcp_keepalives_count', '3'), ('tcp_user_timeout', '60000')) "
    "AS wanted (name, value) USING (name)";

// A lock that ends with its session. A child of the process leaves the connection alone, as it is not its own.
class SessionHold : public RunHold {
 public:
  explicit SessionHold(std::unique_ptr<soci::session> session) : session_(std::move(session)), process_(::getpid()) {}

  ~SessionHold() override {
    if (process_ != ::getpid()) static_cast<void>(session_.release());
  }

  bool isHeld() noexcept override { return process_ == ::getpid() && session_->is_connected(); }

 private:
  std::unique_ptr<soci::session> session_;
  pid_t process_;
};

bool isPlain(char c) { return c >= ' ' && c <= '~' && c != '\\'; }

class PostgresqlState : public StateDatabase {
 public:
  PostgresqlState(const std::string& url, PostgresqlUrl parts)
      : StateDatabase(url, parts.name), connect_(std::move(parts.connect)), secrets_(std::move(parts.secrets)) {}

  std::unique_ptr<soci::session> open(std::chrono::milliseconds wait) const override {
    auto session = std::make_unique<soci::session>("postgresql", connect_);
    // Notices would go to standard error. Whoever set a limit of time in the URL, for the user or for the database
    // keeps it.
    *session << "SET client_min_messages = warning; SET lock_timeout = " + milliseconds(wait) +
                    "; SELECT set_config('statement_timeout', " + milliseconds(kLongestStatement) +
                    ", false) WHERE current_setting('statement_timeout') = '0'; " + kGiveUpLostHosts;
    return session;
  }

  // Changes wait for each other instead of failing and being tried again; readers wait for nobody. Each statement sees
  // all that was committed before it, also under a server whose default is another level.
  void beginChange(soci::session& session, std::chrono::milliseconds wait) const override {
    session << "BEGIN ISOLATION LEVEL READ COMMITTED; SET LOCAL lock_timeout = " + milliseconds(wait) +
                   "; SELECT pg_advisory_xact_lock" + kChangeLock;
  }

  int schemaVersion(soci::session& session) const override {
    if (number(session, "SELECT count(*) FROM pg_class WHERE oid = to_regclass('velmar_schema')") == 0) return 0;
    if (number(session, "SELECT count(*) FROM velmar_schema") != 1) {
      throw error(__LINE__, "its table velmar_schema does not hold one version");
    }
    return number(session, "SELECT version FROM velmar_schema");
  }

  void setSchemaVersion(soci::session& session, int version) const override {
    session << "CREATE TABLE IF NOT EXISTS velmar_schema (version INTEGER NOT NULL); DELETE FROM velmar_schema; "
               "INSERT INTO velmar_schema VALUES (" +
                   std::to_string(version) + ")";
  }

  bool isForeign(soci::session& session, int version) const override {
    return version == 0 && number(session, "SELECT count(*) FROM pg_tables WHERE schemaname = current_schema()") != 0;
  }

  const char* growingKeyType() const override { return "BIGINT GENERATED ALWAYS AS IDENTITY PRIMARY KEY"; }
  const char* textType() const override { return "TEXT COLLATE \"C\""; }

  // Plain ASCII, which every database holds whatever its encoding; other bytes and backslashes as \hh.
  std::string stored(const std::string& text) const override {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string result;
    for (const char c : text) {
      if (isPlain(c)) {
        result += c;
      } else {
        const unsigned byte = static_cast<unsigned char>(c);
        result.append({'\\', kDigits[byte >> 4], kDigits[byte & 15]});
      }
    }
    return result;
  }

  std::string original(const std::string& text) const override { return hexDecoded(text, '\\'); }

  std::unique_ptr<RunHold> tryHoldRuns() const override {
    auto session = open(kRunLockWait);
    // It says nothing between two looks at it; newer servers can end such a session.
    *session << "SELECT set_config(name, '0', false) FROM pg_settings WHERE name = 'idle_session_timeout'";
    const std::string held = std::string("pg_try_advisory_lock") + kRunLock;
    if (number(*session, "SELECT CASE WHEN " + held + " THEN 1 ELSE 0 END") == 0) return nullptr;
    return std::make_unique<SessionHold>(std::move(session));
  }

 protected:
  std::string withoutSecrets(const std::string& text) const override {
    std::string result = text;
    for (const std::string& secret : secrets_) {
      for (std::size_t at = 0; (at = result.find(secret, at)) != std::string::npos; at += 3) {
        result.replace(at, secret.size(), "***");
      }
    }
    return result;
  }

 private:
  std::string connect_;
  std::vector<std::string> secrets_;
};

}  // namespace

std::unique_ptr<StateDatabase> postgresqlState(const std::string& url) {
  return std::make_unique<PostgresqlState>(url, parsePostgresqlUrl(url));
}

}  // namespace Velmar::Host
