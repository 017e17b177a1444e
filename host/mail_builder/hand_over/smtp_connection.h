#pragma once

// One session with a mail server: TCP, TLS and AUTH by libcurl, then bytes out and replies in.

#include <curl/curl.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/mail_builder/hand_over/smtp_reply.h"

namespace Velmar::Host {

/// Why a session cannot go on. Never leaves the transport.
struct SessionLost {
  std::string reason;           ///< one printable line
  bool serverUnusable = false;  ///< the server said 421 or nothing in time: other mails would fare the same
};

/// Where and how to connect. Checked before the first connection; see makeSmtpTransport.
struct SmtpServer {
  std::string url;   ///< as libcurl takes it, with the EHLO name as its path
  std::string name;  ///< for people, e.g. "smtp://mail.example.org:25"
  curl_usessl startTls = CURLUSESSL_NONE;
  std::string caFile;  ///< "" = those of the system
  std::string user;    ///< "" = no AUTH
  std::string password;
  bool loopbackOnly = false;  ///< the password would go in clear: connect to this host only
  std::chrono::milliseconds timeout{60000};
};

/// An open session. One thread at a time. Every wait is bounded by `SmtpServer::timeout`.
class SmtpConnection {
 public:
  using Clock = std::chrono::steady_clock;

  /// Connects, with TLS and AUTH as configured. Throws SessionLost. `server` must outlive this.
  explicit SmtpConnection(const SmtpServer& server);
  /// Says QUIT when the session still stands and waits for the answer at most a second.
  ~SmtpConnection();
  SmtpConnection(const SmtpConnection&) = delete;
  SmtpConnection& operator=(const SmtpConnection&) = delete;

  const EhloKeywords& offered() const noexcept { return offered_; }

  /// Sends commands or a content. What the server said unasked before is a fault. Throws SessionLost; returns false
  /// when the connection broke on the way, since the server may have said why: receive() finds it, or the end.
  bool send(std::string_view bytes);

  /// The next reply. `patience` x timeout is how long it may take until it is whole. Throws SessionLost, also for 421.
  SmtpReply receive(int patience = 1);

  /// RSET, when a transaction was left open. Throws SessionLost.
  void endTransaction();
  /// Whether MAIL was accepted and no content followed.
  void setTransactionOpen(bool open) noexcept { transactionOpen_ = open; }

 private:
  struct CloseCurl {
    void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
  };

  void configure();
  void connect();
  static std::size_t onReplyLine(char* bytes, std::size_t one, std::size_t size, void* self) noexcept;
  static curl_socket_t onSocket(void* self, curlsocktype purpose, struct curl_sockaddr* address) noexcept;
  void takeGreetingLine(std::string_view line);

  void expectSilence();
  bool readSome();
  void waitFor(short events, Clock::time_point deadline);
  [[noreturn]] void lose(const std::string& reason, bool serverUnusable = false);

  const SmtpServer& server_;
  std::unique_ptr<CURL, CloseCurl> curl_;
  char curlError_[CURL_ERROR_SIZE] = "";
  curl_socket_t socket_ = CURL_SOCKET_BAD;
  SmtpReplyParser greeting_;  ///< what libcurl reads while it connects
  std::string lastReply_;     ///< of these, for messages
  bool authenticated_ = false;
  bool refusedAddress_ = false;
  EhloKeywords offered_;
  SmtpReplyParser replies_;
  bool transactionOpen_ = false;
  bool lost_ = false;
};

}  // namespace Velmar::Host
