#pragma once

// The store of what changes at run time: address lists and preferences of users, and how far scheduled runs have come.
// The configuration names it: a file, or a database that several hosts share.

#include <soci/soci.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "host/users_lists/state_database.h"
#include "platform/types.h"

namespace Velmar::Host {

/// From now on the store at this URL is used instead of the configured one; "" = the configured one. Any thread.
void setStateUrl(const std::string& url);

/// How long an operation waits for others that hold the store's lock, at first 5 s. Holds for sessions that are opened
/// from now on; any thread.
void setStateLockTimeout(std::chrono::milliseconds timeout);

/// The key under which an address is looked up: its domain (after the last "@") in ASCII lower case.
std::string addressKey(std::string_view address);

/// The exception that names the store and `reason`.
Exception stateError(int line, const std::string& reason);

/// A query that a session keeps prepared, with the places of its values and of a row.
struct KeptQuery {
  explicit KeptQuery(soci::session& session) : statement(session) {}
  KeptQuery(const KeptQuery&) = delete;
  KeptQuery& operator=(const KeptQuery&) = delete;
  virtual ~KeptQuery() = default;

  std::vector<std::string> values;  // the statement keeps pointers to them
  soci::statement statement;
};

/// By their texts. They must be gone before their session is.
using KeptQueries = std::map<std::string, std::unique_ptr<KeptQuery>>;

/// An open session with the store, and statements in it. Values of all types are given as texts of any bytes but NUL,
/// in the order of their marks (":a") in the statement. Throws Exception or soci::soci_error.
struct StateSession {
  soci::session& sql;
  const StateDatabase& database;
  KeptQueries& queries;

  /// Runs a statement that gives no rows.
  void run(const std::string& statement, std::vector<std::string> values = {}) const {
    soci::statement prepared(sql);
    prepare(prepared, statement, values);
    prepared.execute(true);
  }

  /// All rows of a query whose columns have these types: std::string, long long. The query is kept, because preparing
  /// it costs more than running it: its text must be one of a few.
  template <class... Columns>
  std::vector<std::tuple<Columns...>> rows(const std::string& query, std::vector<std::string> values) const {
    auto& kept = keptQuery<Columns...>(query, std::move(values));
    std::vector<std::tuple<Columns...>> result;
    for (kept.statement.execute(); kept.statement.fetch();) {
      const auto originals = [this](const Columns&... column) { return std::tuple(original(column)...); };
      result.push_back(std::apply(originals, kept.row));
    }
    return result;
  }

 private:
  template <class... Columns>
  struct QueryOf : KeptQuery {
    using KeptQuery::KeptQuery;
    std::tuple<Columns...> row;
  };

  template <class... Columns>
  QueryOf<Columns...>& keptQuery(const std::string& query, std::vector<std::string> values) const {
    std::unique_ptr<KeptQuery>& kept = queries[query];
    if (kept) {
      setValues(*kept, std::move(values));
    } else {
      auto made = std::make_unique<QueryOf<Columns...>>(sql);
      std::apply([&made](Columns&... column) { (made->statement.exchange(soci::into(column)), ...); }, made->row);
      made->values = std::move(values);
      prepare(made->statement, query, made->values);
      kept = std::move(made);
    }
    return dynamic_cast<QueryOf<Columns...>&>(*kept);
  }

  // The statement keeps pointers to the values. "One time" spares the round trip of preparing it.
  void prepare(soci::statement& prepared, const std::string& text, std::vector<std::string>& values) const;
  // As many as the query was made with.
  void setValues(KeptQuery& query, std::vector<std::string> values) const;
  std::string original(const std::string& text) const { return database.original(text); }
  long long original(long long number) const { return number; }
};

/// The store's database, as this thread uses it; valid until this thread's next call.
StateDatabase& threadDatabase();

/// This thread's session with the store. It is opened on first use and again when the URL, the root or what stands
/// behind them has changed, or the thread has forked; a missing store is created, an older schema brought up to date.
/// It lives until then. Throws Exception or soci::soci_error; call it by withState only.
StateSession threadState();

/// Ends this thread's session, so that the next use opens a new one.
void dropThreadState() noexcept;

/// For a handler of what an operation threw: ends this thread's session, and throws on what it was as an Exception.
/// Returns only when the connection broke in the session, and `mayRepeat`.
void endFailedState(bool mayRepeat);

/// Runs `operation` with this thread's session: the border where the database's errors become Exceptions. A session
/// that saw any exception is not used again; what was not committed is undone with it.
///
/// When the connection broke, as by a server that was restarted, the operation is run once more in a new session. So it
/// must do no harm a second time. Reads do none. A change that broke off before its commit did not happen; of one that
/// broke off in its commit nobody knows, and all changes here leave the same state behind when they happen twice.
template <class Operation>
auto withState(Operation&& operation) {
  const auto run = [&operation] {
    StateSession state = threadState();
    return operation(state);
  };
  try {
    return run();
  } catch (...) {
    endFailedState(true);
  }
  try {
    return run();
  } catch (...) {
    endFailedState(false);
    throw;
  }
}

/// One change of the store: undone unless committed. No other change happens meanwhile.
class StateChange {
 public:
  explicit StateChange(const StateSession& state);
  StateChange(const StateChange&) = delete;
  StateChange& operator=(const StateChange&) = delete;
  ~StateChange();

  /// The change is durable when this returns.
  void commit();

 private:
  soci::session& session_;
  bool open_ = true;
};

}  // namespace Velmar::Host
