// The quarantine mailbox on real files: what a scan lists, in which order, and what it does when the Maildir changes
// or holds what does not belong there.

#include "platform/mailbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <map>
#include <thread>

#include "host/host.h"
#include "host/mailbox/maildir.h"
#include "tests/support/temp_root.h"

namespace {

// The openat() call, counted from now, that fails; 0 = none.
thread_local int failingOpen = 0;
thread_local int failingOpenError = 0;

}  // namespace

extern "C" int openat(int directory, const char* name, int flags, ...) {
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
  try {
    open(name);
  } catch (const Exception& e) {
    return e.text();
  }
  return "no error";
}

void setWindow(VXMailboxBase& box, int from, int until, int limit = INT_MAX) {
  box.setScope(VXMScopeRef(VXMScopeRef::TIME_RANGE, from, until, limit));
}

Keys rest(VXMailboxBase& box) {
  Keys keys;
  while (VXMessageRef message = box.next()) keys.push_back(message->envelope()->key());
  return keys;
}

Keys scan(int from, int until, int limit = INT_MAX) {
  const Ref<VXMailboxBase> box = open();
  setWindow(*box, from, until, limit);
  return rest(*box);
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

  Testing::TempRoot root;
};

TEST_F(Mailbox, WindowIsHalfOpen) {
  for (const char* name : {"new/99.a", "new/100.a", "cur/150.a:2,S", "cur/199.a:2,", "new/200.a"}) hold(name);
  const struct {
    int from, until, limit;
    Keys want;
  } cases[] = {
      {100, 200, INT_MAX, {"100.a", "150.a:2,S", "199.a:2,"}},
      {0, INT_MAX, INT_MAX, {"99.a", "100.a", "150.a:2,S", "199.a:2,", "200.a"}},
      {100, 101, INT_MAX, {"100.a"}},
      {101, 150, INT_MAX, {}},
      {100, 100, INT_MAX, {}},
      {200, 100, INT_MAX, {}},
      {INT_MIN, 100, INT_MAX, {"99.a"}},
      {100, 200, 2, {"100.a", "150.a:2,S"}},
      {100, 200, 0, {}},
      {100, 200, -1, {}},
  };
  for (const auto& c : cases) EXPECT_EQ(scan(c.from, c.until, c.limit), c.want) << c.from << ".." << c.until;
}

TEST_F(Mailbox, OrderIsTimeThenName) {
  for (const char* name : {"cur/9.b:2,", "new/10.a", "new/9.c", "cur/9.b0:2,", "new/010.b", "cur/8.z:2,"}) hold(name);
  EXPECT_THAT(scan(0, 100), ElementsAre("8.z:2,", "9.b0:2,", "9.b:2,", "9.c", "010.b", "10.a"));
}

TEST_F(Mailbox, OddNames) {
  for (const char* name : {"new/5.\n\xff\xfe", "new/5.a,b,c", "new/5. %s\"'", "cur/plain:2,S", "new/-5.x",
                           "new/99999999999999999999.x", "new/4294967301.x", "new/.5.x", "tmp/5.x"}) {
    hold(name);
  }
  setTime("cur/plain:2,S", 6);
  setTime("new/-5.x", 7);
  setTime("new/99999999999999999999.x", 8);
  setTime("new/4294967301.x", 5);  // 2^32 + 5: a time beyond every window, not 5
  EXPECT_THAT(scan(5, 9),
              ElementsAre("5.\n\xff\xfe", "5. %s\"'", "5.a,b,c", "plain:2,S", "-5.x", "99999999999999999999.x"));
}

TEST_F(Mailbox, MessageTellsKeyTimeMarksAndHeader) {
  hold("cur/7.a,S=3:2,PS", "FROM: x\r\nSubject: one\r\n two\r\n\r\nMessage-Id: <body>\r\n");
  const Ref<VXMailboxBase> box = open();
  setWindow(*box, 0, 100);
  const VXMessageRef message = box->next();
  box->next();
  setWindow(*box, 0, 0);  // a message outlives the scan that gave it
  EXPECT_EQ(message->envelope()->key(), "7.a,S=3:2,PS");
  EXPECT_EQ(message->envelope()->time(), 7);
  VXMessageFlags released{VXMessageFlags::RELEASED, 1};
  VXMessageFlags deleted{VXMessageFlags::DELETED, 1};
  released.init();
  deleted.init();
  EXPECT_EQ(message->flags() & released.mask, VXMessageFlags::RELEASED);
  EXPECT_EQ(message->flags() & deleted.mask, 0u);
  EXPECT_EQ(message->headers().find("From").value(), "x");
  EXPECT_EQ(message->headers().find("subject").value(), "one two");
  EXPECT_TRUE(message->headers().find("Message-Id").isNull());
}

// The end of the header on each side of where reads end: after 8 KiB, after the next step, and at the cap.
TEST_F(Mailbox, LongHeadersAreReadUpToTheCap) {
  constexpr std::size_t kCap = 1024 * 1024;
  for (const std::size_t size : {std::size_t{8192}, std::size_t{32768}, kCap - 64}) {
    for (std::size_t shift = 0; shift < 8; ++shift) {
      std::string text = "From: f\r\nX-Pad: ";
      text.resize(size - 24 + shift, 'x');
      hold("new/1.a", text + "\r\nSubject: s\r\n\r\nTo: body\r\n");
      const Ref<VXMailboxBase> box = open();
      setWindow(*box, 0, 100);
      const VXMessageRef message = box->next();
      EXPECT_EQ(message->headers().find("Subject").value(), "s") << size << "+" << shift;
      EXPECT_TRUE(message->headers().find("To").isNull()) << size << "+" << shift;
    }
  }
  hold("new/1.a", "From: f\nX-Pad: " + std::string(8 * kCap, 'x') + "\nSubject: far\n\n");
  const Ref<VXMailboxBase> box = open();
  setWindow(*box, 0, 100);
  const VXMessageRef message = box->next();
  EXPECT_EQ(message->headers().find("From").value(), "f");
  EXPECT_LE(message->headers().find("X-Pad").value().size(), kCap);
  EXPECT_TRUE(message->headers().find("Subject").isNull());
}

TEST_F(Mailbox, MessagesWithoutHeaderCount) {
  hold("new/1.empty", "");
  hold("new/2.body", "\n\nFrom: x\n");
  hold("new/3.rubbish", std::string(100, '\0'));
  EXPECT_THAT(scan(0, 10), ElementsAre("1.empty", "2.body", "3.rubbish"));
}

TEST_F(Mailbox, WhatIsNoRegularFileNeitherBlocksNorCounts) {
  hold("new/9.a");
  ASSERT_EQ(::mkfifo(file("new/1.fifo").c_str(), 0666), 0);
  ASSERT_EQ(::mkdir(file("new/2.directory").c_str(), 0777), 0);
  ASSERT_EQ(::symlink("9.a", file("new/3.link").c_str()), 0);
  ASSERT_EQ(::symlink("nowhere", file("cur/4.dangling").c_str()), 0);
  const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{AF_UNIX, {}};
  file("cur/5.s").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ::close(socket);
  ASSERT_EQ(::mkfifo(file("new/without time").c_str(), 0666), 0);
  EXPECT_THAT(scan(0, INT_MAX, 1), ElementsAre("9.a"));
}

// The listing saw a message; what stands there when it is opened is something else.
TEST_F(Mailbox, ReplacedBetweenListingAndOpening) {
  for (const char* name : {"new/1.a", "new/2.a", "new/3.a", "new/4.a", "new/5.a"}) hold(name);
  const Ref<VXMailboxBase> box = open();
  setWindow(*box, 0, 100);
  for (const char* name : {"new/1.a", "new/2.a", "new/3.a", "new/4.a"}) ::unlink(file(name).c_str());
  ASSERT_EQ(::mkfifo(file("new/1.a").c_str(), 0666), 0);
  ASSERT_EQ(::symlink("5.a", file("new/2.a").c_str()), 0);
  ASSERT_EQ(::mkdir(file("new/3.a").c_str(), 0777), 0);
  EXPECT_THAT(rest(*box), ElementsAre("5.a"));
}

TEST_F(Mailbox, UnreadableMessageCostsOnlyItself) {
  for (const char* name : {"new/1.a", "new/2.a", "new/3.a"}) hold(name);
  ASSERT_EQ(::chmod(file("new/2.a").c_str(), 0), 0);
  const Testing::AsOrdinaryUser user;
  EXPECT_THAT(scan(0, 100, 2), ElementsAre("1.a", "3.a"));
}

TEST_F(Mailbox, MessageMovedAfterTheListingIsFoundAgain) {
  for (const char* name : {"new/1.a", "cur/2.a,S=1:2,", "cur/3.a:2,S", "new/4.gone", "new/5.a"}) hold(name);
  hold("new/untimed");
  setTime("new/untimed", 6);
  const Ref<VXMailboxBase> box = open();
  setWindow(*box, 0, 100);
  rename("new/1.a", "cur/1.a:2,");
  rename("cur/2.a,S=1:2,", "cur/2.a,S=1:2,T");
  ::unlink(file("new/4.gone").c_str());
  rename("new/untimed", "cur/untimed:2,S");
  Keys keys;
  while (VXMessageRef message = box->next()) {
    keys.push_back(message->envelope()->key());
    if (keys.size() == 2) {
      EXPECT_EQ(message->flags(), VXMessageFlags::DELETED);
      rename("cur/3.a:2,S", "cur/3.a:2,RS");
    }
  }
  EXPECT_EQ(keys, (Keys{"1.a:2,", "2.a,S=1:2,T", "3.a:2,RS", "5.a", "untimed:2,S"}));
}

TEST_F(Mailbox, MaildirThatVanishesDuringTheScanIsOver) {
  for (const char* name : {"new/1.a", "new/2.a", "cur/3.a"}) hold(name);
  const Ref<VXMailboxBase> box = open();
  setWindow(*box, 0, 100);
  box->next();
  std::filesystem::remove_all(file(""));
  EXPECT_THAT(rest(*box), IsEmpty());
  setWindow(*box, 0, 100);
  EXPECT_THAT(rest(*box), IsEmpty());
}

TEST_F(Mailbox, MessageSeenInBothFoldersIsListedOnce) {
  hold("new/1.a");
  hold("cur/1.a:2,S");
  hold("cur/1.ab:2,S");
  EXPECT_THAT(scan(0, 100), ElementsAre("1.a:2,S", "1.ab:2,S"));
}

TEST_F(Mailbox, ScanTwiceAndMissingFolders) {
  hold("cur/1.a");
  const Ref<VXMailboxBase> box = open();
  EXPECT_TRUE(box->isOpen());
  EXPECT_FALSE(box->next());  // no scope yet
  setWindow(*box, 0, 100);
  EXPECT_THAT(rest(*box), ElementsAre("1.a"));
  EXPECT_FALSE(box->next());
  std::filesystem::remove_all(file("new"));
  hold("cur/2.a");
  setWindow(*box, 0, 100);
  EXPECT_THAT(rest(*box), ElementsAre("1.a", "2.a"));
  std::filesystem::remove_all(file("cur"));
  setWindow(*box, 0, 100);
  EXPECT_THAT(rest(*box), IsEmpty());
}

// One thread delivers, moves, flags and deletes without rest, 200 scans run meanwhile. Messages that nobody touches
// are in each scan exactly once, the others at most once.
TEST_F(Mailbox, UntouchedMessagesAreListedExactlyOnceWhileOthersMove) {
  Keys untouched;
  for (int i = 0; i < 40; ++i) {
    untouched.push_back(std::to_string(100 + i) + (i % 2 ? ".still" : ".still:2,S"));
    hold((i % 2 ? "new/" : "cur/") + untouched.back());
  }
  std::atomic<bool> stop{false};
  std::thread mover([&] {
    for (int i = 0; !stop; i = (i + 1) % 300) {
      const std::string name = std::to_string(100 + i % 50) + ".move" + std::to_string(i);
      hold("tmp/" + name);
      rename("tmp/" + name, "new/" + name);
      rename("new/" + name, "cur/" + name + ":2,");
      rename("cur/" + name + ":2,", "cur/" + name + ":2,S");
      if (i % 3 == 0) ::unlink(file("cur/" + name + ":2,S").c_str());
    }
  });
  for (int i = 0; i < 200; ++i) {
    Keys still;
    std::map<std::string, int> moving;
    for (const std::string& key : scan(0, 1000)) {
      if (key.find(".still") != std::string::npos) {
        still.push_back(key);
      } else {
        EXPECT_EQ(++moving[key.substr(0, key.find(':'))], 1) << key;
      }
    }
    ASSERT_EQ(still, untouched) << "scan " << i;
  }
  stop = true;
  mover.join();
}

// One pass over a directory may miss a file that is renamed at the wrong moment; a message that is only flagged must
// be in each listing all the same, or no report ever shows it.
TEST_F(Mailbox, FlaggedMessageIsNotMissed) {
  const int count = 2000;
  for (int i = 0; i < count; ++i) hold("cur/1." + std::to_string(i) + ":2,");
  std::atomic<bool> stop{false};
  std::thread flagger([&] {
    const std::string flags[] = {"", "S"};
    for (int i = 0; !stop; ++i) {
      const int round = i / count % 2;
      const std::string name = "cur/1." + std::to_string(i % count) + ":2,";
      rename(name + flags[round], name + flags[1 - round]);
      if (i % 16 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  Host::Maildir maildir(Host::openDirectory(file(""), O_PATH), file(""));
  for (int i = 0; i < 20; ++i) EXPECT_EQ(maildir.list({0, 100}).size(), static_cast<std::size_t>(count)) << i;
  stop = true;
  flagger.join();
}

// Opening a message, once a scan got so far, may fail for the message's sake or for ours.
TEST_F(Mailbox, EachFailingOpenEitherCostsOneMessageOrIsAnError) {
  const Keys names = {"1.a", "2.a", "3.a"};
  for (const std::string& name : names) hold("new/" + name);
  constexpr int kDirectories = 4;  // mailbox, quarantine, new, cur
  for (const int error : {EMFILE, ENFILE, ENOMEM, EACCES, EIO, ELOOP}) {
    const bool ours = error == EMFILE || error == ENFILE || error == ENOMEM;
    for (int nth = 1; nth <= kDirectories + 4; ++nth) {
      failingOpen = nth;
      failingOpenError = error;
      const int failed = nth - kDirectories - 1;  // index of the message that cannot be opened
      const bool wantThrow = failed < 0 || (ours && failed < 3);
      Keys want = names;
      if (failed >= 0 && failed < 3) want.erase(want.begin() + failed);
      try {
        EXPECT_EQ(scan(0, 100), want) << "open " << nth << ", error " << error;
        EXPECT_FALSE(wantThrow) << "open " << nth << ", error " << error;
      } catch (const Exception& e) {
        EXPECT_TRUE(wantThrow) << "open " << nth << ", error " << error;
        EXPECT_THAT(e.text(), HasSubstr(root / "home/d.example/u~d.example"));
      }
      failingOpen = 0;
    }
  }
}

TEST_F(Mailbox, MissingIsEmptyAndEverythingElseIsAnError) {
  for (const char* name :
       {"/home/none.example/u~none.example/quarantine", "/home/d.example/none~d.example/quarantine"}) {
    EXPECT_FALSE(open(name)) << name;
  }
  root.makeDirectory("home/d.example/bare~d.example");
  EXPECT_FALSE(open("/home/d.example/bare~d.example/quarantine"));
  root.write("home/d.example/file~d.example", "");
  EXPECT_THROW(open("/home/d.example/file~d.example/quarantine"), Exception);

  const std::string badNames[] = {
      "",
      "/",
      "/home",
      "/home/quarantine",
      "/home//quarantine",
      "/home/d.example/quarantine",
      "/home/d.example/u~other.example/quarantine",
      "/home/d.example/~d.example/quarantine",
      "/home/d.example/u~d.example",
      "/home/d.example/u~d.example/quarantine/",
      "/home/d.example/u~d.example/inbox",
      "/home/../u~../quarantine",
      "/home/./u~./quarantine",
      "/home/d.example/../d.example/u~d.example/quarantine",
      "/home/d.example/x/u~d.example/quarantine",
      "home/d.example/u~d.example/quarantine",
      "/mail/d.example/u~d.example/quarantine",
      std::string("/home/d.example/u\0x~d.example/quarantine", 39),
  };
  for (const std::string& name : badNames) EXPECT_THAT(openError(name), HasSubstr("is not the name of a mailbox"));
  EXPECT_THROW(VXMailBoxRef::create(kBox, static_cast<MailboxOpenMethod>(1), VXMailBoxRef::MAILBOX_OP_NONE), Exception);
  EXPECT_THROW(VXMailBoxRef::create(kBox, MAILBOX_OPEN_READ, static_cast<VXMailBoxRef::MailBoxOp>(1)), Exception);
  EXPECT_THROW(VXMScopeRef(static_cast<VXMScopeRef::ScopeType>(2), 0, 1, 1), Exception);
}

TEST_F(Mailbox, CouldNotLookIsAnErrorThatNamesThePath) {
  const std::string mailbox = root / "home/d.example/u~d.example";
  hold("new/1.a");
  ASSERT_EQ(::chmod(mailbox.c_str(), 0), 0);
  {
    const Testing::AsOrdinaryUser user;
    EXPECT_THAT(openError(kBox), HasSubstr(mailbox + "/quarantine: Permission denied"));
  }
  ASSERT_EQ(::chmod(mailbox.c_str(), 0755), 0);
  ASSERT_EQ(::chmod(file("cur").c_str(), 0), 0);
  {
    const Testing::AsOrdinaryUser user;
    EXPECT_THROW(scan(0, 100), Exception);
  }
}

// Whoever can write into one mailbox must not get another one's mail reported.
TEST_F(Mailbox, LinksOutOfAMailboxAreNotFollowed) {
  hold("new/1.secret");
  const std::string thief = root.makeDirectory("home/d.example/t~d.example");
  const std::string name = "/home/d.example/t~d.example/quarantine";
  ASSERT_EQ(::symlink(file("").c_str(), (thief + "/quarantine").c_str()), 0);
  EXPECT_THAT(openError(name), HasSubstr(thief + "/quarantine: Too many levels of symbolic links"));
  ::unlink((thief + "/quarantine").c_str());

  root.makeDirectory(name);
  ASSERT_EQ(::symlink(file("new").c_str(), (root / (name + "/new")).c_str()), 0);
  EXPECT_THROW(setWindow(*open(name), 0, 100), Exception);

  std::filesystem::rename(thief, root / "home/d.example/elsewhere");
  ASSERT_EQ(::symlink("u~d.example", thief.c_str()), 0);
  EXPECT_THAT(openError(name), HasSubstr(thief));
}

TEST_F(Mailbox, MailboxesOfADomain) {
  for (const char* directory : {"b~d.example", "a~d.example", "x~y~d.example", "gone~d.example/.deleted", "~d.example",
                                "c~other.example", "plain", "d~D.EXAMPLE"}) {
    root.makeDirectory("home/d.example/" + std::string(directory));
  }
  root.write("home/d.example/file~d.example", "");
  root.write("home/d.example/b~d.example/deleted", "");
  ASSERT_EQ(::symlink("a~d.example", (root / "home/d.example/link~d.example").c_str()), 0);
  EXPECT_THAT(Host::mailboxesOfDomain("d.example"),
              ElementsAre("a@d.example", "b@d.example", "u@d.example", "x~y@d.example"));
  EXPECT_THAT(Host::mailboxesOfDomain("none.example"), IsEmpty());
  for (const char* bad : {"", ".", "..", "a/b"}) EXPECT_THROW(Host::mailboxesOfDomain(bad), Exception) << bad;
  ASSERT_EQ(::chmod((root / "home/d.example").c_str(), 0711), 0);
  const Testing::AsOrdinaryUser user;
  EXPECT_THROW(Host::mailboxesOfDomain("d.example"), Exception);
}

}  // namespace
}  // namespace Velmar
