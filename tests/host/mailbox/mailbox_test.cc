// The quarantine mailbox on real files, also when they change during a scan or do not belong there.

#include "platform/mailbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <thread>
#include <utility>

#include "host/host.h"
#include "host/mailbox/maildir.h"
#include "tests/support/temp_root.h"
#include "tests/support/thrown_by.h"

// The openat() call, counted from now, that fails; 0 = none.
static thread_local int failingOpen = 0;
static thread_local int failingOpenError = 0;

// Other threads than the test's that opened something, or were ready to take a signal then; and whether opening waits,
// as it does for a disk.
static std::atomic<int> opensElsewhere{0};
static std::atomic<int> signalsElsewhere{0};
static std::atomic<bool> openingWaits{false};
static thread_local bool isElsewhere = true;

static void countAndWait() {
  if (openingWaits) std::this_thread::sleep_for(std::chrono::microseconds(50));
  sigset_t blocked;
  ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
  if (isElsewhere) ++opensElsewhere;
  if (isElsewhere && !::sigismember(&blocked, SIGTERM)) ++signalsElsewhere;
}

extern "C" int openat(int directory, const char* name, int flags, ...) {
  countAndWait();
  if (failingOpen > 0 && --failingOpen == 0) {
    errno = failingOpenError;
    return -1;
  }
  return static_cast<int>(::syscall(SYS_openat, directory, name, flags, 0));
}

namespace Velmar {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Keys = std::vector<std::string>;

constexpr char kBox[] = "/home/d.example/u~d.example/quarantine";

Ref<VXMailboxBase> open(const std::string& name = kBox) {
  return VXMailBoxRef::create(name, MAILBOX_OPEN_READ, VXMailBoxRef::MAILBOX_OP_NONE);
}

std::string openError(const std::string& name) {
  return Testing::thrownBy([&] { open(name); });
}

void setWindow(VXMailboxBase& box, int from, int until, int limit = INT_MAX) {
  box.setScope(VXMScopeRef(VXMScopeRef::TIME_RANGE, from, until, limit));
}

// Collects the events of its life instead of stderr, each as NAME|FIELD|FIELD.
class Events {
 public:
  Events() {
    Host::setLogToStderr(false);
    Host::setEventObserver([this](const Host::Event& event) {
      list.emplace_back(event.name);
      for (const std::string& field : event.fields) list.back() += "|" + field;
    });
  }
  ~Events() { Host::setEventObserver(nullptr); }

  /// The events since the last call.
  std::vector<std::string> take() { return std::exchange(list, {}); }

 private:
  std::vector<std::string> list;
};

Keys rest(VXMailboxBase& box) {
  Keys keys;
  while (VXMessageRef message = box.next()) keys.push_back(message->envelope()->key());
  return keys;
}

// The mailbox with a scan begun.
Ref<VXMailboxBase> scanned(int from, int until, int limit = INT_MAX) {
  const Ref<VXMailboxBase> box = open();
  setWindow(*box, from, until, limit);
  return box;
}

class Mailbox : public ::testing::Test {
 protected:
  Mailbox() {
    for (const char* folder : {"new", "cur", "tmp"}) root.makeDirectory(std::string(kBox) + "/" + folder);
  }

  std::string file(const std::string& name) const { return root / (std::string(kBox) + "/" + name); }
  void hold(const std::string& name, const std::string& text = "From: a@b\n\n") const {
    root.write(std::string(kBox) + "/" + name, text);
  }
  void setTime(const std::string& name, std::time_t time) const {
    const timespec times[] = {{time, 0}, {time, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file(name).c_str(), times, 0), 0) << name;
  }
  void rename(const std::string& from, const std::string& to) const {
    ASSERT_EQ(::rename(file(from).c_str(), file(to).c_str()), 0) << from << " to " << to;
  }

  void TearDown() override { EXPECT_THAT(events.take(), IsEmpty()) << "told to the log and not expected"; }

  /// The event for a message that could not be read.
  std::string unreadable(const std::string& name, const std::string& reason) const {
    return "held-message-unreadable|" + root / (kBox + 1) + "/" + name + "|" + reason;
  }

  Testing::TempRoot root;
  Events events;
};

TEST_F(Mailbox, WindowIsHalfOpenAndOrderIsTimeThenName) {
  for (const char* name : {"cur/9.b:2,", "new/10.a", "new/9.c", "cur/9.b0:2,", "new/010.b", "cur/8.z:2,"}) hold(name);
  EXPECT_THAT(rest(*scanned(INT_MIN, INT_MAX)), ElementsAre("8.z:2,", "9.b0:2,", "9.b:2,", "9.c", "010.b", "10.a"));
  EXPECT_THAT(rest(*scanned(9, 10)), ElementsAre("9.b0:2,", "9.b:2,", "9.c"));
  EXPECT_THAT(rest(*scanned(9, 11, 2)), ElementsAre("9.b0:2,", "9.b:2,"));
  EXPECT_THAT(rest(*scanned(9, 11, -1)), IsEmpty());
}

TEST_F(Mailbox, OddNamesAndMessagesWithoutHeader) {
  for (const char* name : {"new/5.\n\xff\xfe", "new/5. %s\"'", "cur/plain:2,S", "new/99999999999999999999.x",
                           "new/4294967301.x", "new/.5.x", "tmp/5.x"}) {
    hold(name, "");
  }
  for (const char* name : {"cur/plain:2,S", "new/.5.x"}) setTime(name, 6);
  setTime("new/99999999999999999999.x", 8);
  setTime("new/4294967301.x", 5);  // 2^32 + 5: a time beyond every window, not 5
  setTime("new", 9999999999);      // in nanoseconds more than 64 bits hold
  EXPECT_THAT(rest(*scanned(5, 9)), ElementsAre("5.\n\xff\xfe", "5. %s\"'", "plain:2,S", "99999999999999999999.x"));
}

TEST_F(Mailbox, MessageOutlivesTheScanThatGaveIt) {
  hold("cur/7.a,S=3:2,PS", "FROM: x\r\nSubject: one\r\n two\r\n\r\nMessage-Id: <body>\r\n");
  const Ref<VXMailboxBase> box = scanned(0, 100);
  const VXMessageRef message = box->next();
  setWindow(*box, 0, 0);
  EXPECT_EQ(message->flags() & (VXMessageFlags::RELEASED | VXMessageFlags::DELETED), VXMessageFlags::RELEASED);
  EXPECT_EQ(message->headers().find("subject").value(), "one two");
  EXPECT_TRUE(message->headers().find("Message-Id").isNull());
}

// The end of the header on each side of where reads end: after 8 KiB, after the next step, at the cap; and far beyond.
TEST_F(Mailbox, LongHeadersAreReadUpToTheCap) {
  constexpr std::size_t kCap = 1024 * 1024;
  for (const std::size_t size : {std::size_t{8192}, std::size_t{32768}, kCap - 64, 2 * kCap}) {
    for (std::size_t length = size - 24; length < size - 16; ++length) {
      std::string text = "From: f\r\nX-Pad: ";
      text.resize(length, 'x');
      hold("new/1.a", text + "\r\nSubject: s\r\n\r\nTo: body\r\n");
      const VXMessageRef message = scanned(0, 100)->next();
      EXPECT_EQ(message->headers().find("Subject").isNull(), size > kCap) << length;
      EXPECT_TRUE(message->headers().find("To").isNull()) << length;
    }
  }
}

TEST_F(Mailbox, WhatIsNoRegularFileNeitherBlocksNorCounts) {
  for (const char* name : {"new/3.a", "new/4.a", "new/6.a"}) hold(name);
  ASSERT_EQ(::mkfifo(file("new/1.fifo").c_str(), 0666), 0);
  ASSERT_EQ(::symlink("6.a", file("new/2.link").c_str()), 0);
  const Ref<VXMailboxBase> box = scanned(0, INT_MAX, 1);
  // The listing saw two more messages; what stands there when they are opened is something else.
  for (const char* name : {"new/3.a", "new/4.a"}) ::unlink(file(name).c_str());
  ASSERT_EQ(::mkfifo(file("new/3.a").c_str(), 0666), 0);
  ASSERT_EQ(::symlink("6.a", file("new/4.a").c_str()), 0);
  EXPECT_THAT(rest(*box), ElementsAre("6.a"));
  EXPECT_THAT(events.take(), ElementsAre(unreadable("new/3.a", "Illegal seek")));
}

TEST_F(Mailbox, MessageMovedAfterTheListingIsFoundAgainAndOneInBothFoldersIsListedOnce) {
  for (const char* name : {"new/1.a", "cur/2.a,S=1:2,", "cur/3.a:2,S", "new/4.gone", "new/5.a", "cur/5.a:2,S",
                           "cur/5.ab:2,S", "new/untimed"}) {
    hold(name);
  }
  setTime("new/untimed", 6);
  const Ref<VXMailboxBase> box = scanned(0, 100);
  rename("new/1.a", "cur/1.a:2,");
  rename("cur/2.a,S=1:2,", "cur/2.a,S=1:2,T");
  ::unlink(file("new/4.gone").c_str());
  rename("new/untimed", "cur/untimed:2,S");
  EXPECT_EQ(box->next()->envelope()->key(), "1.a:2,");
  EXPECT_EQ(box->next()->flags(), VXMessageFlags::DELETED);
  rename("cur/3.a:2,S", "cur/3.a:2,RS");
  EXPECT_THAT(rest(*box), ElementsAre("3.a:2,RS", "5.a:2,S", "5.ab:2,S", "untimed:2,S"));
}

TEST_F(Mailbox, FoldersMayVanish) {
  for (const char* name : {"cur/2.a", "cur/3.a"}) hold(name);
  std::filesystem::remove_all(file("new"));
  const Ref<VXMailboxBase> box = scanned(0, 100);
  EXPECT_EQ(box->next()->envelope()->key(), "2.a");
  std::filesystem::remove_all(file(""));
  EXPECT_FALSE(box->next());
  setWindow(*box, 0, 100);
  EXPECT_FALSE(box->next());
}

TEST_F(Mailbox, MessagesOfOneIdentifierAreToldOnceAScan) {
  const struct {
    std::vector<std::string> names;
    std::string want;  // the two names
  } cases[] = {
      {{"new/1.a,1", "cur/1.a,2:2,S"}, "1.a,1|1.a,2:2,S"},
      {{"new/1.a", "new/1.a+", "cur/1.a:2,1:2,S"}, "1.a|1.a:2,1:2,S"},
      {{"new/m,2", "new/m,1", "new/m,3", "new/l,2", "new/l,1"}, "l,1|l,2"},
      {{"new/1.a,S=1", "cur/1.a,S=1:2,S"}, ""},  // one message
      {{"new/1.a", "cur/1.b:2,S", "new/1.a+", "new/2.a,1"}, ""},
  };
  for (const auto& c : cases) {
    for (const std::string& name : c.names) hold(name);
    const Ref<VXMailboxBase> box = scanned(0, INT_MAX);
    for (int i = 0; i < 2; ++i) rest(*box);
    Keys want;
    if (!c.want.empty()) want = {"held-messages-share-identifier|" + root / (kBox + 1) + "|" + c.want};
    EXPECT_EQ(events.take(), want);
    for (const std::string& name : c.names) ::unlink(file(name).c_str());
  }
}

// One pass over a directory may miss a file that is renamed at the wrong moment; a message that is only moved to cur/
// or flagged must be in each listing all the same, once, or no report ever shows it.
TEST_F(Mailbox, UnderConstantChangeEachMessageThatStaysIsListedOnceInEachScan) {
  constexpr int kRounds = 500;  // of two scans
  constexpr std::size_t kWandering = 250;
  const auto wandering = [](std::size_t message, std::size_t round) {
    const std::string number = std::string(230, 'n') + std::to_string(message);  // long: so one read holds few names
    return round == 0 ? "new/300." + number : "cur/300." + number + (round % 2 ? ":2," : ":2,S");
  };
  for (std::size_t i = 0; i < kWandering; ++i) hold(wandering(i, 0));
  const std::vector<std::string> still{"new/1.a", "new/1.b,S=1", "cur/1.c:2,", "cur/1.d:2,S"};  // but for their text
  for (const std::string& name : still) hold(name);
  std::atomic<bool> stop{false};
  std::thread mover([&] {
    for (std::size_t i = 0; !stop; ++i) {
      rename(wandering(i % kWandering, i / kWandering), wandering(i % kWandering, i / kWandering + 1));
      const std::string passing = file("new/200." + std::to_string(i % 7));
      ::unlink(passing.c_str());
      if (i % 4 == 0) hold("new/200." + std::to_string(i % 7));
      if (i % 4 == 1) ::mkfifo(passing.c_str(), 0666);
      if (i % 4 == 2) std::filesystem::create_symlink("1.a", passing);
      if (i % 16 == 0) hold(still[i / 16 % still.size()], std::string(i % 3 * 20'000, 'h'));
      if (i % 16 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  Host::Maildir maildir(Host::openDirectory(file(""), O_PATH), file(""));
  for (int i = 0; i < kRounds; ++i) {
    EXPECT_EQ(maildir.list({300, 301}).size(), kWandering) << i;
    Keys keys = rest(*scanned(0, 300));
    EXPECT_LE(keys.size(), still.size() + 7) << i;
    keys.resize(still.size());
    EXPECT_THAT(keys, ElementsAre("1.a", "1.b,S=1", "1.c:2,", "1.d:2,S")) << i;
  }
  stop = true;
  mover.join();
  for (const std::string& event : events.take()) EXPECT_THAT(event, HasSubstr("/new/200.")) << event;
}

// Opening a message, once a scan got so far, may fail for the message's sake or for ours.
TEST_F(Mailbox, EachFailingOpenEitherCostsOneMessageOrIsAnError) {
  for (const char* name : {"new/1.a", "new/2.a", "new/3.a"}) hold(name);
  const auto keysFailing = [&](int nth, int error) {
    failingOpen = nth;
    failingOpenError = error;
    try {
      return rest(*scanned(0, 100));
    } catch (const Exception& e) {
      EXPECT_THAT(e.text(), HasSubstr(root / "home/d.example/u~d.example"));
      return Keys{"error"};
    }
  };
  // The mailbox, its quarantine, new and cur are opened before the messages.
  for (const int nth : {1, 2, 3, 4}) EXPECT_THAT(keysFailing(nth, EACCES), ElementsAre("error")) << nth;
  for (const int error : {EMFILE, ENFILE, ENOMEM}) EXPECT_THAT(keysFailing(6, error), ElementsAre("error")) << error;
  for (const int error : {EACCES, EIO, ELOOP, ENXIO})
    EXPECT_THAT(keysFailing(6, error), ElementsAre("1.a", "3.a")) << error;
  EXPECT_THAT(events.take(),
              ElementsAre(unreadable("new/2.a", "Permission denied"), unreadable("new/2.a", "Input/output error")));
}

TEST_F(Mailbox, UnreadableMessagesAreToldOnceAtTheEndOfAScan) {
  for (int i = 10; i < 25; ++i) hold("new/" + std::to_string(i) + ".a");
  hold("new/1.moved");
  hold("new/2.gone");
  for (int i = 12; i < 25; ++i) ASSERT_EQ(::chmod(file("new/" + std::to_string(i) + ".a").c_str(), 0), 0);
  ASSERT_EQ(::chmod(file("new/1.moved").c_str(), 0), 0);
  const std::string reason = "Permission denied";
  {
    const Ref<VXMailboxBase> box = scanned(0, 13);
    ::unlink(file("new/2.gone").c_str());
    rename("new/1.moved", "cur/1.moved:2,S");
    const Testing::AsOrdinaryUser user;
    EXPECT_THAT(rest(*box), ElementsAre("10.a", "11.a"));
    EXPECT_THAT(events.take(), ElementsAre(unreadable("cur/1.moved:2,S", reason), unreadable("new/12.a", reason)));
    EXPECT_FALSE(box->next());
    EXPECT_THAT(events.take(), IsEmpty()) << "told again";
  }
  const Testing::AsOrdinaryUser user;
  EXPECT_THAT(rest(*scanned(11, 25)), ElementsAre("11.a"));
  const std::vector<std::string> told = events.take();
  ASSERT_EQ(told.size(), 11U);
  EXPECT_EQ(told[9], unreadable("new/21.a", reason));
  EXPECT_EQ(told[10], "more-held-messages-unreadable|3|" + root / (kBox + 1));
  EXPECT_THROW(rest(*scanned(12, 25)), Exception);
  EXPECT_THAT(events.take(), IsEmpty()) << "the exception says it";
}

TEST_F(Mailbox, NoneOfTheMessagesReadableIsNoEmptyScan) {
  hold("new/1.a");
  const auto outcome = [](int error) -> std::string {
    failingOpen = 5;
    failingOpenError = error;
    try {
      return rest(*scanned(0, 100)).empty() ? "empty" : "read";
    } catch (const Exception& e) {
      return e.text();
    }
  };
  for (const int error : {EACCES, EIO})
    EXPECT_THAT(outcome(error),
                HasSubstr("cannot read any message in " + root / "home/d.example/u~d.example/quarantine/new"));
  EXPECT_EQ(outcome(ELOOP), "empty");  // a link in a message's place
}

// A message is not left out in silence because nobody can tell whether it is of the period.
TEST_F(Mailbox, AMessageWhoseTimeCannotBeToldIsUnreadable) {
  hold("new/untimed");
  hold("cur/1.a");
  ASSERT_EQ(::chmod(file("new").c_str(), 0744), 0);
  const Testing::AsOrdinaryUser user;
  EXPECT_THAT(rest(*scanned(0, 100)), ElementsAre("1.a"));
  EXPECT_THAT(events.take(), ElementsAre(unreadable("new/untimed", "Permission denied")));
  EXPECT_THROW(rest(*scanned(50, 100)), Exception);
}

// Threads that read ahead change nothing but time, whatever they meet, and take neither signals nor the last
// descriptors.
TEST_F(Mailbox, AScanThatWaitsForTheDiskReadsAhead) {
  constexpr int kHeld = 512;  // as many as the listing has room for
  Keys want;
  for (int i = 100; i < 100 + kHeld; ++i) {
    const std::string key = std::to_string(i) + (i % 2 ? ".a" : ".a:2,S");
    hold((i % 2 ? "new/" : "cur/") + key);
    want.push_back(key);
  }
  const auto keys = [&](rlim_t descriptors) {
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    const rlimit few{descriptors, before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &few);
    isElsewhere = false;
    opensElsewhere = signalsElsewhere = 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(30));  // so that the listing is made once
    const Ref<VXMailboxBase> box = scanned(100, INT_MAX);
    Keys got;
    while (got.size() < 16) got.push_back(box->next()->envelope()->key());
    EXPECT_EQ(opensElsewhere, 0) << "while nothing waits";
    openingWaits = true;
    rename("new/377.a", "cur/377.a:2,S");
    ::unlink(file("cur/300.a:2,S").c_str());
    for (const std::string& key : rest(*box)) got.push_back(key);
    openingWaits = false;
    ::setrlimit(RLIMIT_NOFILE, &before);
    return got;
  };
  std::erase(want, "300.a:2,S");
  std::replace(want.begin(), want.end(), std::string("377.a"), std::string("377.a:2,S"));
  EXPECT_EQ(keys(1024), want);
  EXPECT_GT(opensElsewhere, kHeld / 2);
  EXPECT_EQ(signalsElsewhere, 0);
  hold("new/377.a");
  ::unlink(file("cur/377.a:2,S").c_str());
  EXPECT_EQ(keys(12), want);
  EXPECT_LT(opensElsewhere, 30) << "each thread may try once a stretch";
}

TEST_F(Mailbox, LongValuesAreCutBetweenWords) {
  std::string words;
  while (words.size() < 100'000) words += "=?utf-8?Q?word?= ";
  hold("new/1.a", "Subject: " + words + "\nFrom: " + std::string(100'000, 'f') + "\n\n");
  const VXMessageRef message = scanned(0, 100)->next();
  const std::string subject = message->headers().find("Subject").value();
  EXPECT_EQ(subject, words.substr(0, subject.size()));
  EXPECT_THAT(subject, ::testing::EndsWith("word?="));
  EXPECT_GT(subject.size(), 16'000U);
  EXPECT_EQ(message->headers().find("From").value(), std::string(16 * 1024, 'f'));
}

TEST_F(Mailbox, MissingIsEmptyAndEverythingElseIsAnError) {
  root.makeDirectory("home/d.example/bare~d.example");
  for (const char* user : {"none.example/u~none.example", "d.example/none~d.example", "d.example/bare~d.example"}) {
    EXPECT_FALSE(open("/home/" + std::string(user) + "/quarantine")) << user;
  }
  root.write("home/d.example/file~d.example", "");
  EXPECT_THROW(open("/home/d.example/file~d.example/quarantine"), Exception);
  for (const std::string name : {"/home/quarantine", "/home//quarantine", "/home/d.example/u~other.example/quarantine",
                                 "/home/d.example/u~d.example/quarantine/", "/home/../u~../quarantine",
                                 "/home/d.example/x/u~d.example/quarantine", "home/d.example/u~d.example/quarantine",
                                 "/mail/d.example/u~d.example/quarantine"}) {
    EXPECT_THAT(openError(name), HasSubstr("\"" + name + "\" is not the name of a mailbox"));
  }
  EXPECT_THROW(open(std::string("/home/d.example/u\0x~d.example/quarantine", 39)), Exception);
}

// Whoever can write into one mailbox must not get another one's mail reported.
TEST_F(Mailbox, LinksOutOfAMailboxAreNotFollowed) {
  const std::string thief = root.makeDirectory("home/d.example/t~d.example");
  const std::string name = "/home/d.example/t~d.example/quarantine";
  ASSERT_EQ(::symlink(file("").c_str(), (thief + "/quarantine").c_str()), 0);
  EXPECT_THAT(openError(name), HasSubstr(thief + "/quarantine: Too many levels of symbolic links"));
  ::unlink((thief + "/quarantine").c_str());
  root.makeDirectory(name);
  ASSERT_EQ(::symlink(file("new").c_str(), (root / (name + "/new")).c_str()), 0);
  EXPECT_THROW(setWindow(*open(name), 0, 100), Exception);
  std::filesystem::remove_all(thief);
  ASSERT_EQ(::symlink("u~d.example", thief.c_str()), 0);
  EXPECT_THAT(openError(name), HasSubstr(thief));
}

TEST_F(Mailbox, MailboxesOfADomain) {
  for (const char* directory : {"x~y~d.example", "a~d.example", "gone~d.example/.deleted", "~d.example",
                                "c~other.example", "plain", "d~D.EXAMPLE"}) {
    root.makeDirectory("home/d.example/" + std::string(directory));
  }
  ASSERT_EQ(::symlink("a~d.example", (root / "home/d.example/link~d.example").c_str()), 0);
  EXPECT_THAT(Host::mailboxesOfDomain("d.example"), ElementsAre("a@d.example", "u@d.example", "x~y@d.example"));
  EXPECT_THAT(Host::mailboxesOfDomain("none.example"), IsEmpty());
  for (const char* bad : {"", "..", "a/b"}) EXPECT_THROW(Host::mailboxesOfDomain(bad), Exception) << bad;
  ASSERT_EQ(::chmod((root / "home/d.example").c_str(), 0711), 0);
  const Testing::AsOrdinaryUser user;
  EXPECT_THROW(Host::mailboxesOfDomain("d.example"), Exception);
}

}  // namespace
}  // namespace Velmar
