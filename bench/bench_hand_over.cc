// What handing mails on costs beside the least that any client must do for it.
//
// Both send the same mails over one session to a sink in this process that speaks pipelined SMTP. The floor has its
// bytes ready, writes them and counts the lines of the replies. Mails of 25 kB; medians of the runs and their ratio.

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "bench/bench_common.h"
#include "host/mail_builder/hand_over/smtp_transport.h"

namespace {

using Bench::median;
using Bench::seconds;

constexpr int kRuns = 7;
constexpr int kMails = 1000;
constexpr std::size_t kMailSize = 25000;

int checked(int result, const char* what) {
  if (result < 0) throw std::runtime_error(what);
  return result;
}

void writeAll(int socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) throw std::runtime_error("send");
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
}

/// Answers what one session says: EHLO with PIPELINING and SIZE, 354 to DATA, 250 to all else.
class SinkSession {
 public:
  explicit SinkSession(int socket) : socket_(socket) {}

  void run() {
    writeAll(socket_, "220 sink\r\n");
    std::vector<char> block(65536);
    for (;;) {
      const ssize_t got = ::recv(socket_, block.data(), block.size(), 0);
      if (got <= 0) return;
      input_.append(block.data(), static_cast<std::size_t>(got));
      while (takeOne()) continue;
      writeAll(socket_, output_);
      output_.clear();
    }
  }

 private:
  bool takeOne() {
    const std::string_view end = inContent_ ? "\r\n.\r\n" : "\r\n";
    const std::size_t at = input_.find(end, looked_);
    if (at == std::string::npos) {
      looked_ = input_.size() < end.size() ? 0 : input_.size() - end.size();
      return false;
    }
    const char first = input_[0];
    input_.erase(0, at + end.size());
    looked_ = 0;
    const bool isData = !inContent_ && first == 'D';
    output_ += isData                        ? "354 go\r\n"
               : !inContent_ && first == 'E' ? "250-sink\r\n250-PIPELINING\r\n250 SIZE\r\n"
                                             : "250 ok\r\n";
    inContent_ = isData;
    return true;
  }

  int socket_;
  std::string input_, output_;
  std::size_t looked_ = 0;
  bool inContent_ = false;
};

/// A listener on a free port that serves a number of sessions, one after the other.
class Sink {
 public:
  explicit Sink(int sessions) : listener_(checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket")) {
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* plain = reinterpret_cast<struct sockaddr*>(&address);
    checked(::bind(listener_, plain, size), "bind");
    checked(::listen(listener_, sessions), "listen");
    checked(::getsockname(listener_, plain, &size), "getsockname");
    thread_ = std::thread([this, sessions] {
      for (int i = 0; i < sessions; ++i) {
        const int client = ::accept(listener_, nullptr, nullptr);
        if (client < 0) return;
        SinkSession(client).run();
        ::close(client);
      }
    });
  }
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;
  ~Sink() {
    thread_.join();
    ::close(listener_);
  }

  struct sockaddr_in address {};

 private:
  int listener_;
  std::thread thread_;
};

Velmar::Host::QueuedMail makeMail() {
  Velmar::Host::QueuedMail mail;
  mail.sender = "sender@example.org";
  mail.recipients = {"recipient@example.org"};
  mail.content = "Subject: bench\r\n\r\n";
  while (mail.content.size() < kMailSize) mail.content += std::string(76, 'x') + "\r\n";
  return mail;
}

/// Reads replies until so many have come.
void readReplies(int socket, int count) {
  char block[4096];
  while (count > 0) {
    const ssize_t got = ::recv(socket, block, sizeof block, 0);
    if (got <= 0) throw std::runtime_error("recv");
    count -= static_cast<int>(std::count(block, block + got, '\n'));
  }
}

double floorTime(const Sink& sink, const Velmar::Host::QueuedMail& mail) {
  const int socket = checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  checked(::connect(socket, reinterpret_cast<const struct sockaddr*>(&sink.address), sizeof sink.address), "connect");
  const std::string envelope = "MAIL FROM:<" + mail.sender + "> SIZE=" + std::to_string(mail.content.size()) +
                               "\r\nRCPT TO:<" + mail.recipients[0] + ">\r\nDATA\r\n";
  const std::string content = mail.content + ".\r\n";
  readReplies(socket, 1);
  writeAll(socket, "EHLO bench\r\n");
  readReplies(socket, 3);
  const double time = seconds([&] {
    for (int i = 0; i < kMails; ++i) {
      writeAll(socket, envelope);
      readReplies(socket, 3);
      writeAll(socket, content);
      readReplies(socket, 1);
    }
  });
  ::close(socket);
  return time;
}

void sendOne(Velmar::Host::Transport& transport, const Velmar::Host::QueuedMail& mail) {
  const auto reply = transport.send(mail).recipients.front();
  if (reply.verdict != Velmar::Host::Verdict::kAccepted) throw std::runtime_error(reply.text);
}

double transportTime(const Sink& sink, const Velmar::Host::QueuedMail& mail) {
  Velmar::Host::QueueConfig config;
  config.url = "smtp://127.0.0.1:" + std::to_string(ntohs(sink.address.sin_port));
  const auto transport = Velmar::Host::makeSmtpTransport(config, "bench");
  sendOne(*transport, mail);  // connects
  return seconds([&] {
    for (int i = 0; i < kMails; ++i) sendOne(*transport, mail);
  });
}

}  // namespace

int main() {
  const auto mail = makeMail();
  std::vector<double> floorTimes;
  std::vector<double> times;
  {
    const Sink sink(2 * kRuns);
    for (int run = 0; run < kRuns; ++run) {
      floorTimes.push_back(floorTime(sink, mail));
      times.push_back(transportTime(sink, mail));
    }
  }
  const double floor = median(floorTimes);
  const double ours = median(times);
  std::printf("%14s %14s %8s\n", "floor mails/s", "mails/s", "ratio");
  std::printf("%14.0f %14.0f %8.2f\n", kMails / floor, kMails / ours, ours / floor);
  return 0;
}
