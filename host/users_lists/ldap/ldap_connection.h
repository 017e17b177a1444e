#pragma once

// One connection to a directory server.

#include <ldap.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/common/host_config.h"
#include "host/users_lists/ldap/connection_watchdog.h"

namespace Velmar::Host {

/// The server could not be reached, did not answer in time, or refused to serve: another one may do better.
/// The text names the server. It does not leave LdapDirectory.
class ServerFailed : public std::runtime_error {
 public:
  ServerFailed(const std::string& text, bool timedOut) : std::runtime_error(text), timedOut_(timedOut) {}
  bool timedOut() const noexcept { return timedOut_; }

 private:
  bool timedOut_;
};

/// An entry and the values of the one attribute that was asked for, in the order of the server's answer.
struct LdapEntry {
  std::string dn;
  std::vector<std::string> values;
};

/// A search of the entries below `base`, itself included.
struct LdapSearch {
  std::string base;
  std::string filter;
  std::string attribute;  ///< "" = none
  int limit = 1;          ///< so many entries at most, at least 1
};

struct LdapAnswer {
  std::vector<LdapEntry> entries;
  bool whole = true;  ///< false: there are more than the search's or the server's own limit allows
};

/// The exception of this group: "LDAP profile N: TEXT".
Exception directoryError(int line, int profile, const std::string& text);

/// An LDAPv3 connection, bound, over TLS where the profile says so. Each step takes at most the profile's timeout;
/// looking up the host's name is the resolver's business, and each of its addresses may take that long.
/// Certificates are always demanded and checked, referrals are never followed. Nothing process-wide changes: no option
/// of the library, no signal's disposition. One thread at a time.
class LdapConnection {
 public:
  /// profile  must live as long as the connection
  /// Throws ServerFailed; Exception for what no server can mend (password file, CA file, URL).
  LdapConnection(const LdapProfileConfig& profile, const std::string& url);
  LdapConnection(const LdapConnection&) = delete;
  LdapConnection& operator=(const LdapConnection&) = delete;
  ~LdapConnection();

  /// Throws ServerFailed, after which the connection is of no use; Exception when the server refuses the search or
  /// knows only a part of the answer (a missing base, a referral, a right that is lacking).
  LdapAnswer search(const LdapSearch& search);

  /// One entry by its name; nothing when the server says that there is none. Throws as above.
  std::optional<LdapEntry> read(const std::string& dn, const std::string& attribute);

  bool isUsable() const noexcept { return usable_; }
  const std::string& url() const noexcept { return url_; }

 private:
  struct Unbind {
    void operator()(LDAP* handle) const noexcept;
  };
  struct FreeMessage {
    void operator()(LDAPMessage* message) const noexcept { ldap_msgfree(message); }
  };
  using Message = std::unique_ptr<LDAPMessage, FreeMessage>;
  struct Outcome {
    int code;
    Message message;
  };

  static int connected(LDAP*, Sockbuf* socket, LDAPURLDesc*, sockaddr*, ldap_conncb* callback);
  static void closing(LDAP*, Sockbuf*, ldap_conncb*) {}

  void open();
  void set(int option, const void* value, const std::string& name);
  void setOptions();
  void setTls();
  void connect();
  void startTls();
  void bind();
  Outcome run(const LdapSearch& search, int scope);
  void refuseReferral(const std::string& what, const Outcome& outcome);
  std::vector<LdapEntry> entriesOf(LDAPMessage* message);
  LdapEntry entryOf(LDAPMessage* message);
  std::vector<std::string> valuesOf(LDAPMessage* entry, BerElement* position);

  bool timedOut(int code) const;
  std::string reasonOf(int code) const;
  std::string told(const std::string& what, const std::string& reason) const;
  [[noreturn]] void tlsFailed(int code);
  [[noreturn]] void serverFailed(const std::string& what, int code);
  [[noreturn]] void searchFailed(const std::string& what, int code);

  const LdapProfileConfig& profile_;
  const std::string url_;
  const timeval timeout_;
  bool usable_ = true;
  bool connected_ = false;  // a socket is; TLS begins afterwards
  std::string caFile_;      // set when there shall be TLS
  ConnectionWatchdog watchdog_;
  ldap_conncb callback_;
  std::unique_ptr<LDAP, Unbind> handle_;  // last: it is closed while the others still are
};

}  // namespace Velmar::Host
