// Whole reports of messages as hostile senders make them, on a thread with a small stack: each costs little time
// and memory, has one row at most, and the rows of its neighbours are as they are without it.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

#include <ctime>
#include <thread>

#include "tests/support/one_mailbox.h"

namespace {

using namespace std::string_literals;
using Velmar::Testing::shapeOf;

constexpr std::size_t kStack = std::size_t{256} << 10;
constexpr double kMostSeconds = 0.5;  // of processor time: five times what a message may cost
constexpr rlimit kMostMemory{HOSTILE_MEMORY, HOSTILE_MEMORY};
constexpr char kId[] = "Message-Id: <hostile@example.com>\n";

/// Twice what is ever read of a header, or so many bytes, of one text after another.
std::string many(const std::string& text, std::size_t size = std::size_t{2} << 20) {
  std::string all = text;
  while (all.size() < size) all.append(all, 0, size - all.size());
  return all;
}

struct HostileMessage {
  const char* name;
  std::string text;
  bool listed = true;
};

std::vector<HostileMessage> hostileMessages() {
  const std::string head = kId + "From: Mallory <m@evil.example>\nSubject: "s, from = kId + "From: "s;
  const std::size_t deep = 100'000;
  std::vector<HostileMessage> messages = {
      {"an empty file", "", false},
      {"a body only", "\n"s + kId, false},
      {"no line end", many("x"), false},
      {"an identifier behind what is read", many("X: y\n") + kId, false},
      {"nested groups", from + many("g:", deep) + "a@b" + many(";", deep)},
      {"nested comments", from + many("(", deep) + many(")", deep) + "a@b"},
      {"comments", from + many("(c)", deep) + "a@b"},
      {"addresses", from + many("a@b, ")},
      {"open quotes", from + many("\"\\", deep)},
      {"a long message id", "Message-Id: <" + many("x") + ">"},
      {"blanks behind a long word", head + many("ÿ", 160) + many(" ", 150) + many("ÿ", 160) + "\n\n"},
      {"CR only", "From: a@b\rMessage-Id: <a@b>\rSubject: c\r\rbody"},
      {"mbox line, two senders, two subjects", "From x\nFrom: a@b\nFrom: c@d\nSubject: e\nSubject: f\n"s + kId},
      {"bytes of all kinds",
       head + "</table><script>%n%s\x01\0\x1b[2J\x85{{A}}+ADw-b+AD4-=?utf-8?Q?=3Ci=3E=0D=0AX:=00?=\r\r\n\n"s},
  };
  for (const char* fields : {"X: y\n", "a:\n", "a\n", "Subjec:\n", "x\r", ":\r\n", "a: b\n c\n", "a\r\r\r\n"}) {
    messages.push_back({fields, kId + many(fields)});
  }
  for (const char* value : {"x", "x\n ", " ", "\r\n ", "=?utf-8?Q?=FC=C3?= ", "=?utf-8?B?SGVsbG8=?=", "=?a?Q?x",
                            "=?a?B?x", "=?", "=?a?Q?b?b", "=?utf-8?Q?x?=\xFC",
                            "=?hz?Q?~{?==?utf-7?Q?+?= =?big5?Q?=A4?=", "<\"&{{", "\u0301", "👩\u200D", "\u202E\u2067"}) {
    messages.push_back({value, head + many(value) + "\n\n"});
  }
  return messages;
}

struct Report {
  Velmar::Host::QueuedMail mail;
  double seconds = 0;
};

/// What a message and two neighbours give.
Report reported(Velmar::Testing::OneMailbox& mailbox, const std::string& message) {
  mailbox.hold(100, "From: Newer <n@d.example>\nSubject: newer\n"s + kId);
  mailbox.hold(200, message);
  mailbox.hold(300, "From: Older <o@d.example>\nSubject: older\n"s + kId);
  Report report;
  std::thread([&] {
    const auto mails = mailbox.report();
    if (!mails.empty()) report.mail = mails[0];
    std::timespec used{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    report.seconds = static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
  }).join();
  return report;
}

TEST(HostileMessages, CostLittleAndHarmNoOtherRow) {
  pthread_attr_t small;
  ASSERT_EQ(::pthread_attr_init(&small) | ::pthread_attr_setstacksize(&small, kStack), 0);
  ASSERT_EQ(::pthread_setattr_default_np(&small), 0);
  Velmar::Testing::OneMailbox mailbox;
  const Report without = reported(mailbox, "");  // also reads the configuration and the template
  const Report with = reported(mailbox, "From: Some <s@d.example>\nSubject: harmless\n"s + kId);
  const auto messages = hostileMessages();
  ASSERT_EQ(::setrlimit(RLIMIT_DATA, &kMostMemory), 0);
  for (const auto& [name, text, listed] : messages) {
    SCOPED_TRACE(name);
    const Report report = reported(mailbox, text);
    const Report& like = listed ? with : without;
    EXPECT_EQ(shapeOf(report.mail), shapeOf(like.mail)) << report.mail.text;
    for (const char* row : {"From: Newer <n@d[.]example>\n  Subject: newer\n", "<o@d[.]example>\n  Subject: older\n"}) {
      EXPECT_NE(report.mail.text.find(row), std::string::npos) << report.mail.text;
    }
    EXPECT_LT(report.mail.content.size(), like.mail.content.size() + 20000);
    EXPECT_LT(report.seconds, kMostSeconds);
  }
}

}  // namespace
