// Inline images as a template sees them: the table, the site's own logo, once a mail, one binding a thread.

#include <unistd.h>

#include <barrier>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

const std::string kImages = "/migadmin/www/admin/images/";

using InlineImagesTest = ReportTest;

TEST_F(InlineImagesTest, KnowsFourImagesByArgumentsWithOrWithoutSign) {
  const std::pair<const char*, std::string> rows[] = {
      {"=ICON_RELEASE", "icon_release.png"},
      {"ICON_DELALL", "icon_deleteall.png"},
      {"=ICON_DELETE", "icon_delete.png"},
      {"TITLE_LOGO", "icon_titlelogo.png"},
      {"==ICON_DELETE", ""},
      {"=icon_delete", ""},
      {"=", ""},
      {"", ""},
  };
  const std::string word("a<\">\0b", 6);
  for (const auto& [argument, wantFile] : rows) {
    startAnew();
    VXMPopulateEmail mail;
    const ThreadedImageVarCallback binding(&mail);
    const bool known = !wantFile.empty();
    EXPECT_EQ(throughModifier(word, argument), known ? "<img src=\"cid:1.1\" alt=\"" + word + "\">\n" : word);
    EXPECT_EQ(callsOf({"add_image"}), Texts(known, "add_image_inline(" + kImages + wantFile + ",14)"));
    EXPECT_TRUE(ThreadedImageVarCallback::cid_maker_.MightModify(nullptr, argument));
  }
}

TEST_F(InlineImagesTest, SniffsTheSitesOwnLogo) {
  char root[] = "/tmp/velmar-images-XXXXXX";
  ASSERT_TRUE(::mkdtemp(root));
  setenv("VELMAR_ROOT", root, 1);
  std::filesystem::create_directories(root + kImages);
  const std::string logo = root + kImages + "icon_titlelogo", pad(16, '\0');
  const auto attached = [] {
    world().calls.clear();
    VXMPopulateEmail mail;
    const ThreadedImageVarCallback binding(&mail);
    throughModifier("Logo", "TITLE_LOGO");
    return callsOf({"add_image_inline"});
  };
  const std::string own = "add_image_inline(" + kImages + "icon_titlelogo,";
  const std::string standard = "add_image_inline(" + kImages + "icon_titlelogo.png,14)";
  const std::pair<std::string, std::string> rows[] = {
      {"GIF87a" + pad, own + "13)"},       {"GIF89a, 16 bytes", own + "13)"},
      {"\xff\xd8\xff" + pad, own + "12)"}, {"\x89PNG\r\n\x1a\n" + pad, own + "14)"},
      {"GIF89a, 15 byte", standard},       {"\x89PNG\r\n\x1a\r" + pad, standard},
      {"\xff\xd8\xfe" + pad, standard},    {pad, standard},
  };
  for (const auto& [content, want] : rows) {
    std::ofstream(logo, std::ios::binary) << content;
    EXPECT_THAT(attached(), ElementsAre(want)) << content;
  }
  unsetenv("VELMAR_ROOT");
  std::filesystem::remove_all(root);
}

TEST_F(InlineImagesTest, ABindingLastsForOneMail) {
  EXPECT_EQ(throughModifier("Logo", "TITLE_LOGO"), "Logo");
  VXMPopulateEmail mail, next;
  const ThreadedImageVarCallback outer(&mail);
  failCall("add_image_inline");
  EXPECT_THROW(throughModifier("Release", "ICON_RELEASE"), Exception);
  const std::string html = "<img src=\"cid:1.1\" alt=\"Release\">\n";
  EXPECT_EQ(throughModifier("Release", "ICON_RELEASE"), html);  // tried again, then once a mail
  EXPECT_EQ(throughModifier("another word", "ICON_RELEASE"), html);
  {
    const ThreadedImageVarCallback inner(&next);  // replaces the first, and one end is enough for both
    EXPECT_EQ(throughModifier("Release", "ICON_RELEASE"), "<img src=\"cid:2.1\" alt=\"Release\">\n");
  }
  EXPECT_EQ(throughModifier("Release", "ICON_RELEASE"), "Release");
}

TEST_F(InlineImagesTest, ThreadsKeepTheirMailsApart) {
  constexpr int kThreads = 4, kMails = 50;
  std::barrier start(kThreads);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      start.arrive_and_wait();
      for (int n = 0; n < kMails; ++n) {
        VXMPopulateEmail mail;
        const ThreadedImageVarCallback binding(&mail);
        mail.alternative_html(throughModifier("D", "ICON_DELETE"), "utf-8");
        mail.send_queued_not_scanned("a@x");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  ASSERT_EQ(world().queue.size(), static_cast<std::size_t>(kThreads * kMails));
  for (const Fake::Mail& mail : world().queue) {
    ASSERT_EQ(mail.cids.size(), 1U);
    EXPECT_EQ(mail.html, "<img src=\"cid:" + mail.cids[0] + "\" alt=\"D\">\n");
  }
}

}  // namespace
}  // namespace Velmar
