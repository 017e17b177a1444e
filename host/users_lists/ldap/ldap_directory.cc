// Chooses server and connection for each look-up. Called by the directory service of the platform and by the check of
// the configuration. The border where what a server failed at becomes the Exception of a look-up.

#include "host/users_lists/ldap/ldap_directory.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <system_error>
#include <utility>

namespace Velmar::Host {

IdleConnections::~IdleConnections() { abandonInherited(); }

// Closing them would end the parent's connections, which share their sockets.
void IdleConnections::abandonInherited() {
  if (process_ == ::getpid()) return;
  for (Idle& idle : idle_) static_cast<void>(idle.connection.release());
  idle_.clear();
  process_ = ::getpid();
}

std::unique_ptr<LdapConnection> IdleConnections::take() {
  std::vector<Idle> old;  // closed when the lock is no longer held
  const std::lock_guard lock(mutex_);
  abandonInherited();
  const auto young = std::find_if(idle_.begin(), idle_.end(), [now = Clock::now(), this](const Idle& idle) {
    return now - idle.since <= longest_;  // they stand in the order in which they came
  });
  old.assign(std::make_move_iterator(idle_.begin()), std::make_move_iterator(young));
  idle_.erase(idle_.begin(), young);
  if (idle_.empty()) return nullptr;
  std::unique_ptr<LdapConnection> connection = std::move(idle_.back().connection);
  idle_.pop_back();
  return connection;
}

void IdleConnections::put(std::unique_ptr<LdapConnection> connection) {
  const std::lock_guard lock(mutex_);
  abandonInherited();
  idle_.push_back({std::move(connection), Clock::now()});
}

void IdleConnections::closeAll(const std::string& url) {
  std::vector<Idle> closed;  // when the lock is no longer held
  const std::lock_guard lock(mutex_);
  abandonInherited();
  const auto others = std::stable_partition(idle_.begin(), idle_.end(),
                                            [&](const Idle& idle) { return idle.connection->url() != url; });
  closed.assign(std::make_move_iterator(others), std::make_move_iterator(idle_.end()));
  idle_.erase(others, idle_.end());
}

LdapDirectory::LdapDirectory(LdapProfileConfig profile, DirectorySettings settings)
    : profile_(std::move(profile)), settings_(settings), idle_(settings.longestIdle) {
  for (const std::string& url : profile_.urls) servers_.push_back(std::make_unique<Server>(url, settings_.pause));
}

std::set<std::string> LdapDirectory::ownersOfGroupsOf(const std::string& user, bool nested) {
  std::set<std::string> addresses;
  perform([&](LdapConnection& connection) {
    addresses = groupOwnerAddresses(connection, profile_, settings_.bounds, user, nested && profile_.nestedGroups);
  });
  return addresses;
}

void LdapDirectory::perform(const Operation& operation) try {
  if (performWithKept(operation)) return;
  std::string failures;
  for (const auto& server : servers_) {
    if (performWith(*server, operation, failures)) return;
  }
  throw directoryError(__LINE__, profile_.number, failures);
} catch (const std::system_error& error) {
  throw directoryError(__LINE__, profile_.number, error.what());  // no further thread or descriptor
}

/// False when there is none, or none that still works: then the servers are asked anew.
bool LdapDirectory::performWithKept(const Operation& operation) {
  std::unique_ptr<LdapConnection> connection = idle_.take();
  if (!connection) return false;
  Server& server = serverOf(connection->url());
  try {
    use(server, std::move(connection), operation);
    return true;
  } catch (const ServerFailed& failure) {
    // A server that closed the connection while it waited is not at fault; one that keeps us waiting is.
    if (failure.timedOut()) failed(server, failure);
    return false;
  }
}

/// What is kept of a server that keeps us waiting would have each of its next users wait as long.
void LdapDirectory::failed(Server& server, const ServerFailed& failure) {
  server.breaker.failed(CircuitBreaker::Clock::now(), failure.what());
  if (failure.timedOut()) idle_.closeAll(server.url);
}

bool LdapDirectory::performWith(Server& server, const Operation& operation, std::string& failures) {
  if (!failures.empty()) failures += "; ";
  if (const auto refusal = server.breaker.refusal(CircuitBreaker::Clock::now())) {
    failures += *refusal;
    return false;
  }
  try {
    use(server, std::make_unique<LdapConnection>(profile_, server.url), operation);
    return true;
  } catch (const ServerFailed& failure) {
    failed(server, failure);
    failures += failure.what();
    return false;
  }
}

void LdapDirectory::use(Server& server, std::unique_ptr<LdapConnection> connection, const Operation& operation) {
  try {
    operation(*connection);
  } catch (...) {
    keep(server, std::move(connection));
    throw;
  }
  keep(server, std::move(connection));
}

/// Also after a look-up that was refused: the server did answer.
void LdapDirectory::keep(Server& server, std::unique_ptr<LdapConnection> connection) {
  if (!connection->isUsable()) return;
  server.breaker.succeeded();
  idle_.put(std::move(connection));
}

LdapDirectory::Server& LdapDirectory::serverOf(const std::string& url) {
  return **std::find_if(servers_.begin(), servers_.end(), [&](const auto& server) { return server->url == url; });
}

std::string LdapDirectory::check() const try {
  std::string answering;
  bool inTheOpen = false;
  for (const auto& server : servers_) {
    LdapConnection connection(profile_, server->url);
    checkSearches(connection, profile_);
    inTheOpen |= server->url.starts_with("ldap:") && !profile_.startTls && !profile_.bindDn.empty();
    answering += (answering.empty() ? "" : ", ") + server->url;
  }
  return answering + (servers_.size() == 1 ? " answers" : " answer") + ", with groups that have owners" +
         (inTheOpen ? "; the password goes there unencrypted" : "");
} catch (const ServerFailed& failure) {
  throw directoryError(__LINE__, profile_.number, failure.what());
} catch (const std::system_error& error) {
  throw directoryError(__LINE__, profile_.number, error.what());
}

}  // namespace Velmar::Host
