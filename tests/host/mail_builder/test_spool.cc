// The spool: whole or not at all, strict when read, and never in the way of what is there.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <vector>

#include "host/mail_builder/durable_file.h"
#include "host/mail_builder/spool.h"
#include "tests/support/temp_root.h"
#include "tests/support/thrown_by.h"

namespace Velmar {
namespace {

namespace fs = std::filesystem;
using Host::QueuedMail;
using ::testing::HasSubstr;
using Testing::thrownBy;

class SpoolTest : public ::testing::Test {
 protected:
  static QueuedMail mail(const std::string& id) {
    QueuedMail one;
    one.id = id;
    one.recipients = {"a@example.org", "\"b c\"@example.org", "ü@example.org"};
    one.suppressDsn = true;
    one.content = "To: a@example.org\r\n\r\nbody\r\n\r\nmore\r\n";
    return one;
  }

  std::size_t filesBelow(const fs::path& directory) const {
    std::size_t files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(directory)) files += entry.is_regular_file();
    return files;
  }

  const Testing::TempRoot root;
  const fs::path spool = root / "var/spool/velmar";
};

TEST_F(SpoolTest, WhatGoesInComesOut) {
  EXPECT_TRUE(Host::listSpool().empty());
  const QueuedMail in = mail("20251122-1-a");
  Host::writeToSpool(in);
  EXPECT_THAT(root.read("var/spool/velmar/new/20251122-1-a"),
              ::testing::MatchesRegex("Velmar-Spool: 2\nId: 20251122-1-a\nSender: \nRecipient: a@example.org\n"
                                      "Recipient: \"b c\"@example.org\nRecipient: ü@example.org\nNotify: never\n"
                                      "Queued: [0-9]+\nAttempts: 0\nNext: 0\nReply: \n\nTo: (.|\n|\r)*more\r\n"));
  const QueuedMail out = Host::readSpool(in.id);
  EXPECT_EQ(out.recipients, in.recipients);
  EXPECT_TRUE(out.suppressDsn);
  EXPECT_EQ(out.content, in.content);

  const auto entries = Host::listSpool();
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].size, in.content.size());
  EXPECT_NEAR(static_cast<double>(entries[0].queuedAt), static_cast<double>(std::time(nullptr)), 5);
  EXPECT_EQ(filesBelow(spool / "tmp"), 0U);
  for (const fs::path& path : {spool, spool / "new" / in.id}) {
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0027, 0U) << path;
  }
}

TEST_F(SpoolTest, OldestFirst) {
  for (const auto& [id, time] : {std::pair("b", "20"), {"c", "3"}, {"a", "20"}}) {
    const std::string head = std::string("Velmar-Spool: 1\nId: ") + id + "\nSender: s@x\nRecipient: r@x\n";
    root.write("var/spool/velmar/new/" + std::string(id), head + "Notify: default\nQueued: " + time + "\n\nm");
  }
  std::string order;
  for (const Host::SpoolEntry& entry : Host::listSpool()) order += entry.id;
  EXPECT_EQ(order, "cab");
  EXPECT_EQ(Host::readSpool("a").sender, "s@x");
  EXPECT_FALSE(Host::readSpool("a").suppressDsn);
}

TEST_F(SpoolTest, BothWaysLeaveOneWholeFileOrNothingAndNeverOverwrite) {
  const std::string large(3 << 20, 'x');
  Host::writeToSpool(mail("a"));
  EXPECT_THAT(thrownBy([] { Host::writeToSpool(mail("a")); }), HasSubstr("new/a cannot be made: File exists"));
  EXPECT_THAT(thrownBy([&] { Host::createByRename(spool, "a", large); }),
              HasSubstr("new/a cannot be made: File exists"));
  EXPECT_EQ(Host::readSpool("a").content, mail("a").content);
  const bool unnamed = Host::createUnnamed(spool, "linked", large);  // not every file system has such files
  EXPECT_TRUE(!unnamed || root.read("var/spool/velmar/new/linked") == large);
  Host::createByRename(spool, "renamed", large);
  EXPECT_TRUE(root.read("var/spool/velmar/new/renamed") == large);
  EXPECT_EQ(filesBelow(spool / "tmp"), 0U);
  fs::remove_all(spool / "new");
  EXPECT_THAT(thrownBy([&] { Host::createByRename(spool, "f", large); }), HasSubstr("new/f cannot be made"));
  EXPECT_NE(thrownBy([&] { Host::createUnnamed(spool, "f", large); }), unnamed ? "nothing thrown" : "");
  EXPECT_EQ(filesBelow(spool), 0U);
}

TEST_F(SpoolTest, AMailThatIsTooLargeLeavesNothing) {
  QueuedMail large = mail("b");
  large.content.assign((64 << 20) + 1, 'x');
  EXPECT_THAT(thrownBy([&] { Host::writeToSpool(large); }), HasSubstr("larger than 67108864 bytes"));
  EXPECT_TRUE(Host::listSpool().empty());
}

TEST_F(SpoolTest, DamagedFilesAreNamed) {
  const std::string sound = "Velmar-Spool: 1\nId: f\nSender: s@x\nRecipient: r@x\nNotify: never\nQueued: 7\n\nm\r\n";
  const auto with = [&sound](const std::string& what, const std::string& by) {
    std::string text = sound;
    return text.replace(text.find(what), what.size(), by);
  };
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "the envelope has no end"},
      {sound.substr(0, sound.find("\nm")), "no empty line behind the envelope"},
      {with("Id: f", "Id: g"), "has the id \"g\""},
      {with("r@x\n", "r@x\nRecipient: \n"), "no mail address: \"\""},
      {with("r@x", "r@x\r"), "no mail address: \"r@x\r\""},
      {with("s@x", "s"), "no mail address: \"s\""},
      {with("never", "Never"), "unknown Notify: \"Never\""},
      {with("7", "7x"), "no time: \"7x\""},
      {with("7", "253402300800"), "no time"},
      {with("Spool: 1", "Spool: 3"), "unknown version: \"3\""},
      {with("Spool: 1", "Spool: 2"), "no line Attempts where it belongs"},
      {with("7", "99999999999999999999"), "no time"},
      {with("\n\n", "\nLater: x\n\n"), "no empty line behind the envelope"},
      {"Velmar-Spool: 1\nId: f\nSender: " + std::string(5 << 20, 'x'), "the envelope has no end"},
  };
  for (const auto& [text, fault] : cases) {
    root.write("var/spool/velmar/new/f", text);
    const std::string want = "spool file " + (spool / "new/f").string() + ": " + fault;
    const auto entries = Host::listSpool();
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].state, Host::SpoolState::kUnreadable);
    EXPECT_THAT(entries[0].lastReply, HasSubstr(want));
    EXPECT_THAT(thrownBy([] { Host::readSpool("f"); }), HasSubstr(want));
  }
}

TEST_F(SpoolTest, NoOtherFilesAreRead) {
  Host::writeToSpool(mail("a"));
  root.write("outside", "Velmar-Spool: 1\nId: link\nSender: \nRecipient: r@x\nNotify: never\nQueued: 7\n\nm");
  fs::create_symlink(root / "outside", spool / "new/link");
  for (const std::string id : {"../../../../outside", "link", "missing", "", ".", "..", "a/"}) {
    EXPECT_THAT(thrownBy([&] { Host::readSpool(id); }), HasSubstr("spool file ")) << id;
  }
  EXPECT_THAT(Host::listSpool()[0].lastReply, HasSubstr("new/link"));
}

}  // namespace
}  // namespace Velmar
