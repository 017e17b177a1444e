#pragma once

// The directory of one LDAP profile.

#include <unistd.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "host/common/host_config.h"
#include "host/users_lists/circuit_breaker.h"
#include "host/users_lists/ldap/group_owners.h"
#include "host/users_lists/ldap/ldap_connection.h"

namespace Velmar::Host {

/// Connections that wait for their next use. Any thread; a child of the process that opened them leaves them alone.
class IdleConnections {
 public:
  /// Those that wait for longer than `longest` are closed instead of given out: who knows what became of them.
  explicit IdleConnections(std::chrono::milliseconds longest) : longest_(longest) {}
  IdleConnections(const IdleConnections&) = delete;
  IdleConnections& operator=(const IdleConnections&) = delete;
  ~IdleConnections();

  /// The one used last; null when there is none.
  std::unique_ptr<LdapConnection> take();

  /// Keeps a usable connection.
  void put(std::unique_ptr<LdapConnection> connection);

  /// Closes all connections with the server at this URL.
  void closeAll(const std::string& url);

 private:
  using Clock = std::chrono::steady_clock;
  struct Idle {
    std::unique_ptr<LdapConnection> connection;
    Clock::time_point since;
  };

  void abandonInherited();

  const std::chrono::milliseconds longest_;
  std::mutex mutex_;
  std::vector<Idle> idle_;
  pid_t process_ = ::getpid();
};

struct DirectorySettings {
  OwnerBounds bounds;
  std::chrono::milliseconds pause{60'000};        ///< how long a server that failed is left alone
  std::chrono::milliseconds longestIdle{30'000};  ///< how long a connection waits for its next use
};

/// Looks things up with the profile's servers, in their order. A server that fails (does not answer in time, refuses
/// the bind, has a wrong certificate) is left alone for a while; when all are, look-ups fail at once. A connection is
/// kept for the next look-up of any thread; when the server has closed it meanwhile, the look-up is repeated with a new
/// one. Any number of threads, each with a connection of its own.
class LdapDirectory {
 public:
  explicit LdapDirectory(LdapProfileConfig profile, DirectorySettings settings = {});

  /// See groupOwnerAddresses in group_owners.h. nested counts only where the profile follows nested groups.
  /// Throws Exception that names the profile and the servers.
  std::set<std::string> ownersOfGroupsOf(const std::string& user, bool nested);

  /// Connects to each server, whatever is known of it, and tries the searches of a look-up there. Returns a line that
  /// says what answered. Throws Exception for the first fault.
  std::string check() const;

 private:
  using Operation = std::function<void(LdapConnection&)>;
  struct Server {
    Server(std::string serverUrl, std::chrono::milliseconds pause) : url(std::move(serverUrl)), breaker(pause) {}
    std::string url;
    CircuitBreaker breaker;
  };

  void perform(const Operation& operation);
  bool performWithKept(const Operation& operation);
  bool performWith(Server& server, const Operation& operation, std::string& failures);
  void use(Server& server, std::unique_ptr<LdapConnection> connection, const Operation& operation);
  void failed(Server& server, const ServerFailed& failure);
  void keep(Server& server, std::unique_ptr<LdapConnection> connection);
  Server& serverOf(const std::string& url);

  const LdapProfileConfig profile_;
  const DirectorySettings settings_;
  std::vector<std::unique_ptr<Server>> servers_;
  IdleConnections idle_;
};

}  // namespace Velmar::Host
