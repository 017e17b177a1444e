// Opens and holds one session with a mail server for the SMTP transport. libcurl connects, encrypts and logs in
// (CURLOPT_CONNECT_ONLY); after that every byte is ours, since libcurl's own dialogue knows no verdict per recipient.
// Nothing here knows of mails.

#include "host/mail_builder/hand_over/smtp_connection.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "host/host.h"

namespace Velmar::Host {
namespace {

using std::chrono::milliseconds;

constexpr long long kSlowestBytesPerSecond = 16384;
constexpr milliseconds kQuitWait{1000};

bool curlIsReady() {
  static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
  return ready == CURLE_OK;
}

bool isLoopback(const struct sockaddr& address) {
  if (address.sa_family == AF_INET) {
    const auto& v4 = reinterpret_cast<const struct sockaddr_in&>(address);
    return (ntohl(v4.sin_addr.s_addr) >> 24) == 127;
  }
  if (address.sa_family != AF_INET6) return false;
  const auto& v6 = reinterpret_cast<const struct sockaddr_in6&>(address);
  return IN6_IS_ADDR_LOOPBACK(&v6.sin6_addr);
}

/// The time that so many bytes may take to leave.
milliseconds timeToSend(std::size_t bytes, milliseconds timeout) {
  return timeout + milliseconds(static_cast<long long>(bytes) * 1000 / kSlowestBytesPerSecond);
}

}  // namespace

SmtpConnection::SmtpConnection(const SmtpServer& server) : server_(server) {
  if (curlIsReady()) curl_.reset(curl_easy_init());
  if (!curl_) lose("libcurl cannot be started");
  configure();
  connect();
}

SmtpConnection::~SmtpConnection() {
  if (lost_) return;
  try {
    send("QUIT\r\n");
    waitFor(POLLIN, Clock::now() + kQuitWait);
  } catch (const SessionLost&) {
    // The server has gone first; nothing depends on it.
  }
}

void SmtpConnection::configure() {
  const auto set = [this](CURLoption option, auto value) {
    if (curl_easy_setopt(curl_.get(), option, value) != CURLE_OK) {
      lose("libcurl does not take option " + std::to_string(static_cast<int>(option)));
    }
  };
  set(CURLOPT_ERRORBUFFER, curlError_);
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_URL, server_.url.c_str());
  set(CURLOPT_PROTOCOLS_STR, "smtp,smtps");
  set(CURLOPT_PROXY, "");  // no proxy of the environment
  set(CURLOPT_CONNECT_ONLY, 1L);
  set(CURLOPT_TIMEOUT_MS, static_cast<long>(server_.timeout.count()));  // from the name to the login
  set(CURLOPT_USE_SSL, static_cast<long>(server_.startTls));
  set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  set(CURLOPT_SSL_VERIFYPEER, 1L);
  set(CURLOPT_SSL_VERIFYHOST, 2L);
  if (!server_.caFile.empty()) {
    set(CURLOPT_CAINFO, server_.caFile.c_str());
    set(CURLOPT_CAPATH, static_cast<char*>(nullptr));  // else the system's are trusted as well
  }
  if (!server_.user.empty()) {
    set(CURLOPT_USERNAME, server_.user.c_str());
    set(CURLOPT_PASSWORD, server_.password.c_str());
  }
  set(CURLOPT_HEADERFUNCTION, &SmtpConnection::onReplyLine);
  set(CURLOPT_HEADERDATA, static_cast<void*>(this));
  set(CURLOPT_OPENSOCKETFUNCTION, &SmtpConnection::onSocket);
  set(CURLOPT_OPENSOCKETDATA, static_cast<void*>(this));
}

void SmtpConnection::connect() {
  const CURLcode code = curl_easy_perform(curl_.get());
  const std::string said = lastReply_.empty() ? "" : " (the server's last reply: " + lastReply_ + ")";
  if (refusedAddress_) lose("no connection to " + server_.name + ": no password in clear to another host");
  if (!greeting_.fault().empty()) lose("no session with " + server_.name + ": " + greeting_.fault());
  if (code != CURLE_OK) {
    const std::string why = *curlError_ ? curlError_ : curl_easy_strerror(code);
    lose("no session with " + server_.name + ": " + printable(why) + said);
  }
  // libcurl goes on without a login when the server offers none.
  if (!server_.user.empty() && !authenticated_) lose("no login at " + server_.name + ": it offers no AUTH" + said);
  if (curl_easy_getinfo(curl_.get(), CURLINFO_ACTIVESOCKET, &socket_) != CURLE_OK || socket_ == CURL_SOCKET_BAD) {
    lose("no connection to " + server_.name);
  }
}

/// Called by libcurl for each line of the replies while it connects.
std::size_t SmtpConnection::onReplyLine(char* bytes, std::size_t one, std::size_t size, void* self) noexcept {
  auto& connection = *static_cast<SmtpConnection*>(self);
  connection.takeGreetingLine({bytes, one * size});
  return connection.greeting_.fault().empty() ? one * size : 0;
}

void SmtpConnection::takeGreetingLine(std::string_view line) {
  greeting_.feed(line);
  while (const auto reply = greeting_.next()) {
    lastReply_ = describe(*reply);
    // Of several EHLO (STARTTLS forgets the first) the last one counts; no other reply has this code.
    if (reply->code == 250) offered_ = parseEhlo(*reply);
    if (reply->code == 235) authenticated_ = true;
  }
}

/// Called by libcurl for each address of the server: the last chance to keep a password from leaving in clear.
curl_socket_t SmtpConnection::onSocket(void* self, curlsocktype, struct curl_sockaddr* address) noexcept {
  auto& connection = *static_cast<SmtpConnection*>(self);
  if (connection.server_.loopbackOnly && !isLoopback(address->addr)) {
    connection.refusedAddress_ = true;
    return CURL_SOCKET_BAD;
  }
  return ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

bool SmtpConnection::send(std::string_view bytes) {
  expectSilence();
  const auto deadline = Clock::now() + timeToSend(bytes.size(), server_.timeout);
  while (!bytes.empty()) {
    std::size_t sent = 0;
    const CURLcode code = curl_easy_send(curl_.get(), bytes.data(), bytes.size(), &sent);
    if (code == CURLE_OK) {
      bytes.remove_prefix(sent);
    } else if (code == CURLE_AGAIN) {
      waitFor(POLLOUT, std::min(deadline, Clock::now() + server_.timeout));
    } else {
      return false;
    }
  }
  return true;
}

SmtpReply SmtpConnection::receive(int patience) {
  const auto deadline = Clock::now() + patience * server_.timeout;
  for (;;) {
    if (auto reply = replies_.next()) {
      if (reply->code == 421) lose(describe(*reply), true);
      return std::move(*reply);
    }
    if (!replies_.fault().empty()) lose("the server does not speak SMTP: " + replies_.fault());
    if (!readSome()) waitFor(POLLIN, deadline);
  }
}

void SmtpConnection::endTransaction() {
  if (!transactionOpen_) return;
  send("RSET\r\n");
  const SmtpReply reply = receive();
  if (reply.kind() != 2) lose("RSET: " + describe(reply));
  transactionOpen_ = false;
}

/// What comes before its command was sent answers nothing: taken for a later reply it could pass for an acceptance.
void SmtpConnection::expectSilence() {
  readSome();
  if (!replies_.hasLeftover()) return;
  if (const auto reply = replies_.next()) {
    if (reply->code == 421) lose(describe(*reply), true);
    lose("the server spoke out of turn: " + describe(*reply));
  }
  lose("the server spoke out of turn");
}

/// Takes what has arrived; false when there is nothing yet. The end of the session throws.
bool SmtpConnection::readSome() {
  std::array<char, 4096> bytes;
  std::size_t got = 0;
  const CURLcode code = curl_easy_recv(curl_.get(), bytes.data(), bytes.size(), &got);
  if (code == CURLE_AGAIN) return false;
  if (code != CURLE_OK || got == 0) lose("the server closed the connection");
  replies_.feed({bytes.data(), got});
  return true;
}

void SmtpConnection::waitFor(short events, Clock::time_point deadline) {
  struct pollfd waiting {};
  waiting.fd = socket_;
  waiting.events = events;
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    const int ready = left.count() > 0 ? ::poll(&waiting, 1, static_cast<int>(left.count())) : 0;
    if (ready > 0) return;
    if (ready == 0) lose("the server did not answer in time", true);
    if (errno != EINTR) lose("waiting for the server failed");
  }
}

void SmtpConnection::lose(const std::string& reason, bool serverUnusable) {
  lost_ = true;
  throw SessionLost{reason, serverUnusable};
}

}  // namespace Velmar::Host
