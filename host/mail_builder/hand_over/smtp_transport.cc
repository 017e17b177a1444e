// The SMTP transport: made and called by whatever empties the queue. It keeps one session, decides when to open it
// anew, and turns the ends of sessions into verdicts. The dialogue itself is in smtp_transaction.cc.

#include "host/mail_builder/hand_over/smtp_transport.h"

#include <unistd.h>

#include <cerrno>
#include <numeric>
#include <optional>
#include <utility>
#include <vector>

#include "host/common/root.h"
#include "host/common/secret_file.h"
#include "host/mail_builder/hand_over/smtp_connection.h"
#include "host/mail_builder/hand_over/smtp_envelope.h"
#include "host/mail_builder/hand_over/smtp_transaction.h"
#include "host/mail_builder/system_file.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kMaxAuthFile = 4096;

struct Login {
  std::string user;
  std::string password;
};

Login readLogin(const std::string& path) {
  const char* const what = "auth_file";
  std::string text = readSecretFile(what, path, kMaxAuthFile + 1);
  if (text.size() > kMaxAuthFile)
    throw secretFileFault(what, path, "is larger than " + std::to_string(kMaxAuthFile) + " bytes");
  if (text.find('\0') != std::string::npos) throw secretFileFault(what, path, "holds a NUL");
  Login login;
  login.user = takeLine(text);
  login.password = takeLine(text);
  if (login.user.empty()) throw secretFileFault(what, path, "has no user in its first line");
  if (login.password.empty()) throw secretFileFault(what, path, "has no password in its second line");
  if (!text.empty()) throw secretFileFault(what, path, "has more than two lines");
  return login;
}

void checkAuthorities(const std::string& path) {
  if (::access(path.c_str(), R_OK) == 0) return;
  throw Exception("SmtpException", 4, "Smtp", __LINE__, "ca_file " + path + " cannot be read: " + errorText(errno));
}

curl_usessl startTlsOf(const QueueConfig& config) {
  if (config.tls == SmtpTls::kRequired) return CURLUSESSL_ALL;
  if (config.tls != SmtpTls::kOffered) return CURLUSESSL_NONE;
  // Whoever stands between could take the offer away and read the password.
  return config.authFile.empty() ? CURLUSESSL_TRY : CURLUSESSL_ALL;
}

SmtpServer serverOf(const QueueConfig& config, const std::string& ehloName) {
  SmtpServer server;
  server.name = config.url;
  const std::string scheme = config.tls == SmtpTls::kImplicit ? "smtps" : "smtp";
  server.url = scheme + config.url.substr(config.url.find(':')) + "/" + ehloName;
  server.startTls = startTlsOf(config);
  server.timeout = std::chrono::seconds(config.timeout);
  if (!config.caFile.empty()) {
    server.caFile = underRoot(config.caFile);
    checkAuthorities(server.caFile);
  }
  if (!config.authFile.empty()) {
    Login login = readLogin(underRoot(config.authFile));
    server.user = std::move(login.user);
    server.password = std::move(login.password);
    server.loopbackOnly = config.tls == SmtpTls::kNone;
  }
  return server;
}

/// The keywords that matter here, as the server spells them.
std::string offeredText(const EhloKeywords& offered) {
  const std::pair<bool, const char*> keywords[] = {
      {offered.eightBitMime, "8BITMIME"}, {offered.auth, "AUTH"},         {offered.dsn, "DSN"},
      {offered.pipelining, "PIPELINING"}, {offered.smtpUtf8, "SMTPUTF8"}, {offered.startTls, "STARTTLS"}};
  std::string text;
  for (const auto& [there, name] : keywords) {
    if (there) text += (text.empty() ? "" : ", ") + std::string(name);
  }
  return text.empty() ? "no extensions" : text;
}

class SmtpTransport : public Transport {
 public:
  explicit SmtpTransport(SmtpServer server) : server_(std::move(server)) {}

  HandOver send(const QueuedMail& mail) override {
    const OutgoingMail outgoing(mail);
    HandOver handOver;
    handOver.recipients.resize(mail.recipients.size());
    std::vector<std::size_t> rest(mail.recipients.size());
    std::iota(rest.begin(), rest.end(), std::size_t{0});
    while (!rest.empty()) rest = offer(outgoing, std::move(rest), handOver);
    return handOver;
  }

 private:
  /// Tries one transaction; returns the recipients for whom another one is worth it.
  std::vector<std::size_t> offer(const OutgoingMail& mail, std::vector<std::size_t> recipients, HandOver& handOver) {
    const bool reused = connection_.has_value();
    if (!connect(recipients, handOver)) return {};
    recipients = withoutRefused(mail, std::move(recipients), handOver);
    if (recipients.empty()) return {};
    SmtpTransaction transaction(*connection_, mail, recipients, handOver.recipients);
    try {
      transaction.run();
      return transaction.left();
    } catch (const SessionLost& lost) {
      connection_.reset();
      // Servers end sessions that were idle or long enough; nothing has happened to this mail.
      if (reused && !transaction.isAnswered()) return recipients;
      transaction.fail(lost);
      handOver.serverUnusable = lost.serverUnusable || !transaction.isAnswered();
      return {};
    }
  }

  bool connect(const std::vector<std::size_t>& recipients, HandOver& handOver) {
    try {
      if (!connection_) connection_.emplace(server_);
      return true;
    } catch (const SessionLost& lost) {
      for (const std::size_t recipient : recipients) {
        handOver.recipients[recipient] = {Verdict::kTemporary, lost.reason};
      }
      handOver.serverUnusable = true;
      return false;
    }
  }

  /// Refuses, in the server's place, what it has not offered to take.
  std::vector<std::size_t> withoutRefused(const OutgoingMail& mail, std::vector<std::size_t> recipients,
                                          HandOver& handOver) const {
    const std::string whole = mail.refusal(connection_->offered());
    std::erase_if(recipients, [&](std::size_t recipient) {
      const std::string reason = whole.empty() ? mail.recipientRefusal(recipient, connection_->offered()) : whole;
      if (!reason.empty()) handOver.recipients[recipient] = {Verdict::kPermanent, reason};
      return !reason.empty();
    });
    return recipients;
  }

  const SmtpServer server_;
  std::optional<SmtpConnection> connection_;
};

}  // namespace

std::string checkSmtpServer(const QueueConfig& config, const std::string& ehloName) try {
  const SmtpServer server = serverOf(config, ehloName);
  return offeredText(SmtpConnection(server).offered());
} catch (const SessionLost& lost) {
  throw Exception("SmtpException", 4, "Smtp", __LINE__, lost.reason);
}

std::unique_ptr<Transport> makeSmtpTransport(const QueueConfig& config, const std::string& ehloName) {
  return std::make_unique<SmtpTransport>(serverOf(config, ehloName));
}

}  // namespace Velmar::Host
