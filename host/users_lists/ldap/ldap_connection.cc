// Speaks to one directory server through the LDAP library. Called by LdapDirectory, which chooses the server, and by
// the search for group owners. An answer that is not whole never looks like an empty one: whatever is not surely
// success is an exception.

#include "host/users_lists/ldap/ldap_connection.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "host/common/descriptor.h"
#include "host/common/root.h"
#include "host/common/secret_file.h"
#include "host/host.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kMaxPassword = 1024;

/// The library writes to sockets that the server may have closed. As long as this lives, that sends no SIGPIPE to this
/// thread, whatever the program does with the signal.
class NoSigpipe {
 public:
  NoSigpipe() noexcept {
    sigset_t waiting;
    sigpending(&waiting);
    mine_ = sigismember(&waiting, SIGPIPE) == 0;
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  NoSigpipe(const NoSigpipe&) = delete;
  NoSigpipe& operator=(const NoSigpipe&) = delete;
  ~NoSigpipe() {
    const int error = errno;
    const timespec now{};
    if (mine_) sigtimedwait(&pipe_, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    errno = error;
  }

 private:
  sigset_t pipe_{};
  sigset_t before_{};
  bool mine_ = false;  // none was waiting before
};

struct FreeMemory {
  void operator()(char* text) const noexcept { ldap_memfree(text); }
};
using Text = std::unique_ptr<char, FreeMemory>;

struct FreeBer {
  void operator()(BerElement* ber) const noexcept { ber_free(ber, 0); }
};

struct FreeValues {
  void operator()(berval* values) const noexcept { ber_memfree(values); }  // they themselves are part of the message
};

/// Where systems keep the authorities that they trust, in one file. The library's handles know none by themselves.
constexpr const char* kSystemAuthorities[] = {"/etc/ssl/certs/ca-certificates.crt", "/etc/pki/tls/certs/ca-bundle.crt",
                                              "/etc/ssl/cert.pem"};

bool isReadable(const std::string& path) {
  return Descriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY)).isOpen();
}

/// The file of the authorities that the profile trusts; the TLS library would only say that something is wrong with it.
std::string authorities(const LdapProfileConfig& profile) {
  if (!profile.caFile.empty()) {
    std::string path = underRoot(profile.caFile);
    if (isReadable(path)) return path;
    const std::string reason = std::generic_category().message(errno);
    throw directoryError(__LINE__, profile.number, "CA file " + path + " cannot be opened: " + reason);
  }
  for (const char* path : kSystemAuthorities) {
    if (isReadable(path)) return path;
  }
  throw directoryError(__LINE__, profile.number, "no authorities that the system trusts are found: set ca_file");
}

/// The first line of the password file. A bind with an empty one would succeed without proving anything.
std::string passwordOf(const LdapProfileConfig& profile) try {
  const char* const what = "password file";
  const std::string path = underRoot(profile.passwordFile);
  std::string text = readSecretFile(what, path, kMaxPassword + 2);  // with the longest end of the line
  std::string password = takeLine(text);
  if (password.empty()) throw secretFileFault(what, path, "has an empty first line");
  if (password.size() > kMaxPassword) throw secretFileFault(what, path, "has a first line of over 1024 bytes");
  return password;
} catch (const Exception& e) {
  throw directoryError(__LINE__, profile.number, e.text());
}

/// Whether a search's result means that this server does not serve now, rather than that it refuses the search.
bool isServersFault(int code) {
  return code == LDAP_SERVER_DOWN || code == LDAP_CONNECT_ERROR || code == LDAP_TIMEOUT || code == LDAP_BUSY ||
         code == LDAP_UNAVAILABLE || code == LDAP_TIMELIMIT_EXCEEDED || code == LDAP_DECODING_ERROR;
}

std::string quoted(const std::string& text) { return '"' + printable(text) + '"'; }

}  // namespace

Exception directoryError(int line, int profile, const std::string& text) {
  return Exception("DirectoryException", 4, "LdapDirectory", line,
                   "LDAP profile " + std::to_string(profile) + ": " + text);
}

void LdapConnection::Unbind::operator()(LDAP* handle) const noexcept {
  const NoSigpipe quiet;
  ldap_unbind_ext(handle, nullptr, nullptr);
}

LdapConnection::LdapConnection(const LdapProfileConfig& profile, const std::string& url)
    : profile_(profile),
      url_(url),
      timeout_{.tv_sec = profile.timeout, .tv_usec = 0},
      watchdog_(std::chrono::seconds(profile.timeout)),
      callback_{&LdapConnection::connected, &LdapConnection::closing, this} {
  try {
    open();
  } catch (...) {
    watchdog_.shutDown();  // else taking leave of a stalled server could block
    throw;
  }
}

LdapConnection::~LdapConnection() {
  const ConnectionWatchdog::Step step(watchdog_);
  if (!usable_) watchdog_.shutDown();
  handle_.reset();
}

void LdapConnection::open() {
  LDAP* handle = nullptr;
  const int code = ldap_initialize(&handle, url_.c_str());
  handle_.reset(handle);
  if (code != LDAP_SUCCESS) throw directoryError(__LINE__, profile_.number, told("not usable", ldap_err2string(code)));
  setOptions();
  if (profile_.startTls || url_.starts_with("ldaps:")) setTls();
  connect();
  if (profile_.startTls) startTls();
  bind();
}

int LdapConnection::connected(LDAP*, Sockbuf* socket, LDAPURLDesc*, sockaddr*, ldap_conncb* callback) try {
  ber_socket_t descriptor = -1;
  if (ber_sockbuf_ctrl(socket, LBER_SB_OPT_GET_FD, &descriptor) != 1) return -1;
  auto& connection = *static_cast<LdapConnection*>(callback->lc_arg);
  connection.connected_ = true;
  connection.watchdog_.watch(descriptor);
  return 0;
} catch (const std::exception&) {
  return -1;  // an unwatched connection is none; the library reports that it cannot connect
}

void LdapConnection::set(int option, const void* value, const std::string& name) {
  if (ldap_set_option(handle_.get(), option, value) == LDAP_OPT_SUCCESS) return;
  throw directoryError(__LINE__, profile_.number, told(name, "cannot be set"));
}

// The system's own configuration of the library may say otherwise: what matters is set, whatever the default.
void LdapConnection::setOptions() {
  const int version = LDAP_VERSION3;
  const int neverDereference = LDAP_DEREF_NEVER;
  set(LDAP_OPT_PROTOCOL_VERSION, &version, "protocol version");
  set(LDAP_OPT_REFERRALS, LDAP_OPT_OFF, "not following referrals");
  set(LDAP_OPT_RESTART, LDAP_OPT_ON, "going on after a signal");
  set(LDAP_OPT_DEREF, &neverDereference, "not following aliases");
  set(LDAP_OPT_NETWORK_TIMEOUT, &timeout_, "timeout");
  set(LDAP_OPT_TIMEOUT, &timeout_, "timeout");
  set(LDAP_OPT_CONNECT_CB, &callback_, "watching the connection");
}

void LdapConnection::setTls() {
  const int demand = LDAP_OPT_X_TLS_DEMAND;
  const int oldest = LDAP_OPT_X_TLS_PROTOCOL_TLS1_2;
  const int client = 0;
  set(LDAP_OPT_X_TLS_REQUIRE_CERT, &demand, "demanding a certificate");
  set(LDAP_OPT_X_TLS_PROTOCOL_MIN, &oldest, "oldest version of TLS");
  caFile_ = authorities(profile_);
  set(LDAP_OPT_X_TLS_CACERTFILE, caFile_.c_str(), "CA file " + caFile_);
  // Last, because the other TLS options count only for a context that is made after them.
  set(LDAP_OPT_X_TLS_NEWCTX, &client, "TLS with CA file " + caFile_);
}

void LdapConnection::connect() {
  const NoSigpipe quiet;
  const ConnectionWatchdog::Step step(watchdog_);
  errno = 0;
  const int code = ldap_connect(handle_.get());
  if (code == LDAP_SUCCESS) return;
  if (connected_ && url_.starts_with("ldaps:")) tlsFailed(code);
  serverFailed("cannot connect", code);
}

void LdapConnection::startTls() {
  const NoSigpipe quiet;
  const ConnectionWatchdog::Step step(watchdog_);
  errno = 0;
  const int code = ldap_start_tls_s(handle_.get(), nullptr, nullptr);
  if (code == LDAP_CONNECT_ERROR) tlsFailed(code);
  if (code != LDAP_SUCCESS) serverFailed("StartTLS", code);
}

// The library does not tell which of its checks of the certificate failed.
void LdapConnection::tlsFailed(int code) {
  if (timedOut(code)) serverFailed("TLS", code);
  serverFailed("TLS, with a valid certificate for this host by an authority in " + caFile_, code);
}

// Also without a name: the answer shows that there is a directory.
void LdapConnection::bind() {
  std::string password = profile_.bindDn.empty() ? "" : passwordOf(profile_);
  const NoSigpipe quiet;
  const ConnectionWatchdog::Step step(watchdog_);
  berval credential{.bv_len = password.size(), .bv_val = password.data()};
  errno = 0;
  const int code = ldap_sasl_bind_s(handle_.get(), profile_.bindDn.c_str(), LDAP_SASL_SIMPLE, &credential, nullptr,
                                    nullptr, nullptr);
  explicit_bzero(password.data(), password.size());
  if (code == LDAP_SUCCESS) return;
  serverFailed(profile_.bindDn.empty() ? "anonymous bind" : "bind as " + quoted(profile_.bindDn), code);
}

LdapConnection::Outcome LdapConnection::run(const LdapSearch& search, int scope) {
  std::string attribute = search.attribute.empty() ? LDAP_NO_ATTRS : search.attribute;
  char* attributes[] = {attribute.data(), nullptr};
  timeval timeout = timeout_;
  LDAPMessage* message = nullptr;
  const NoSigpipe quiet;
  const ConnectionWatchdog::Step step(watchdog_);
  errno = 0;
  const int code = ldap_search_ext_s(handle_.get(), search.base.c_str(), scope, search.filter.c_str(), attributes, 0,
                                     nullptr, nullptr, &timeout, search.limit, &message);
  return {code, Message(message)};
}

LdapAnswer LdapConnection::search(const LdapSearch& search) {
  const std::string what = "search of " + printable(search.filter) + " below " + quoted(search.base);
  const Outcome outcome = run(search, LDAP_SCOPE_SUBTREE);
  refuseReferral(what, outcome);
  const bool whole = outcome.code != LDAP_SIZELIMIT_EXCEEDED;
  if (whole && outcome.code != LDAP_SUCCESS) searchFailed(what, outcome.code);
  return {entriesOf(outcome.message.get()), whole};
}

std::optional<LdapEntry> LdapConnection::read(const std::string& dn, const std::string& attribute) {
  const std::string what = "entry " + quoted(dn);
  if (dn.find('\0') != std::string::npos) searchFailed(what, LDAP_INVALID_DN_SYNTAX);
  const Outcome outcome = run({.base = dn, .filter = "(objectClass=*)", .attribute = attribute}, LDAP_SCOPE_BASE);
  if (outcome.code == LDAP_NO_SUCH_OBJECT) return std::nullopt;
  refuseReferral(what, outcome);
  if (outcome.code != LDAP_SUCCESS) searchFailed(what, outcome.code);
  std::vector<LdapEntry> entries = entriesOf(outcome.message.get());
  // Success without the entry: this user may know of it, but not read it.
  if (entries.size() != 1) throw directoryError(__LINE__, profile_.number, told(what, "may not be read"));
  return std::move(entries.front());
}

void LdapConnection::refuseReferral(const std::string& what, const Outcome& outcome) {
  const bool refers = outcome.code == LDAP_REFERRAL || outcome.code == LDAP_PARTIAL_RESULTS ||
                      (outcome.message && ldap_count_references(handle_.get(), outcome.message.get()) > 0);
  if (!refers) return;
  throw directoryError(
      __LINE__, profile_.number,
      told(what, "the server refers to another server for a part of the answer; referrals are not followed"));
}

std::vector<LdapEntry> LdapConnection::entriesOf(LDAPMessage* message) {
  std::vector<LdapEntry> entries;
  for (LDAPMessage* entry = ldap_first_entry(handle_.get(), message); entry;
       entry = ldap_next_entry(handle_.get(), entry)) {
    entries.push_back(entryOf(entry));
  }
  return entries;
}

LdapEntry LdapConnection::entryOf(LDAPMessage* message) {
  BerElement* position = nullptr;
  berval dn{};
  const int code = ldap_get_dn_ber(handle_.get(), message, &position, &dn);
  const std::unique_ptr<BerElement, FreeBer> owner(position);
  if (code != LDAP_SUCCESS) serverFailed("reading an answer", code);
  return {std::string(dn.bv_val, dn.bv_len), valuesOf(message, position)};
}

// Only one attribute was asked for: all values are its, also when the server knows it by another name or gives it in
// several pieces.
std::vector<std::string> LdapConnection::valuesOf(LDAPMessage* entry, BerElement* position) {
  std::vector<std::string> values;
  for (;;) {
    berval attribute{};
    BerVarray found = nullptr;
    const int code = ldap_get_attribute_ber(handle_.get(), entry, position, &attribute, &found);
    const std::unique_ptr<berval[], FreeValues> owner(found);
    if (code != LDAP_SUCCESS) serverFailed("reading an answer", code);
    if (!attribute.bv_val) return values;
    const std::string name(attribute.bv_val, attribute.bv_len);
    if (::strcasestr(name.c_str(), ";range=")) {
      throw directoryError(__LINE__, profile_.number,
                           told("attribute " + printable(name), "the server gives only a part of its values"));
    }
    for (; found && found->bv_val; ++found) values.emplace_back(found->bv_val, found->bv_len);
  }
}

bool LdapConnection::timedOut(int code) const { return code == LDAP_TIMEOUT || watchdog_.hasBitten(); }

std::string LdapConnection::reasonOf(int code) const {
  const int error = errno;
  if (timedOut(code)) return "no answer within " + std::to_string(profile_.timeout) + " s";
  std::string reason = ldap_err2string(code);
  char* told = nullptr;
  ldap_get_option(handle_.get(), LDAP_OPT_DIAGNOSTIC_MESSAGE, &told);
  const Text diagnostic(told);
  if (diagnostic && *diagnostic) return reason + ": " + printable(diagnostic.get());
  if (code == LDAP_SERVER_DOWN && error != 0) return reason + ": " + std::generic_category().message(error);
  return reason;
}

std::string LdapConnection::told(const std::string& what, const std::string& reason) const {
  return url_ + ": " + what + ": " + reason;
}

void LdapConnection::serverFailed(const std::string& what, int code) {
  usable_ = false;
  throw ServerFailed(told(what, reasonOf(code)), timedOut(code));
}

void LdapConnection::searchFailed(const std::string& what, int code) {
  if (isServersFault(code)) serverFailed(what, code);
  throw directoryError(__LINE__, profile_.number, told(what, reasonOf(code)));
}

}  // namespace Velmar::Host
