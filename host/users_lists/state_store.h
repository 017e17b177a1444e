#pragma once

// The store of what changes at run time: address lists and preferences of users, in var/lib/velmar/state.db.

#include <soci/soci.h>

#include <chrono>
#include <string>
#include <string_view>

#include "platform/types.h"

namespace Velmar::Host {

/// Path of the store, below the root.
std::string statePath();

/// How long an operation waits for others that hold the store's lock, at first 5 s. Holds for stores that are opened
/// from now on; any thread.
void setStateLockTimeout(std::chrono::milliseconds timeout);

/// The key under which an address is looked up: its domain (after the last "@") in ASCII lower case.
std::string addressKey(std::string_view address);

/// The exception that names the store and `reason`.
Exception stateError(int line, const std::string& reason);

/// This thread's session with the store at statePath(). It is opened on first use and again when the path or the file
/// behind it has changed or the process has forked; a missing store is created. It lives until then.
/// Throws Exception or soci::soci_error; call it by withState only.
soci::session& threadState();

/// Ends this thread's session, so that the next use opens a new one.
void dropThreadState() noexcept;

/// Runs `operation` with this thread's session: the border where the database's errors become Exceptions. A session
/// that saw any exception is not used again; what was not committed is undone with it.
template <class Operation>
auto withState(Operation&& operation) try {
  return operation(threadState());
} catch (const soci::soci_error& error) {
  dropThreadState();
  throw stateError(__LINE__, error.get_error_message());
} catch (...) {
  dropThreadState();
  throw;
}

/// One change of the store: undone unless committed. It takes the write lock at once, because a change that begins by
/// reading fails at its first write when another process wrote meanwhile.
class StateChange {
 public:
  explicit StateChange(soci::session& session);
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
