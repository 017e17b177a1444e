// The SMTP transport: made and called by whatever empties the queue. It keeps one session, decides when to open it
// anew, and turns the ends of sessions into verdicts. The dialogue itself is in smtp_transaction.cc.

#include "host/mail_builder/hand_over/smtp_transport.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <numeric>
#include <optional>
#include <utility>
#include <vector>

#include "host/common/descriptor.h"
#include "host/common/root.h"
#include "host/mail_builder/hand_over/smtp_connection.h"
#include "host/mail_builder/hand_over/smtp_envelope.h"
#include "host/mail_builder/hand_over/smtp_transaction.h"
#include "host/mail_builder/system_file.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kMaxAuthFile = 4096;

Exception fileFault(const char* key, const std::string& path, const std::string& reason) {
  return Exception("SmtpException", 4, "Smtp", __LINE__, std::string(key) + " " + path + ": " + reason);
}

struct Login {
  std::string user;
  std::string password;
};

/// The next line without its end, taken off the text.
std::string takeLine(std::string& text) {
  const std::size_t end = text.find('\n');
  std::string line = text.substr(0, end);
  text.erase(0, end == std::string::npos ? end : end + 1);
  if (line.ends_with('\r')) line.pop_back();
  return line;
}

Login parseLogin(std::string text, const std::string& path) {
  if (text.find('\0') != std::string::npos) throw fileFault("auth_file", path, "holds a NUL");
  Login login;
  login.user = takeLine(text);
  login.password = takeLine(text);
  if (login.user.empty()) throw fileFault("auth_file", path, "has no user in its first line");
  if (login.password.empty()) throw fileFault("auth_file", path, "has no password in its second line");
  if (!text.empty()) throw fileFault("auth_file", path, "has more than two lines");
  return login;
}

Login readLogin(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) throw fileFault("auth_file", path, errorText(errno));
  if (!S_ISREG(status.st_mode)) throw fileFault("auth_file", path, "is not a regular file");
  if ((status.st_mode & S_IRWXO) != 0) {
    throw fileFault("auth_file", path, "is open to every user of this host; chmod o= it");
  }
  return parseLogin(readUpTo(file.get(), kMaxAuthFile, path), path);
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
    if (::access(server.caFile.c_str(), R_OK) != 0) throw fileFault("ca_file", server.caFile, errorText(errno));
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
