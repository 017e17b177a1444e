// The SMTP transport against a server that follows a script: who has the mail, and which bytes went out for it.

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <chrono>
#include <future>
#include <sstream>
#include <thread>

#include "host/common/descriptor.h"
#include "host/mail_builder/hand_over/smtp_envelope.h"
#include "host/mail_builder/hand_over/smtp_reply.h"
#include "host/mail_builder/hand_over/smtp_transport.h"
#include "tests/support/temp_root.h"
#include "tests/support/thrown_by.h"

namespace Velmar {
namespace {

using namespace std::string_literals;
using Host::QueuedMail;
using Host::Verdict;
using ::testing::HasSubstr;
using Testing::thrownBy;
using Script = std::vector<std::string>;

// What the server says, one entry a command (or content); these are no replies.
const std::string kClose = "!close";
const std::string kSilent = "!silent";
const std::string kDrip = "!drip";    // a byte now and then, never an end
const std::string kBreak = "!break";  // takes a part of a large content, says 250 and goes
const std::string kGreeting = "220 mx";
const std::string kPlain = "250 mx";
const std::string kFull = "250-mx\r\n250-PIPELINING\r\n250-SIZE 90\r\n250-dsn\r\n250-8BITMIME\r\n250 SMTPUTF8";

/// Plays one script a connection, in order, and keeps what the client sent in each.
class Server {
 public:
  Server(std::vector<Script> sessions, bool byteByByte) : received(sessions.size()) {
    struct sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* plain = reinterpret_cast<struct sockaddr*>(&address);
    if (::bind(listener_.get(), plain, size) != 0 || ::listen(listener_.get(), 8) != 0 ||
        ::getsockname(listener_.get(), plain, &size) != 0) {
      throw std::runtime_error("no listener");
    }
    url = "smtp://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    thread_ = std::thread([this, sessions = std::move(sessions), byteByByte] {
      for (std::size_t i = 0; i < sessions.size(); ++i) {
        const Host::Descriptor client(::accept(listener_.get(), nullptr, nullptr));
        if (!client) return;
        play(client.get(), sessions[i], byteByByte, received[i]);
      }
    });
  }
  ~Server() { join(); }

  /// Ends the sessions that nobody asked for; `received` may be read then.
  void join() {
    ::shutdown(listener_.get(), SHUT_RDWR);
    if (thread_.joinable()) thread_.join();
  }

  std::string url;
  std::vector<std::string> received;

 private:
  static void play(int client, const Script& script, bool byteByByte, std::string& received) {
    const int on = 1;
    ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    std::string end;  // of what the client says before the next reply
    for (const std::string& reply : script) {
      if (reply == kBreak) {
        std::vector<char> part(100000);
        ::recv(client, part.data(), part.size(), MSG_WAITALL);
        ::send(client, "250 ok\r\n", 8, MSG_NOSIGNAL);
        ::shutdown(client, SHUT_WR);  // with this before the end, a careless send is ended by SIGPIPE
        return;
      }
      if (!read(client, end, received) || reply == kClose) return;
      if (reply == kSilent) {
        end = "never";
        continue;
      }
      for (int i = 0; reply == kDrip; ++i, ::usleep(100000)) {
        if (::send(client, &"250-x\r\n"[i % 7], 1, MSG_NOSIGNAL) != 1) return;
      }
      const std::string bytes = reply + "\r\n";
      const std::size_t step = byteByByte ? 1 : bytes.size();
      for (std::size_t at = 0; at < bytes.size(); at += step) {
        ::send(client, bytes.data() + at, std::min(step, bytes.size() - at), MSG_NOSIGNAL);
      }
      end = reply.starts_with("354") ? "\r\n.\r\n" : "\r\n";
    }
    while (!received.ends_with("QUIT\r\n") && read(client, end, received)) continue;
  }

  /// Reads up to the next `end`; false when the client has gone.
  static bool read(int client, const std::string& end, std::string& received) {
    const std::size_t start = received.size();
    char byte;
    while (!received.substr(start).ends_with(end) && (end != "\r\n.\r\n" || received.substr(start) != ".\r\n")) {
      if (::recv(client, &byte, 1, 0) != 1) return false;
      received += byte;
    }
    return true;
  }

  Host::Descriptor listener_{::socket(AF_INET, SOCK_STREAM, 0)};
  std::thread thread_;
};

Host::QueueConfig configOf(const std::string& url) {
  Host::QueueConfig config;
  config.url = url;
  config.timeout = 1;
  return config;
}

QueuedMail mailTo(std::vector<std::string> recipients, std::string content = "S: x\r\n\r\n.dot\r\nend") {
  QueuedMail mail;
  mail.id = "1";
  mail.sender = "s@x.test";
  mail.recipients = std::move(recipients);
  mail.suppressDsn = true;
  mail.content = std::move(content);
  return mail;
}

/// "ATP": accepted, temporary, permanent; then "!" when the server is unusable.
std::string verdicts(const Host::HandOver& handOver) {
  std::string letters;
  for (const auto& reply : handOver.recipients) letters += "ATP"[static_cast<int>(reply.verdict)];
  return letters + (handOver.serverUnusable ? "!" : "");
}

std::string texts(const Host::HandOver& handOver) {
  std::string all;
  for (const auto& reply : handOver.recipients) all += reply.text + "|";
  return all;
}

/// A script written in one string: replies with ";" between, "S" and "F" for the start of a session, "#" between
/// sessions.
std::vector<Script> scriptsOf(const std::string& text) {
  std::vector<Script> sessions(1);
  std::istringstream in(text);
  for (std::string reply; std::getline(in, reply, ';');) {
    if (reply == "#") {
      sessions.emplace_back();
    } else if (reply == "S" || reply == "F") {
      sessions.back().insert(sessions.back().end(), {kGreeting, reply == "S" ? kPlain : kFull});
    } else {
      sessions.back().push_back(reply == "354" ? "354 go" : reply);
    }
  }
  return sessions;
}

/// The bytes of a session: MAIL, recipients, DATA, body, RSET by one letter each, in the form for plain or full EHLO.
std::string bytesOf(const std::string& letters, bool full) {
  std::string bytes = "EHLO gw.test\r\n";
  for (const char letter : letters) {
    if (letter == 'M') bytes += full ? "MAIL FROM:<s@x.test> SIZE=19\r\n" : "MAIL FROM:<s@x.test>\r\n";
    if (letter >= 'a') bytes += "RCPT TO:<"s + letter + (full ? "@x.test> NOTIFY=NEVER\r\n" : "@x.test>\r\n");
    if (letter == 'D') bytes += "DATA\r\n";
    if (letter == 'B') bytes += "S: x\r\n\r\n..dot\r\nend\r\n.\r\n";
    if (letter == '.') bytes += ".\r\n";
    if (letter == 'R') bytes += "RSET\r\n";
  }
  return bytes + "QUIT\r\n";
}

class SmtpDialogue : public ::testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(ByteByByte, SmtpDialogue, ::testing::Values(false, true));

TEST_P(SmtpDialogue, VerdictsAndBytes) {
  const struct {
    const char* mails;  ///< the recipients of each
    const char* script;
    const char* want;          ///< verdicts of the mails
    const char* wantText;      ///< in the replies of the last mail
    const char* wantReceived;  ///< in the first session; "" = not looked at
  } cases[] = {
      {"abc", "S;250 ok;250 ok;450 4.2.1 later;550-5.1.1 no\r\n550 5.1.1 user \x1b[1m;354;250 2.0.0 got it", "ATP",
       "250 2.0.0 got it|450 4.2.1 later|550 5.1.1 no 5.1.1 user \\x1b[1m|", "MabcDB"},
      {"ab", "F;250 ok;251 ok;553 no;354;250 ok", "AP", "553 no", "MabDB"},
      // all refused: the server wants a content nevertheless; or the next mail needs RSET first
      {"ab a", "F;250 ok;550 no;450 no;354;250 nothing;250 ok;250 ok;354;250 ok", "PT A", "250 ok", "MabD.MaDB"},
      {"a a", "S;250 ok;550 no;250 reset;250 ok;250 ok;354;250 ok", "P A", "250 ok", "MaRMaDB"},
      {"ab", "F;551 no sender;250 odd;503 bad;354;250 odd", "PP", "551 no sender|551 no sender|", "MabD."},
      {"ab", "S;250 ok;250 ok;550 no;452 4.3.1 full", "TP", "452 4.3.1 full|550 no|", "MabD"},
      {"ab", "S;250 ok;250 ok;450 no;354;554 5.7.1 spam", "PT", "554 5.7.1 spam|450", "MabDB"},
      // more recipients than it takes at once; than it takes at all
      {"abc", "S;250 ok;250 ok;552 enough;354;250 one;250 ok;250 ok;452 4.3.1 full;354;250 two", "AAT",
       "250 one|250 two|452 4.3.1 full|", "MabDBMbcDB"},
      {"abc", "S;250 ok;452 full;250 ok;250 ok;354;250 one;250 ok;452 full", "TAA", "452 full|250 one", "MabcDBMa"},
      {"ab", "S;250 ok;250 ok;452 4.5.3 enough;354;450 no", "TT", "450 no|452 4.5.3 enough|", "MabDB"},
      {"a", "S;250 ok;552 5.5.3 enough", "T", "552 5.5.3", "Ma"},
      {"ab", "S;250 ok;550 no;421 4.3.2 bye", "PT!", "550 no|421 4.3.2 bye|", ""},
      {"a", "421 busy", "T!", "421 busy", ""},
      // closed between mails, and with 421 between them: opened again
      {"a a a",
       "S;250 ok;250 ok;354;250 ok;!close;#;S;250 ok;250 ok;354;250 ok\r\n421 idle;#;S;250 ok;250 ok;354;250 ok",
       "A A A", "250 ok", ""},
      {"a a", "S;250 ok;250 ok;354;250 ok;!close;#;554 no", "A T!", "554 no", ""},
      {"a", "F;250 ok;250 ok;354 go\r\n250 before it was sent", "T", "out of turn", ""},
      {"a", "S;HTTP/1.1 400", "T!", "does not speak SMTP", ""},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.script);
    // What must be there before its time comes at once: byte by byte it could be late.
    Server server(scriptsOf(one.script), GetParam() && std::string_view(one.wantText) != "out of turn");
    std::string got, text;
    {
      const auto transport = Host::makeSmtpTransport(configOf(server.url), "gw.test");
      std::istringstream mails(one.mails);
      for (std::string letters; mails >> letters;) {
        std::vector<std::string> recipients;
        for (const char letter : letters) recipients.push_back(letter + "@x.test"s);
        const Host::HandOver handOver = transport->send(mailTo(recipients));
        got += (got.empty() ? "" : " ") + verdicts(handOver);
        text = texts(handOver);
      }
    }
    server.join();
    EXPECT_EQ(got, one.want) << text;
    EXPECT_THAT(text, HasSubstr(one.wantText));
    if (*one.wantReceived) {
      EXPECT_EQ(server.received[0], bytesOf(one.wantReceived, one.script[0] == 'F'));
    }
  }
}

TEST(Smtp, WhatTheServerDoesNotOfferIsNotAskedOfIt) {
  const std::string ue = "\xc3\xbc", a = "a@x.test", utf8 = ue + "@x.test";
  const std::string large(91, 'x'), body = "a\r\n\r\n", sized = "MAIL FROM:<s@x.test> SIZE=9 BODY=8BITMIME";
  const struct {
    std::vector<std::string> recipients;
    std::string content, ehlo, want, wantText, wantCommand;
  } cases[] = {
      {{a}, large, kFull, "P", "93 bytes, the server takes at most 90", "QUIT"},
      {{a}, large, "250-mx\r\n250 SIZE", "A", "ok", "MAIL FROM:<s@x.test> SIZE=93\r\n"},
      {{utf8, a}, "a", kPlain, "PA", "needs SMTPUTF8", "MAIL FROM:<s@x.test>\r\nRCPT TO:<a@"},
      {{"\">\"@x", a}, "a", kPlain, "PA", "holds \"<\" or", "MAIL FROM:<s@x.test>\r\nRCPT TO:<a@"},
      {{utf8}, body + ue, kFull, "A", "ok", sized + " SMTPUTF8\r\nRCPT TO:<\xc3"},
      {{a}, body + ue, kFull, "A", "ok", sized + "\r\n"},
      {{a}, body + "1234567" + ue, kPlain, "P", "needs 8BITMIME", "QUIT"},
      {{a, a}, ue + "\r\n\r\n", "250-mx\r\n250 8BITMIME", "PP", "header needs SMTPUTF8", "QUIT"},
  };
  for (const auto& one : cases) {
    Server server({{kGreeting, one.ehlo, "250 ok", "250 ok", "354 go", "250 ok"}}, false);
    const auto handOver =
        Host::makeSmtpTransport(configOf(server.url), "gw.test")->send(mailTo(one.recipients, one.content));
    server.join();
    EXPECT_EQ(verdicts(handOver), one.want) << one.wantText;
    EXPECT_THAT(texts(handOver), HasSubstr(one.wantText));
    EXPECT_THAT(server.received[0], ::testing::StartsWith("EHLO gw.test\r\n" + one.wantCommand));
  }
}

void expectLossAtStep(const Script& whole, std::size_t step, const std::string& end) {
  static const std::string want[] = {"TT", "TT", "TT", "TT", "PT", "PT", "PT"};
  const bool unusable = step < 3 || end != kClose;  // whoever is silent for one mail is so for all
  SCOPED_TRACE(std::to_string(step) + " " + end + " " + whole[1]);
  Script script(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(step));
  script.push_back(end);
  Server server({script}, false);
  const auto start = std::chrono::steady_clock::now();
  const auto handOver =
      Host::makeSmtpTransport(configOf(server.url), "gw.test")->send(mailTo({"a@x.test", "b@x.test"}));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  EXPECT_EQ(verdicts(handOver), want[step] + (unusable ? "!" : "")) << texts(handOver);
  EXPECT_EQ(texts(handOver).find("may arrive twice") != std::string::npos, step + 1 == whole.size());
}

TEST(Smtp, TheServerGoesOrFallsSilentAtEachStep) {
  std::vector<std::future<void>> losses;
  for (const std::string& ehlo : {kPlain, kFull}) {
    const Script whole = {kGreeting, ehlo, "250 ok", "550 no", "250 ok", "354 go", "250 ok"};
    for (std::size_t step = 0; step < whole.size(); ++step) {
      losses.push_back(std::async(std::launch::async, expectLossAtStep, whole, step, kClose));
      if (step + 1 == whole.size()) continue;  // ten times the patience
      for (const auto& end : {kSilent, kDrip}) {
        losses.push_back(std::async(std::launch::async, expectLossAtStep, whole, step, end));
      }
    }
  }
  for (auto& loss : losses) loss.get();
}

TEST(Smtp, AServerThatGoesInTheMiddleOfALargeMailKillsNobody) {
  Server server({{kGreeting, kPlain, "250 ok", "250 ok", "354 go", kBreak}}, false);
  const QueuedMail large = mailTo({"a@x.test"}, std::string(20 << 20, 'x'));
  const auto handOver = Host::makeSmtpTransport(configOf(server.url), "gw.test")->send(large);
  EXPECT_EQ(verdicts(handOver), "T") << texts(handOver);
  EXPECT_EQ(texts(handOver).find("twice"), std::string::npos);
}

TEST(Smtp, NothingListensAndNoPasswordGoesOutInClear) {
  const Testing::TempRoot root;
  root.write("auth", "user\nsecret\n");
  Host::QueueConfig config = configOf("smtp://127.0.0.1:1");
  EXPECT_EQ(verdicts(Host::makeSmtpTransport(config, "gw.test")->send(mailTo({"a@x.test"}))), "T!");

  config.authFile = "/auth";
  const auto make = [&] { Host::makeSmtpTransport(config, "gw.test"); };
  ::chmod((root / "auth").c_str(), 0644);
  EXPECT_THAT(thrownBy(make), HasSubstr("every user of this host"));
  for (const char* bad : {"", "user\n", "\nsecret\n", "user\nsecret\nmore\n"}) {
    root.write("bad", bad);
    ::chmod((root / "bad").c_str(), 0600);
    config.authFile = "/bad";
    EXPECT_THAT(thrownBy(make), HasSubstr("auth_file")) << bad;
  }
  config.authFile = "/auth";
  ::chmod((root / "auth").c_str(), 0640);

  const std::string offersAuth = "250-mx\r\n250 AUTH PLAIN";
  Server server({{kGreeting, offersAuth, "334 ", "235 in", "250 ok", "250 ok", "354 go", "250 ok"},
                 {kGreeting, offersAuth, "334 ", "535 5.7.8 wrong"},
                 {kGreeting, kPlain},
                 {kGreeting, offersAuth}},
                false);
  config.url = server.url;
  for (const char* want : {"A 250 ok|", "T! 535 5.7.8 wrong", "T! offers no AUTH", "T! STARTTLS not supported"}) {
    SCOPED_TRACE(want);
    const auto handOver = Host::makeSmtpTransport(config, "gw.test")->send(mailTo({"a@x.test"}));
    const std::string wanted = want;
    EXPECT_EQ(verdicts(handOver), wanted.substr(0, wanted.find(' ')));
    EXPECT_THAT(texts(handOver), HasSubstr(wanted.substr(wanted.find(' ') + 1)));
    if (wanted == "T! offers no AUTH") config.tls = Host::SmtpTls::kOffered;  // with a password it must be there
  }
  config.tls = Host::SmtpTls::kNone;
  config.url = "smtp://192.0.2.1";
  EXPECT_THAT(texts(Host::makeSmtpTransport(config, "gw.test")->send(mailTo({"a@x.test"}))),
              HasSubstr("no password in clear"));
  server.join();
  EXPECT_THAT(server.received[0], HasSubstr("AUTH PLAIN"));
  EXPECT_THAT(server.received[3], ::testing::Not(HasSubstr("AUTH")));
}

TEST(SmtpEnvelope, WhatMustNotBeSent) {
  for (const auto& content : {"a\nb"s, "a\rb"s, "a\r\n\nb\r\n"s, "a\r\r\nb"s, "a\r"s, "\n.\r\n"s, "a\r\n\n.\n"s}) {
    EXPECT_THAT(thrownBy([&] { Host::wireContent(content); }), HasSubstr("no line end")) << content;
  }
  for (const char* bad : {"a@x\r\nRCPT TO:<b@x>", "a@x> NOTIFY=NEVER", "a b@x", "<a@x>", "a@x y", "a", "@x", "a@",
                          "\"a\"b@x", "\"a\\\"@x", "\"a\nb\"@x", "\"a>b\"@x", "a@[::1", "\xff@x", "a,b@x", "a@x\x7f"}) {
    QueuedMail mail = mailTo({"ok@x", bad});
    EXPECT_THAT(Host::OutgoingMail(mail).recipientRefusal(1, {}), HasSubstr("the address \"")) << bad;
    mail.sender = bad;
    EXPECT_THAT(thrownBy([&] { Host::OutgoingMail(mail).wire(); }), HasSubstr("the sender")) << bad;
  }
  EXPECT_NE(Host::envelopeAddressFault("a\0@x"s), "");
  EXPECT_NE(Host::envelopeAddressFault(std::string(319, 'a') + "@x"), "");
  for (const char* good :
       {"a@x", "a.b+c@x-y.test", "\"a b\"@x", "\"a\\\"@\"@x", "a@[IPv6:::1]", "\xc3\xbc@\xc3\xbc.test"}) {
    EXPECT_EQ(Host::envelopeAddressFault(good), "") << good;
  }
  EXPECT_EQ(Host::wireContent(""), ".\r\n");
  EXPECT_EQ(Host::wireContent(".\r\n..\r\n\r\n."), "..\r\n...\r\n\r\n..\r\n.\r\n");
}

TEST(SmtpReply, ParsedInAnyPortions) {
  const std::string longLine = "250 " + std::string(4090, 'x');
  std::string manyLines;
  for (int i = 0; i < 257; ++i) manyLines += "250-x\n";
  const struct {
    std::string bytes;
    std::string want;  ///< code and lines of each reply, then the start of the fault
  } cases[] = {
      {"250 ok\r\n", "250:ok;"},
      {"250\r\n250-\r\n250\n", "250:;250:,;"},
      {"250-a\r\n250 b\r\n550 c\r\n35", "250:a,b;550:c;"},
      {"250-a\r\n251 b\r\n", "the lines of one reply"},
      {"250 ok\r\n25x no\r\n250 ok\r\n", "250:ok;a line does not start"},
      {"150 no\r\n", "a line does not start"},
      {"2500 no\r\n", "a line does not start"},
      {"\r\n", "a line does not start"},
      {"250 \0\xff\r\r\n"s, "250:\0\xff\r;"s},
      {longLine + "\r\n", "250:" + std::string(4090, 'x') + ";"},
      {longLine + "x\r\n", "a line of a reply is longer"},
      {manyLines, "a reply has more than 256 lines"},
  };
  for (const auto& one : cases) {
    for (const std::size_t step : {one.bytes.size(), std::size_t{1}, std::size_t{7}}) {
      Host::SmtpReplyParser parser;
      std::string got;
      for (std::size_t at = 0; at < one.bytes.size(); at += step) {
        parser.feed(std::string_view(one.bytes).substr(at, step));
        while (const auto reply = parser.next()) {
          got += std::to_string(reply->code);
          for (std::size_t i = 0; i < reply->lines.size(); ++i) got += (i == 0 ? ":" : ",") + reply->lines[i];
          got += ";";
        }
      }
      EXPECT_THAT(got + parser.fault(), ::testing::StartsWith(one.want)) << one.bytes.substr(0, 40);
    }
  }
  EXPECT_LT(Host::describe({250, Script(256, std::string(4000, '\x01'))}).size(), 2000U);
}

}  // namespace
}  // namespace Velmar
