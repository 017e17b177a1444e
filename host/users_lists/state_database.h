#pragma once

// What differs between the databases that can be the state store.

#include <soci/soci.h>

#include <chrono>
#include <memory>
#include <string>

#include "platform/types.h"

namespace Velmar::Host {

/// The right to make the scheduled reports, for as long as it lives.
class RunHold {
 public:
  virtual ~RunHold() = default;

  /// False when the right was lost, so that another run may have it.
  virtual bool isHeld() noexcept = 0;
};

/// One database as the state store. Its operations throw Exception or soci::soci_error. Not for two threads at once.
class StateDatabase {
 public:
  /// place  what differs for any two stores; never shown
  /// name   how messages name the store: without password
  StateDatabase(std::string place, std::string name) : place_(std::move(place)), name_(std::move(name)) {}
  StateDatabase(const StateDatabase&) = delete;
  StateDatabase& operator=(const StateDatabase&) = delete;
  virtual ~StateDatabase() = default;

  const std::string& place() const noexcept { return place_; }
  const std::string& name() const noexcept { return name_; }

  /// The exception that names the store and `reason`, in one line and without the secrets of its URL.
  Exception error(int line, const std::string& reason) const;

  /// What the system says of the store's place, for an error of the database, which does not tell: " (...)" or "".
  virtual std::string circumstance() const { return {}; }

  /// Looks before a session is opened whether a store that this process has used is still there. Throws when surely
  /// not.
  virtual void refuseVanished() const {}

  /// Looks before a session is opened in a process that has inherited sessions by a fork. Throws when they would harm.
  virtual void refuseInherited() const {}

  /// Opens a session. A missing store may be made by it, without a schema.
  /// wait  how long each operation waits for others that hold a lock
  virtual std::unique_ptr<soci::session> open(std::chrono::milliseconds wait) const = 0;

  /// Tells apart what stood behind the place when a session was opened and what stands there now.
  virtual std::string identity() const { return {}; }

  /// Begins a transaction and takes the one write lock at once, so that changes happen one after the other: a change
  /// that begins by reading would else fail at its first write, or overwrite, when another one wrote meanwhile.
  /// wait  how long it waits for the lock; at least 1 ms
  virtual void beginChange(soci::session& session, std::chrono::milliseconds wait) const = 0;

  /// The version that the schema has; 0 = there is none.
  virtual int schemaVersion(soci::session& session) const = 0;
  virtual void setSchemaVersion(soci::session& session, int version) const = 0;

  /// Whether a database of this schema version is another system's, and must not be touched.
  virtual bool isForeign(soci::session& session, int version) const = 0;

  /// Types in the words of this database: of a key that grows for ever, and of texts that compare byte by byte.
  virtual const char* growingKeyType() const = 0;
  virtual const char* textType() const = 0;

  /// Any bytes in the form in which this database can hold them, and back. Equal texts stay equal, others different.
  virtual std::string stored(const std::string& text) const { return text; }
  virtual std::string original(const std::string& text) const { return text; }

  /// The right to make the scheduled reports; null when another run holds it.
  virtual std::unique_ptr<RunHold> tryHoldRuns() const = 0;

 protected:
  /// The text with whatever must not be shown taken out.
  virtual std::string withoutSecrets(const std::string& text) const { return text; }

 private:
  std::string place_;
  std::string name_;
};

/// A file by SQLite; its path is one of the system, below the root.
std::unique_ptr<StateDatabase> sqliteState(const std::string& systemPath);

/// A PostgreSQL database at a URL "postgresql://...". Throws Exception when the URL cannot be read.
std::unique_ptr<StateDatabase> postgresqlState(const std::string& url);

}  // namespace Velmar::Host
