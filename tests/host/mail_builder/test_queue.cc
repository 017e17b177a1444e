// The queue: what each answer of a server makes of a mail, when it is tried, and who tries it.

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <climits>
#include <map>
#include <regex>
#include <thread>

#include "host/mail_builder/file_lock.h"
#include "host/mail_builder/hand_over/queue_claim.h"
#include "host/mail_builder/hand_over/queue_round.h"
#include "host/mail_builder/hand_over/retry_schedule.h"
#include "host/mail_builder/spool_envelope.h"
#include "tests/host/mail_builder/letter_transport.h"
#include "tests/support/temp_root.h"
#include "tests/support/thrown_by.h"

namespace Velmar {
namespace {

namespace fs = std::filesystem;
using Host::SpoolState;
using ::testing::HasSubstr;
using Testing::thrownBy;

const Host::QueueConfig config;  // as it comes: 300 s, 4000 s, 432000 s

TEST(RetryScheduleTest, DoublesUpToTheLongestAndGivesUpOnlyAfterALastTry) {
  for (const auto& [failures, want] : {std::pair(1, 300), {2, 600}, {4, 2400}, {5, 4000}, {INT_MAX, 4000}}) {
    EXPECT_EQ(Host::retryDelay(config, failures), want) << failures;
  }
  constexpr long long kEnd = 1000 + 432000;  // of a mail that was queued at 1000
  const std::pair<long long, long long> attempts[] = {
      {1000, 1300}, {0, 300}, {kEnd - 301, kEnd - 1}, {kEnd - 299, kEnd}, {kEnd - 1, kEnd}, {kEnd, -1}, {kEnd + 5, -1}};
  for (const auto& [now, want] : attempts) {
    EXPECT_EQ(Host::nextAttempt(config, 1000, 1, now).value_or(-1), want) << now;
  }
  for (const auto& [next, want] : {std::pair(0, true), {100, true}, {101, false}, {4100, false}, {4101, true}}) {
    EXPECT_EQ(Host::isDue(config, next, 100), want) << next;
  }
}

TEST(QueueIdTest, CountersCountByValue) {
  std::vector<std::string> ids = {"z", "", "22-7-9-ff", "22-7-10-aa", "22-7-1a-0", "9", "22-7"};
  std::sort(ids.begin(), ids.end(), Host::madeBefore);
  EXPECT_THAT(ids, ::testing::ElementsAre("", "9", "22-7", "22-7-9-ff", "22-7-10-aa", "22-7-1a-0", "z"));
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

  /// Accepts a mail with one recipient a letter.
  static void queue(const std::string& id, const std::string& letters, const Host::SpoolFloor& floor = {}) {
    Host::QueuedMail mail;
    mail.id = id;
    for (const char letter : letters) mail.recipients.push_back(std::string(1, letter) + "@x");
    mail.content = "To: a@x\r\n\r\nhello\r\n";
    Host::writeToSpool(mail, floor);
  }

  /// Lays a file into the spool. age  seconds since it was queued; next  seconds from now, 0 = at once
  void place(const std::string& path, const std::string& recipient, long long age, int attempts, long long next = 0) {
    const std::string times = "\nNotify: never\nQueued: " + std::to_string(now - age) + "\nAttempts: ";
    root.write("var/spool/velmar/" + path,
               "Velmar-Spool: 2\nId: " + path.substr(path.find('/') + 1) + "\nSender: \nRecipient: " + recipient +
                   times + std::to_string(attempts) + "\nNext: " + std::to_string(next ? now + next : 0) +
                   "\nReply: old\n\nm");
  }

  /// "HANDED-ON DELAYED FAILED UNREADABLE NOT-DUE HELD".
  std::string flush(bool evenIfNotDue = false) {
    const Host::FlushResult r = Host::flushQueueWith(server, config, {evenIfNotDue});
    for (const auto& problem : r.problems) problems += problem.id + " " + problem.reply + "\n";
    std::string text = std::to_string(r.handedOn);
    for (const auto count : {r.delayed, r.failed, r.unreadable, r.notDue, r.held}) text += " " + std::to_string(count);
    return text;
  }

  /// The spool: "STATE RECIPIENTS ATTEMPTS REPLY;" of each entry.
  static std::string spool() {
    std::string text;
    for (const Host::SpoolEntry& entry : Host::listSpool()) {
      text += entry.state == SpoolState::kWaiting ? "waiting " : "failed ";
      for (const std::string& recipient : entry.recipients) text += recipient[0];
      text += " " + std::to_string(entry.attempts) + " " + entry.lastReply + ";";
    }
    return text;
  }

  const Testing::TempRoot root;
  const long long now = std::time(nullptr);
  Testing::LetterTransport server;
  std::string log, problems;
};

TEST_F(QueueTest, WhatEachAnswerMakesOfAMail) {
  const std::string taken = "mail-handed-over(m a@x 250 ok)", delayed = "mail-delayed(m t@x 450 later)";
  const std::string refused = "mail-refused(m p@x 550 no)", part = "mail-refused(m~ p@x 550 no)";
  const std::string unsent = "not sent: bare CR in the mail";
  const struct {
    std::string letters, wantCounts, wantSpool, wantLog;
  } cases[] = {
      {"a", "1 0 0 0 0 0", "", taken},
      {"at", "0 1 0 0 0 0", "waiting t 1 450 later;", taken + delayed},
      {"t", "0 1 0 0 0 0", "waiting t 1 450 later;", delayed},
      {"p", "0 0 1 0 0 0", "failed p 1 550 no;", refused},
      {"ap", "0 0 1 0 0 0", "failed p 1 550 no;", taken + refused},
      {"ppa", "0 0 1 0 0 0", "failed pp 1 550 no;", taken + "mail-refused(m p@x,p@x 550 no)"},
      {"tap", "0 1 1 0 0 0", "waiting t 1 450 later;failed p 1 550 no;", taken + delayed + part},
      {"tu", "0 1 0 0 0 0", "waiting tu 1 450 later;", "mail-delayed(m t@x,u@x 450 later)"},
      {"x", "0 0 1 0 0 0", "failed x 1 " + unsent + ";", "mail-refused(m x@x " + unsent + ")"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.letters);
    fs::remove_all(root / "var");
    log.clear();
    queue("m", one.letters);
    EXPECT_EQ(flush(), one.wantCounts);
    EXPECT_EQ(spool(), one.wantSpool);
    EXPECT_EQ(std::regex_replace(log, std::regex("m-[0-9a-f]{8} "), "m~ "), one.wantLog);
    for (const Host::SpoolEntry& entry : Host::listSpool()) {
      EXPECT_EQ(Host::readSpool(entry.id).content, "To: a@x\r\n\r\nhello\r\n");
      EXPECT_THAT(problems, HasSubstr(entry.id + " " + entry.lastReply + "\n"));
      const bool waits = entry.state == SpoolState::kWaiting;
      EXPECT_NEAR(static_cast<double>(entry.nextAttempt), static_cast<double>(waits ? now + 300 : 0), 20);
    }
  }
}

TEST_F(QueueTest, WhatIsDueIsTriedAndWhatIsTooOldIsGivenUp) {
  place("new/due", "t@x", 10, 1, -1);
  place("new/later", "t@x", 10, 1, 300);
  place("new/clock-ran-ahead", "t@x", 11, 1, 90000);
  place("new/old", "t@x\nRecipient: p@x", 432001, 99);
  place("new/old-but-taken", "a@x", 432000, 99);
  place("failed/lost", "a@x", 432000, 99);
  root.write("var/spool/velmar/new/version-one",
             "Velmar-Spool: 1\nId: version-one\nSender: \nRecipient: t@x\nNotify: never\nQueued: 7\n\nm\r\n");
  EXPECT_EQ(flush(), "1 2 2 0 1 0");
  EXPECT_EQ(server.tried, "version-one old old-but-taken due clock-ran-ahead ");
  EXPECT_THAT(log, HasSubstr("mail-refused(old p@x 550 no)mail-given-up(old t@x 450 later)"));
  EXPECT_EQ(spool(),
            "failed t 1 450 later;failed tp 100 t@x: 450 later; p@x: 550 no;failed a 99 old;waiting t 2 450 later;"
            "waiting t 2 450 later;waiting t 1 old;");
  EXPECT_EQ(flush(), "0 0 0 0 3 0");
  EXPECT_EQ(flush(true), "0 3 0 0 0 0");
}

TEST_F(QueueTest, AnUnusableServerHoldsAllMailsUntilItsTimeOrAnAdministratorComes) {
  for (const char* id : {"1", "2", "3"}) queue(id, "u");
  EXPECT_EQ(flush(), "0 1 0 0 0 2");
  EXPECT_EQ(flush(), "0 0 0 0 0 3");
  EXPECT_EQ(flush(true), "0 1 0 0 0 2");
  EXPECT_EQ(server.tried, "1 2 ");
  EXPECT_EQ(Host::queueHold().failures, 2);
  EXPECT_NEAR(static_cast<double>(Host::queueHold().until), static_cast<double>(now + 600), 20);
  Host::retryQueued("3");
  EXPECT_EQ(flush(), "0 1 0 0 0 2");  // 3 finds the server as it was, the others wait for it
  root.write("var/spool/velmar/hold", "1 " + std::to_string(now - 1) + " was down\n");
  for (const char* id : {"1", "2", "3"}) Host::dropQueued(id);
  queue("4", "a");
  EXPECT_EQ(flush(), "1 0 0 0 0 0");
  EXPECT_FALSE(fs::exists(root / "var/spool/velmar/hold"));
  for (const char* damaged : {"", "x", "1 x", "-1 99999999999 x"}) {
    root.write("var/spool/velmar/hold", damaged);
    EXPECT_EQ(Host::queueHold().failures, 0) << damaged;
  }
}

TEST_F(QueueTest, AMailThatMakesTheServerUnusableComesAfterTheOthers) {
  for (const char* id : {"poison", "z-other"}) place(std::string("new/") + id, "u@x", 20, 3, -1);
  root.write("var/spool/velmar/hold", "3 1 unusable\n");
  for (const char* id : {"1", "2"}) queue(id, "a");
  EXPECT_EQ(flush(), "2 1 0 0 0 1");
  EXPECT_EQ(server.tried, "1 2 poison ");
  EXPECT_EQ(Host::queueHold().failures, 1);  // it worked in between
}

TEST_F(QueueTest, WhatComesInDuringARoundGoesWithIt) {
  server.onMail = [](const Host::QueuedMail& mail) {
    if (mail.id < "3") queue(std::to_string(std::stoi(mail.id) + 1), "a");
  };
  queue("1", "a");
  place("new/t", "t@x", 10, 1, -1);
  EXPECT_EQ(flush(), "3 1 0 0 0 0");
}

TEST_F(QueueTest, WhatCannotBeNotedKeepsNoOtherMailWaiting) {
  server.onMail = [&](const Host::QueuedMail& /*mail*/) { fs::remove_all(root / "var/spool/velmar/tmp"); };
  for (const char* letters : {"t", "a"}) queue(letters, letters);
  EXPECT_EQ(flush(), "1 1 0 0 0 0");
  EXPECT_THAT(problems, HasSubstr("t 450 later; not noted: "));
  queue("z", "ta");  // has been taken for one: going on would deliver more of them twice
  EXPECT_THAT(thrownBy([&] { flush(); }), HasSubstr("tmp/z."));
  EXPECT_EQ(spool(), "waiting t 0 ;waiting ta 0 ;");
}

TEST_F(QueueTest, UnreadableFilesAreNamedAndStopNothing) {
  place("new/bad", "no address", 0, 0);
  place("failed/bad-too", "a@x", 0, -1);
  fs::create_directories(root / "var/spool/velmar/new/directory");
  fs::create_symlink(root / "var/spool/velmar/new/good", root / "var/spool/velmar/new/link");
  queue("good", "a");
  EXPECT_EQ(flush(), "1 0 0 3 0 0");
  for (const char* id : {"bad", "directory", "link"})
    EXPECT_THAT(problems, HasSubstr(std::string("/new/") + id + ": "));
  EXPECT_THAT(thrownBy([] { Host::retryQueued("bad"); }), HasSubstr("no mail address: \"no address\""));
  for (const char* id : {"bad", "bad-too"}) Host::dropQueued(id);
  EXPECT_THAT(log, HasSubstr("mail-dropped(bad )mail-dropped(bad-too )"));
  for (const char* id : {"bad", "directory", "link", "../new/link", ""}) {
    EXPECT_THAT(thrownBy([&] { Host::dropQueued(id); }), HasSubstr("spool file ")) << id;
  }
  EXPECT_EQ(Host::listSpool().size(), 2U);
}

TEST_F(QueueTest, RetryRevivesUnlessSomebodyHasTheMail) {
  place("failed/f", "a@x", 432000, 50);
  place("new/w", "t@x", 10, 3, 1000);
  for (const auto& [place, id] : {std::pair(SpoolState::kFailed, "f"), {SpoolState::kWaiting, "w"}}) {
    {
      const Host::QueueClaim held(place, id);
      EXPECT_THAT(thrownBy([&] { Host::retryQueued(id); }),
                  HasSubstr(std::string(id) + ": is being handled right now"));
      EXPECT_THAT(thrownBy([&] { Host::dropQueued(id); }), HasSubstr("right now"));
    }
    Host::retryQueued(id);
  }
  EXPECT_EQ(spool(), "waiting t 3 old;waiting a 0 old;");
  EXPECT_EQ(flush(), "1 1 0 0 0 0");
}

TEST_F(QueueTest, HostileAnswersStayOneShortLineAndNoFailedMailIsOverwritten) {
  place("failed/m", "a@x", 10, 1);
  queue("m", "p");
  server.permanent = "550 a\r\nNext: 7\x01\xff\n\n" + std::string(5000, 'x');
  EXPECT_EQ(flush(), "0 0 1 0 0 0");
  EXPECT_THAT(spool(), ::testing::StartsWith("failed a 1 old;failed p 1 550 a\\x0d\\nNext: 7\\x01\\xff\\n\\nxxx"));
  EXPECT_EQ(Host::listSpool()[1].lastReply.size(), 2003U);
}

TEST_F(QueueTest, OnlyWhatDeadProcessesLeftIsSweptAway) {
  for (const char* name : {"dead", "alive"}) root.write(std::string("var/spool/velmar/tmp/") + name, "x");
  const std::string path = root / "var/spool/velmar/tmp/alive";
  const Host::Descriptor alive(::open(path.c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_TRUE(Host::tryLock(alive, path));
  flush();
  EXPECT_FALSE(fs::exists(root / "var/spool/velmar/tmp/dead"));
  EXPECT_TRUE(fs::exists(path));
}

TEST_F(QueueTest, WhatRootDoesByHandBelongsToTheOwnerOfTheSpool) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root may give files away";
  constexpr uid_t kService = 65534;
  ASSERT_EQ(::chown(root.makeDirectory("var/spool/velmar").c_str(), kService, kService), 0);
  for (const char* letters : {"tp", "up"}) queue(letters, letters);
  EXPECT_EQ(flush(), "0 2 2 0 0 0");
  for (const auto& entry : fs::recursive_directory_iterator(root / "var/spool/velmar")) {
    struct stat status {};
    ASSERT_EQ(::lstat(entry.path().c_str(), &status), 0);
    EXPECT_TRUE(status.st_uid == kService && status.st_gid == kService) << entry.path();
  }
  // But nothing that the service has put in the place of a directory.
  fs::remove_all(root / "var/spool/velmar/failed");
  root.write("secret", "");
  fs::create_hard_link(root / "secret", root / "var/spool/velmar/failed");
  EXPECT_THAT(thrownBy([&] { flush(); }), HasSubstr("failed cannot be opened: Not a directory"));
  EXPECT_EQ(Host::statusOf(Host::openSpoolFile(root / "secret", O_RDONLY), "secret").st_uid, 0U);
}

TEST_F(QueueTest, AFullDiskRefusesNewMails) {
  for (const auto& [floor, want] : {std::pair(Host::SpoolFloor{INT_MAX, 0}, " MiB are free, 2147483647 MiB must stay"),
                                    {{0, INT_MAX}, "inodes are free, 2147483647 must be"}}) {
    EXPECT_THAT(thrownBy([&] { queue("m", "a", floor); }), HasSubstr(want));
  }
  EXPECT_THAT(Host::spoolSpaceFault(root / "", std::size_t{1} << 60, {0, 0}), HasSubstr(" MiB are free, 0 MiB must"));
  EXPECT_TRUE(Host::listSpool().empty());
}

TEST_F(QueueTest, ProcessesAndThreadsShareTheMailsAndEachIsTriedOnce) {
  constexpr int kMails = 200;
  for (int i = 0; i < kMails; ++i) queue("m-" + std::to_string(i), i % 2 == 0 ? "a" : "t");
  Host::setEventObserver(nullptr);
  const Host::Descriptor record(::open((root / "record").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  const auto work = [&] {
    Testing::LetterTransport mine;
    mine.onMail = [&](const Host::QueuedMail& mail) {
      const std::string line = mail.id + "\n";
      if (::write(record.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) ::_exit(3);
    };
    Host::flushQueueWith(mine, config, {});
  };
  for (int process = 0; process < 3; ++process) {
    if (::fork() != 0) continue;
    std::thread other(work);
    work();
    other.join();
    ::_exit(0);
  }
  for (int status = 0; ::wait(&status) > 0;) EXPECT_EQ(status, 0);
  std::istringstream in(root.read("record"));
  std::map<std::string, int> times;
  for (std::string line; std::getline(in, line);) EXPECT_EQ(++times[line], 1) << line;
  EXPECT_EQ(times.size(), static_cast<std::size_t>(kMails));
  EXPECT_EQ(Host::listSpool().size(), kMails / 2U);
}

}  // namespace
}  // namespace Velmar
