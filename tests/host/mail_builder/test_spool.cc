// The spool: whole or not at all, strict when read, and safe to use from many threads.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <set>
#include <thread>
#include <vector>

#include "host/mail_builder/durable_file.h"
#include "host/mail_builder/spool.h"
#include "platform/mail_builder.h"
#include "platform/types.h"
#include "tests/host/mail_builder/temporary_root.h"

namespace Velmar {
namespace {

namespace fs = std::filesystem;
using Host::QueuedMail;
using Host::SpoolEntry;
using ::testing::HasSubstr;

std::string thrownBy(const std::function<void()>& call) {
  try {
    call();
  } catch (const Exception& e) {
    return e.text();
  }
  return "nothing thrown";
}

class SpoolTest : public TemporaryRoot {
 protected:
  static QueuedMail mail(const std::string& id) {
    QueuedMail one;
    one.id = id;
    one.sender = "bounce@example.org";
    one.recipients = {"a@example.org", "\"b c\"@example.org", "ü@example.org"};
    one.suppressDsn = true;
    one.content = "To: a@example.org\r\n\r\nbody\r\n\r\nmore\r\n";
    return one;
  }

  std::size_t filesBelow(const fs::path& directory) const {
    std::size_t files = 0;
    if (fs::is_directory(directory)) {
      for (const auto& entry : fs::recursive_directory_iterator(directory)) files += entry.is_regular_file();
    }
    return files;
  }
};

TEST_F(SpoolTest, WhatGoesInComesOut) {
  EXPECT_TRUE(Host::listSpool().empty());
  const QueuedMail in = mail("20251122-1-a");
  Host::writeToSpool(in);
  const QueuedMail out = Host::readSpool(in.id);
  EXPECT_EQ(out.id, in.id);
  EXPECT_EQ(out.sender, in.sender);
  EXPECT_EQ(out.recipients, in.recipients);
  EXPECT_TRUE(out.suppressDsn);
  EXPECT_EQ(out.content, in.content);

  const std::vector<SpoolEntry> entries = Host::listSpool();
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].id, in.id);
  EXPECT_EQ(entries[0].recipients, in.recipients);
  EXPECT_EQ(entries[0].size, in.content.size());
  EXPECT_NEAR(static_cast<double>(entries[0].queuedAt), static_cast<double>(std::time(nullptr)), 5);
  EXPECT_EQ(filesBelow(spool() / "tmp"), 0U);
  struct stat status {};
  ASSERT_EQ(::stat((spool() / "new" / in.id).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0027, 0U);
  ASSERT_EQ(::stat(spool().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0027, 0U);
}

TEST_F(SpoolTest, TheNullReversePathAndTheFormOnDisk) {
  QueuedMail in = mail("x-1");
  in.sender = "";
  in.suppressDsn = false;
  in.recipients.resize(1);
  Host::writeToSpool(in);
  EXPECT_EQ(Host::readSpool("x-1").sender, "");
  EXPECT_THAT(readFile(spool() / "new/x-1"),
              ::testing::MatchesRegex("Velmar-Spool: 1\nId: x-1\nSender: \nRecipient: a@example.org\nNotify: default\n"
                                      "Queued: [0-9]+\n\nTo: (.|\n|\r)*more\r\n"));
}

TEST_F(SpoolTest, OldestFirst) {
  for (const auto& [id, time] : {std::pair("b", "20"), {"c", "3"}, {"a", "20"}}) {
    writeFile(spool() / "new" / id, std::string("Velmar-Spool: 1\nId: ") + id +
                                        "\nSender: \nRecipient: r@x\nNotify: never\nQueued: " + time + "\n\nm");
  }
  std::string order;
  for (const SpoolEntry& entry : Host::listSpool()) order += entry.id;
  EXPECT_EQ(order, "cab");
}

TEST_F(SpoolTest, NeverOverwrites) {
  Host::writeToSpool(mail("one"));
  QueuedMail other = mail("one");
  other.content = "other\r\n";
  EXPECT_THAT(thrownBy([&] { Host::writeToSpool(other); }), HasSubstr("new/one cannot be made: File exists"));
  EXPECT_EQ(Host::readSpool("one").content, mail("one").content);
  EXPECT_THAT(thrownBy([&] { Host::createByRename(spool(), "one", "other"); }), HasSubstr("File exists"));
  EXPECT_EQ(Host::readSpool("one").content, mail("one").content);
  EXPECT_EQ(filesBelow(spool()), 1U);
}

TEST_F(SpoolTest, BothWaysLeaveOneWholeFile) {
  fs::create_directories(spool() / "tmp");
  fs::create_directories(spool() / "new");
  const std::string large(3 << 20, 'x');
  Host::createByRename(spool(), "renamed", large);
  EXPECT_EQ(readFile(spool() / "new/renamed"), large);
  if (!Host::createUnnamed(spool(), "linked", large)) GTEST_SKIP() << "no unnamed files on this file system";
  EXPECT_EQ(readFile(spool() / "new/linked"), large);
  EXPECT_EQ(filesBelow(spool() / "tmp"), 0U);
}

TEST_F(SpoolTest, WhatCannotBeStoredLeavesNothing) {
  // Each obstacle stands where the next step of storing wants to go.
  writeFile(root() / "var", "a file");
  EXPECT_THAT(thrownBy([] { Host::writeToSpool(mail("a")); }), HasSubstr("cannot be made: Not a directory"));
  fs::remove(root() / "var");
  for (const char* name : {"tmp", "new"}) {
    fs::remove_all(spool());
    writeFile(spool() / name, "");
    EXPECT_THAT(thrownBy([] { Host::writeToSpool(mail("a")); }), HasSubstr("velmar/")) << name;
    EXPECT_EQ(filesBelow(spool()), 1U) << name;
    fs::remove(spool() / name);
    Host::writeToSpool(mail("a"));
    EXPECT_EQ(filesBelow(spool()), 1U) << name;
  }
  for (const auto& create : {Host::createByRename, +[](const std::string&b, const std::string&n, std::string_view t) {
                               if (!Host::createUnnamed(b, n, t)) throw Exception("T", 4, "T", 1, "not offered");
                             }}) {
    fs::remove_all(spool());
    fs::create_directories(spool() / "tmp");
    EXPECT_NE(thrownBy([&] { create(spool(), "b", "text"); }), "nothing thrown");
    EXPECT_EQ(filesBelow(spool()), 0U);
  }
}

TEST_F(SpoolTest, DamagedFilesAreNamed) {
  struct Case {
    const char* why;
    std::string text, want;
  };
  const std::string sound = "Velmar-Spool: 1\nId: f\nSender: s@x\nRecipient: r@x\nNotify: never\nQueued: 7\n\nm\r\n";
  const auto with = [&sound](const std::string& what, const std::string& by) {
    std::string text = sound;
    return text.replace(text.find(what), what.size(), by);
  };
  const std::vector<Case> cases = {
      {"sound", sound, "nothing thrown"},
      {"empty", "", "the envelope has no end"},
      {"cut", sound.substr(0, 40), "the envelope has no end"},
      {"cut behind a line", sound.substr(0, sound.find("\nm")), "no empty line behind the envelope"},
      {"other version", with("1", "2"), "unknown version"},
      {"another file's id", with("Id: f", "Id: g"), "has the id \"g\""},
      {"order", with("Id: f\nSender: s@x", "Sender: s@x\nId: f"), "no line Id where it belongs"},
      {"no recipient", with("Recipient: r@x\n", ""), "no line Recipient where it belongs"},
      {"recipient", with("r@x", "r@x> NOTIFY=y"), "no mail address: \"r@x> NOTIFY=y\""},
      {"second recipient", with("r@x\n", "r@x\nRecipient: \n"), "no mail address: \"\""},
      {"carriage return", with("r@x", "r@x\r"), "no mail address: \"r@x\r\""},
      {"sender", with("s@x", "s"), "no mail address: \"s\""},
      {"notify", with("never", "Never"), "unknown Notify: \"Never\""},
      {"time", with("7", "7x"), "no time: \"7x\""},
      {"negative time", with("7", "-7"), "no time: \"-7\""},
      {"huge time", with("7", "99999999999999999999"), "no time"},
      {"unknown line", with("Queued", "Later: x\nQueued"), "no line Queued where it belongs"},
      {"extra line", with("\n\n", "\nLater: x\n\n"), "no empty line behind the envelope"},
      {"endless", "Velmar-Spool: 1\nId: f\nSender: " + std::string(5 << 20, 'x'), "the envelope has no end"},
  };
  for (const Case& c : cases) {
    writeFile(spool() / "new/f", c.text);
    const std::string path = "spool file " + (spool() / "new/f").string() + ": ";
    const std::string want = c.want == "nothing thrown" ? c.want : path + c.want;
    EXPECT_THAT(thrownBy([] { Host::listSpool(); }), HasSubstr(want)) << c.why;
    EXPECT_THAT(thrownBy([] { Host::readSpool("f"); }), HasSubstr(want)) << c.why;
  }
}

TEST_F(SpoolTest, NoOtherFilesAreRead) {
  Host::writeToSpool(mail("a"));
  writeFile(root() / "outside", readFile(spool() / "new/a"));
  fs::create_symlink(root() / "outside", spool() / "new/link");
  for (const std::string id : {"../../../../outside", "link", "missing", "", ".", "..", "a/"}) {
    EXPECT_THAT(thrownBy([&] { Host::readSpool(id); }), HasSubstr("spool file ")) << id;
  }
  EXPECT_THAT(thrownBy([] { Host::listSpool(); }), HasSubstr("new/link"));
}

TEST_F(SpoolTest, TooLargeIsRefusedBeforeItIsWritten) {
  QueuedMail large = mail("a");
  large.content.assign((64 << 20) + 1, 'x');
  EXPECT_THAT(thrownBy([&] { Host::writeToSpool(large); }), HasSubstr("larger than 67108864 bytes"));
  EXPECT_EQ(filesBelow(root()), 0U);
}

TEST_F(SpoolTest, ThreadsSendAtOnce) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      for (int k = 0; k < 10; ++k) {
        VXMPopulateEmail one;
        one.header_to("u@x.org");
        one.header_from("q@x.org");
        one.header_subject(std::to_string(i) + "/" + std::to_string(k));
        one.header_message_id(LW::createHeaderMessageIdValue("x.org", std::tm{}));
        one.alternative_plain("p", "utf-8");
        one.alternative_html("h", "utf-8");
        one.send_queued_not_scanned("u@x.org");
      }
    });
  }
  for (auto& thread : threads) thread.join();
  std::set<std::string> subjects;
  for (const SpoolEntry& entry : Host::listSpool()) {
    const std::string content = Host::readSpool(entry.id).content;
    const std::size_t from = content.find("Subject: ");
    subjects.insert(content.substr(from, content.find("\r\n", from) - from));
  }
  EXPECT_EQ(subjects.size(), 40U);
}

}  // namespace
}  // namespace Velmar
