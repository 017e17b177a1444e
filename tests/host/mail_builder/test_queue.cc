// The queue: what each answer of a server makes of a mail, when it is tried, and who tries it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>

#include <algorithm>
#include <climits>
#include <map>
#include <regex>
#include <thread>

#include "host/mail_builder/hand_over/queue_claim.h"
#include "host/mail_builder/hand_over/queue_outcome.h"
#include "host/mail_builder/hand_over/queue_round.h"
#include "host/mail_builder/hand_over/retry_schedule.h"
#include "host/mail_builder/spool.h"
#include "host/mail_builder/spool_envelope.h"
#include "tests/host/mail_builder/letter_transport.h"
#include "tests/support/temp_root.h"
#include "tests/support/thrown_by.h"

namespace Velmar {
namespace {

namespace fs = std::filesystem;
using Host::FlushResult;
using Host::SpoolState;
using ::testing::AllOf;
using ::testing::HasSubstr;
using Testing::LetterTransport;
using ::testing::SizeIs;
using Testing::thrownBy;

TEST(RetryScheduleTest, DoublesUpToTheLongestAndGivesUpOnlyAfterALastTry) {
  const Host::QueueConfig config;
  const std::vector<std::pair<int, long long>> delays = {{1, 300},  {2, 600},  {3, 1200},       {4, 2400},
                                                         {5, 4000}, {6, 4000}, {INT_MAX, 4000}, {0, 300}};
  for (const auto& [failures, want] : delays) EXPECT_EQ(Host::retryDelay(config, failures), want) << failures;

  struct Case {
    long long queuedAt, now;
    long long want;  ///< -1 = given up
  };
  constexpr long long kEnd = 1000 + 432000;
  for (const Case& one : {Case{1000, 1000, 1300}, Case{1000, kEnd - 1, kEnd}, Case{1000, kEnd - 300, kEnd},
                          Case{1000, kEnd - 301, kEnd - 1}, Case{1000, kEnd, -1}, Case{1000, kEnd + 5, -1},
                          Case{9000000, 1000, 1300}, Case{253402300799, 1000, 1300}}) {
    EXPECT_EQ(Host::nextAttempt(config, one.queuedAt, 1, one.now).value_or(-1), one.want) << one.now;
  }
  for (const auto& [next, want] : {std::pair(0LL, true), {100, true}, {101, false}, {4100, false}, {4101, true}}) {
    EXPECT_EQ(Host::isDue(config, next, 100), want) << next;
  }
}

TEST(QueueIdTest, CountersCountByValue) {
  std::vector<std::string> ids = {"z",          "",          "20251122-7-9-ff", "20251122-7-10-aa", "20251122-7-1a-0",
                                  "20251121-9", "20251122-7"};
  std::sort(ids.begin(), ids.end(), Host::madeBefore);
  EXPECT_THAT(ids, ::testing::ElementsAre("", "20251121-9", "20251122-7", "20251122-7-9-ff", "20251122-7-10-aa",
                                          "20251122-7-1a-0", "z"));
}

class QueueTest : public ::testing::Test {
 protected:
  QueueTest() {
    Host::setLogToStderr(false);
    Host::setEventObserver([this](const Host::Event& event) {
      log += std::string(event.name) + "(" + event.fields[0] + " " + event.fields[1];
      log += (event.fields.size() > 2 ? " " + event.fields[2] : "") + ")";
    });
  }
  ~QueueTest() override { Host::setEventObserver(nullptr); }

  static void queue(const std::string& id, const std::vector<std::string>& letters) {
    Host::QueuedMail mail;
    mail.id = id;
    for (const std::string& letter : letters) mail.recipients.push_back(letter + "@x");
    mail.content = "To: a@x\r\n\r\nof " + id + "\r\n";
    Host::writeToSpool(mail);
  }

  void place(const std::string& where, const std::string& recipient, const std::string& state) {
    const std::string id = where.substr(where.find('/') + 1);
    root.write("var/spool/velmar/" + where, "Velmar-Spool: 2\nId: " + id + "\nSender: s@x\nRecipient: " + recipient +
                                                "\nNotify: never\n" + state + "\n\nm\r\n");
  }

  FlushResult flush(bool evenIfNotDue = false) { return Host::flushQueueWith(server, config, {evenIfNotDue}); }

  static std::string stateOf(const Host::SpoolEntry& entry) {
    constexpr const char* kNames[] = {"waiting", "failed", "unreadable"};
    std::string text = kNames[static_cast<int>(entry.state)];
    for (const std::string& recipient : entry.recipients) text += " " + recipient.substr(0, recipient.find('@'));
    return text + " " + std::to_string(entry.attempts) + " " + entry.lastReply + ";";
  }

  /// The spool: "STATE RECIPIENTS ATTEMPTS REPLY;" of each entry.
  static std::string spool() {
    std::string text;
    for (const Host::SpoolEntry& entry : Host::listSpool()) text += stateOf(entry);
    return text;
  }

  /// "HANDED-ON DELAYED FAILED UNREADABLE NOT-DUE HELD".
  static std::string counts(const FlushResult& r) {
    std::string text;
    for (const std::size_t n : {r.handedOn, r.delayed, r.failed, r.unreadable, r.notDue, r.held}) {
      text += (text.empty() ? "" : " ") + std::to_string(n);
    }
    return text;
  }

  const Testing::TempRoot root;
  const Host::QueueConfig config;
  const long long now = std::time(nullptr);
  LetterTransport server;
  std::string log;
};

TEST_F(QueueTest, WhatEachAnswerMakesOfAMail) {
  struct Case {
    const char* letters;
    std::string wantSpool, wantCounts, wantLog;
  };
  const std::vector<Case> cases = {
      {"a", "", "1 0 0 0 0 0", "mail-handed-over(m a@x 250 ok)"},
      {"aA", "waiting A 1 450 later;", "0 1 0 0 0 0", "mail-handed-over(m a@x 250 ok)mail-delayed(m A@x 450 later)"},
      {"t", "waiting t 1 450 later;", "0 1 0 0 0 0", "mail-delayed(m t@x 450 later)"},
      {"p", "failed p 1 550 no;", "0 0 1 0 0 0", "mail-refused(m p@x 550 no)"},
      {"ap", "failed p 1 550 no;", "0 0 1 0 0 0", "mail-handed-over(m a@x 250 ok)mail-refused(m p@x 550 no)"},
      {"pap", "failed p p 1 550 no;", "0 0 1 0 0 0", "mail-handed-over(m a@x 250 ok)mail-refused(m p@x,p@x 550 no)"},
      {"tap", "waiting t 1 450 later;failed p 1 550 no;", "0 1 1 0 0 0",
       "mail-handed-over(m a@x 250 ok)mail-delayed(m t@x 450 later)mail-refused(m~ p@x 550 no)"},
      {"x", "failed x 1 not sent: bare CR in the mail;", "0 0 1 0 0 0",
       "mail-refused(m x@x not sent: bare CR in the mail)"},
      {"au", "waiting u 1 450 later;", "0 1 0 0 0 0", "mail-handed-over(m a@x 250 ok)mail-delayed(m u@x 450 later)"},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.letters);
    fs::remove_all(root / "var");
    log.clear();
    std::vector<std::string> letters;
    for (const char* c = one.letters; *c; ++c) letters.emplace_back(1, *c);
    queue("m", letters);
    const FlushResult result = flush();
    EXPECT_EQ(spool(), one.wantSpool);
    EXPECT_EQ(counts(result), one.wantCounts);
    EXPECT_EQ(std::regex_replace(log, std::regex("m-[0-9a-f]{8} "), "m~ "), one.wantLog);
    EXPECT_THAT(result.problems, SizeIs(result.delayed + result.failed));
    for (const Host::FlushProblem& problem : result.problems) EXPECT_NE(Host::readSpool(problem.id).id, "");
    for (const Host::SpoolEntry& entry : Host::listSpool()) {
      EXPECT_EQ(Host::readSpool(entry.id).content, "To: a@x\r\n\r\nof m\r\n");
      EXPECT_EQ(entry.id.starts_with("m-"), entry.state == SpoolState::kFailed && result.delayed > 0);
      const bool waits = entry.state == SpoolState::kWaiting;
      EXPECT_NEAR(static_cast<double>(entry.nextAttempt), static_cast<double>(waits ? now + 300 : 0), 20);
    }
    EXPECT_TRUE(fs::is_empty(root / "var/spool/velmar/tmp"));
  }
}

TEST_F(QueueTest, WhatIsDueIsTriedAndWhatIsTooOldIsGivenUp) {
  const std::string young = "Queued: " + std::to_string(now - 10) + "\nAttempts: 1\nNext: ";
  const std::string old = "Queued: " + std::to_string(now - 432000) + "\nAttempts: 99\nNext: 0\nReply: 450 x";
  place("new/due", "t@x", young + std::to_string(now - 1) + "\nReply: ");
  place("new/later", "t@x", young + std::to_string(now + 300) + "\nReply: ");
  place("new/clock-ran-ahead", "t@x", young + std::to_string(now + 90000) + "\nReply: ");
  place("new/old", "t@x", old);
  place("new/old-but-taken", "a@x", old);
  place("failed/lost", "a@x", old);
  root.write("var/spool/velmar/new/version-one",
             "Velmar-Spool: 1\nId: version-one\nSender: \nRecipient: t@x\nNotify: never\nQueued: 7\n\nm\r\n");
  EXPECT_EQ(counts(flush()), "1 2 2 0 1 0");
  EXPECT_EQ(server.tried, "version-one:t; old:t; old-but-taken:a; clock-ran-ahead:t; due:t; ");
  EXPECT_THAT(log, AllOf(HasSubstr("mail-given-up(old t@x 450 later)"), HasSubstr("mail-delayed(due t@x 450 later)")));
  EXPECT_EQ(spool(),
            "failed t 1 450 later;failed a 99 450 x;failed t 100 450 later;waiting t 2 450 later;waiting t 2 "
            "450 later;waiting t 1 ;");
  EXPECT_EQ(counts(flush()), "0 0 0 0 3 0");
  server.tried.clear();
  EXPECT_EQ(counts(flush(true)), "0 3 0 0 0 0");
}

TEST_F(QueueTest, AnUnusableServerHoldsAllMailsUntilItsTimeOrAnAdministratorComes) {
  for (const char* id : {"1", "2", "3"}) queue(id, {"u"});
  EXPECT_EQ(counts(flush()), "0 1 0 0 0 2");
  EXPECT_EQ(counts(flush()), "0 0 0 0 0 3");
  EXPECT_EQ(server.tried, "1:u; ");
  EXPECT_EQ(counts(flush(true)), "0 1 0 0 0 2");
  Host::QueueHold hold = Host::queueHold();
  EXPECT_EQ(std::to_string(hold.failures) + hold.reason, "2450 later");
  EXPECT_NEAR(static_cast<double>(hold.until), static_cast<double>(now + 600), 20);
  Host::retryQueued("3");
  EXPECT_EQ(Host::queueHold().failures, 0);
  EXPECT_EQ(counts(flush()), "0 1 0 0 1 1");  // 1 is not due, 2 finds the server as it was, 3 waits for it
  for (const char* id : {"1", "2", "3"}) Host::dropQueued(id);
  queue("4", {"a"});
  EXPECT_EQ(counts(flush()), "0 0 0 0 0 1");
  root.write("var/spool/velmar/hold", "1 " + std::to_string(now - 1) + " was down\n");
  EXPECT_EQ(counts(flush()), "1 0 0 0 0 0");
  EXPECT_FALSE(fs::exists(root / "var/spool/velmar/hold"));
  for (const char* damaged : {"", "x", "1 x", "-1 99999999999 x"}) {
    root.write("var/spool/velmar/hold", damaged);
    EXPECT_EQ(Host::queueHold().failures, 0) << damaged;
  }
}

TEST_F(QueueTest, UnreadableFilesAreNamedAndStopNothing) {
  queue("good", {"a"});
  place("new/bad", "no address", "Queued: 7\nAttempts: 0\nNext: 0\nReply: ");
  place("failed/bad-too", "a@x", "Queued: 7\nAttempts: -1\nNext: 0\nReply: ");
  place("new/bad-time", "a@x", "Queued: 7\nAttempts: 0\nNext: 253402300800\nReply: ");
  fs::create_directories(root / "var/spool/velmar/new/directory");
  fs::create_symlink(root / "outside", root / "var/spool/velmar/new/link");
  const FlushResult result = flush();
  EXPECT_EQ(counts(result), "1 0 0 4 0 0");
  for (const Host::FlushProblem& problem : result.problems) {
    EXPECT_THAT(problem.reply, HasSubstr("/new/" + problem.id + ": "));
  }
  EXPECT_EQ(Host::listSpool().size(), 5U);
  EXPECT_THAT(thrownBy([] { Host::retryQueued("bad"); }), HasSubstr("no mail address: \"no address\""));
  Host::dropQueued("bad");
  Host::dropQueued("bad-too");
  EXPECT_THAT(log, HasSubstr("mail-dropped(bad )mail-dropped(bad-too )"));
  for (const char* id : {"bad", "directory", "link", "../new/bad-time", ""}) {
    EXPECT_THAT(thrownBy([&] { Host::dropQueued(id); }), HasSubstr("spool file ")) << id;
  }
  EXPECT_EQ(Host::listSpool().size(), 3U);
}

TEST_F(QueueTest, RetryRevivesAndDropRemovesUnlessSomebodyHasTheMail) {
  place("failed/f", "a@x", "Queued: 7\nAttempts: 50\nNext: 0\nReply: 550 no");
  const std::string later = std::to_string(now + 1000);
  place("new/w", "a@x", "Queued: " + std::to_string(now - 10) + "\nAttempts: 3\nNext: " + later + "\nReply: 450 x");
  {
    const Host::QueueClaim held(SpoolState::kFailed, "f");
    ASSERT_EQ(held.result(), Host::ClaimResult::kTaken);
    EXPECT_THAT(thrownBy([] { Host::retryQueued("f"); }), HasSubstr("failed/f: is being handled right now"));
    EXPECT_THAT(thrownBy([] { Host::dropQueued("f"); }), HasSubstr("failed/f: is being handled right now"));
  }
  Host::retryQueued("f");
  Host::retryQueued("w");
  EXPECT_EQ(spool(), "waiting a 3 450 x;waiting a 0 550 no;");
  Host::dropQueued("w");
  EXPECT_EQ(log, "mail-dropped(w a@x)");
  EXPECT_EQ(counts(flush()), "1 0 0 0 0 0");
  EXPECT_EQ(server.tried, "f:a; ");
  EXPECT_THAT(thrownBy([] { Host::retryQueued("w"); }), HasSubstr("new/w: No such file"));
}

TEST_F(QueueTest, AFailedMailOfTheSameNameIsNotOverwritten) {
  place("failed/m", "a@x", "Queued: 7\nAttempts: 1\nNext: 0\nReply: older");
  queue("m", {"p"});
  EXPECT_EQ(counts(flush()), "0 0 1 0 0 0");
  EXPECT_EQ(spool(), "failed a 1 older;failed p 1 550 no;");
}

TEST_F(QueueTest, HostileAndLongAnswersStayOneShortLine) {
  server.permanent = "550 a\r\nNext: 7\x01\xff\n\n" + std::string(5000, 'x');
  queue("m", {"p"});
  flush();
  const auto entries = Host::listSpool();
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_THAT(entries[0].lastReply, ::testing::StartsWith("550 a\\x0d\\nNext: 7\\x01\\xff\\n\\nxxx"));
  EXPECT_EQ(entries[0].lastReply.size(), 2003U);

  Host::SpoolEntry entry;
  Host::HandOver answer;
  for (int i = 0; i < 400; ++i) {
    entry.recipients.push_back("ü" + std::to_string(i) + "@x");
    answer.recipients.push_back({Host::Verdict::kTemporary, "4" + std::to_string(i)});
  }
  entry.recipients.push_back("unanswered@x");
  entry.queuedAt = now;
  const auto outcome = Host::outcomeOf(entry, answer, config, now);
  ASSERT_TRUE(outcome.waiting);
  EXPECT_EQ(outcome.waiting->recipients.size(), 401U);
  EXPECT_THAT(outcome.waiting->lastReply, AllOf(::testing::StartsWith("ü0@x: 40; ü1@x: 41; "), HasSubstr("...")));
}

TEST_F(QueueTest, OnlyWhatDeadProcessesLeftIsSweptAway) {
  queue("m", {"t"});
  root.write("var/spool/velmar/tmp/dead", "x");
  root.write("var/spool/velmar/tmp/alive", "x");
  const Host::Descriptor alive(::open((root / "var/spool/velmar/tmp/alive").c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(::flock(alive.get(), LOCK_EX), 0);
  flush();
  EXPECT_FALSE(fs::exists(root / "var/spool/velmar/tmp/dead"));
  EXPECT_TRUE(fs::exists(root / "var/spool/velmar/tmp/alive"));
}

TEST_F(QueueTest, WhatRootDoesByHandBelongsToTheOwnerOfTheSpool) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root may give files away";
  constexpr uid_t kService = 65534;
  root.makeDirectory("var/spool/velmar");
  ASSERT_EQ(::chown((root / "var/spool/velmar").c_str(), kService, kService), 0);
  for (const char* id : {"1", "2", "3"}) queue(id, {id[0] == '3' ? "u" : "t", "p"});
  flush();
  EXPECT_EQ(Host::listSpool().size(), 6U);
  EXPECT_GT(Host::queueHold().failures, 0);
  for (const auto& entry : fs::recursive_directory_iterator(root / "var/spool/velmar")) {
    struct stat status {};
    ASSERT_EQ(::lstat(entry.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, kService) << entry.path();
    EXPECT_EQ(status.st_gid, kService) << entry.path();
  }
}

TEST_F(QueueTest, AFullDiskRefusesNewMails) {
  Host::QueuedMail mail;
  mail.id = "m";
  mail.recipients = {"a@x"};
  struct Case {
    Host::SpoolFloor floor;
    const char* want;
  };
  for (const Case& one : {Case{{INT_MAX, 0}, "MiB are free, 2147483647 MiB must stay free"},
                          Case{{0, INT_MAX}, "inodes are free, 2147483647 must be"}, Case{{0, 0}, "nothing thrown"}}) {
    EXPECT_THAT(thrownBy([&] { Host::writeToSpool(mail, one.floor); }), HasSubstr(one.want));
  }
  EXPECT_EQ(Host::listSpool().size(), 1U);
}

/// Notes each mail that comes in a file that several processes share.
class SharedRecord {
 public:
  explicit SharedRecord(std::string path) : path_(std::move(path)) {}
  void note(const std::string& line) const {
    const Host::Descriptor file(::open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    if (::write(file.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) ::_exit(3);
  }

 private:
  std::string path_;
};

TEST_F(QueueTest, ProcessesAndThreadsShareTheMailsAndEachGoesOnce) {
  constexpr int kMails = 200;
  for (int i = 0; i < kMails; ++i) queue("m-" + std::to_string(i), {i % 2 == 0 ? "a" : "t"});
  Host::setEventObserver(nullptr);
  const SharedRecord record(root / "record");
  std::vector<pid_t> children;
  for (int process = 0; process < 3; ++process) {
    const pid_t child = ::fork();
    if (child == 0) {
      const auto work = [&] {
        LetterTransport mine;
        mine.onMail = [&](const Host::QueuedMail& mail) { record.note(mail.id + "\n"); };
        Host::flushQueueWith(mine, config, {});
      };
      std::thread other(work);
      work();
      other.join();
      ::_exit(0);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  std::ifstream in(root / "record");
  std::map<std::string, int> times;
  for (std::string line; std::getline(in, line);) ++times[line];
  EXPECT_EQ(times.size(), static_cast<std::size_t>(kMails));
  for (const auto& [id, count] : times) EXPECT_EQ(count, 1) << id;
  EXPECT_EQ(Host::listSpool().size(), kMails / 2U);
}

}  // namespace
}  // namespace Velmar
