// Inline images as a template sees them: the table, the site's own logo, once a mail, one binding a thread.

#include <ctemplate/template.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <filesystem>
#include <fstream>
#include <thread>

#include "spamreport/images/threaded_image_var_callback.h"
#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

constexpr char kImages[] = "/migadmin/www/admin/images/";

class InlineImagesTest : public ReportTest {
 protected:
  void SetUp() override {
    ReportTest::SetUp();
    char path[] = "/tmp/velmar-images-XXXXXX";
    root_ = ::mkdtemp(path);
    setenv("VELMAR_ROOT", root_.c_str(), 1);
    std::filesystem::create_directories(root_.string() + kImages);
  }
  void TearDown() override {
    unsetenv("VELMAR_ROOT");
    std::filesystem::remove_all(root_);
    ReportTest::TearDown();
  }
  std::filesystem::path logo() const { return root_.string() + kImages + "icon_titlelogo"; }
  void writeLogo(const std::string& content) const { std::ofstream(logo(), std::ios::binary) << content; }

  static Texts attached() { return callsOf({"add_image_inline"}); }

 private:
  std::filesystem::path root_;
};

TEST_F(InlineImagesTest, KnowsFourImages) {
  const struct {
    const char *name, *wantFile;
  } rows[] = {
      {"ICON_RELEASE", "icon_release.png,14"},
      {"ICON_DELALL", "icon_deleteall.png,14"},
      {"ICON_DELETE", "icon_delete.png,14"},
      {"TITLE_LOGO", "icon_titlelogo.png,14"},
      {"icon_release", nullptr},
      {"ICON_RELEASE ", nullptr},
      {"", nullptr},
  };
  for (const auto& row : rows) {
    world().calls.clear();
    VXMPopulateEmail mail;
    const ThreadedImageVarCallback binding(&mail);
    const std::string html = throughModifier("a<\">b", row.name);
    if (!row.wantFile) {
      EXPECT_EQ(html, "a<\">b") << row.name;
      EXPECT_THAT(attached(), IsEmpty());
      continue;
    }
    EXPECT_THAT(attached(), ElementsAre(std::string("add_image_inline(") + kImages + row.wantFile + ")"));
    EXPECT_EQ(html.rfind("<img src=\"cid:", 0), 0U);
    EXPECT_EQ(html.substr(html.find(".1\"")), ".1\" alt=\"a<\">b\">\n");
  }
}

TEST_F(InlineImagesTest, SniffsTheSitesOwnLogo) {
  const std::string pad(16, '\0'), png("\x89PNG\r\n\x1a\n", 8);
  const struct {
    const char* name;
    std::string content;
    const char* want;
  } rows[] = {
      {"GIF87a", "GIF87a" + pad, "icon_titlelogo,13"},
      {"GIF89a, 16 bytes", "GIF89a0123456789", "icon_titlelogo,13"},
      {"JPEG", "\xff\xd8\xff" + pad, "icon_titlelogo,12"},
      {"PNG", png + pad, "icon_titlelogo,14"},
      {"15 bytes", "GIF89a012345678", "icon_titlelogo.png,14"},
      {"empty", "", "icon_titlelogo.png,14"},
      {"other GIF", "GIF88a" + pad, "icon_titlelogo.png,14"},
      {"PNG but for one byte", "\x89PNG\r\n\x1a\r" + pad, "icon_titlelogo.png,14"},
      {"JPEG but for one byte", "\xff\xd8\xfe" + pad, "icon_titlelogo.png,14"},
      {"SVG", "<svg xmlns=\"http", "icon_titlelogo.png,14"},
      {"zeros", pad, "icon_titlelogo.png,14"},
      {"GIF later", " GIF89a" + pad, "icon_titlelogo.png,14"},
  };
  for (const auto& row : rows) {
    writeLogo(row.content);
    world().calls.clear();
    VXMPopulateEmail mail;
    const ThreadedImageVarCallback binding(&mail);
    throughModifier("Logo", "TITLE_LOGO");
    throughModifier("Delete", "ICON_DELETE");
    EXPECT_THAT(attached(), ElementsAre(std::string("add_image_inline(") + kImages + row.want + ")",
                                        std::string("add_image_inline(") + kImages + "icon_delete.png,14)"))
        << row.name;
  }
  std::filesystem::remove(logo());
  std::filesystem::create_directory(logo());
  VXMPopulateEmail mail;
  const ThreadedImageVarCallback binding(&mail);
  EXPECT_NE(throughModifier("Logo", "TITLE_LOGO"), "Logo");
  EXPECT_EQ(attached().back(), std::string("add_image_inline(") + kImages + "icon_titlelogo.png,14)");
}

TEST_F(InlineImagesTest, AttachesOnceAMail) {
  std::string first;
  for (int mails = 0; mails < 2; ++mails) {
    world().calls.clear();
    VXMPopulateEmail mail;
    const ThreadedImageVarCallback binding(&mail);
    const std::string html = throughModifier("Release", "ICON_RELEASE");
    EXPECT_EQ(throughModifier("another word", "ICON_RELEASE"), html);
    EXPECT_EQ(attached().size(), 1U);
    EXPECT_NE(html, first);
    first = html;
  }
}

TEST_F(InlineImagesTest, AFailedImagePassesThroughAndIsTriedAgain) {
  VXMPopulateEmail mail;
  const ThreadedImageVarCallback binding(&mail);
  failCall("add_image_inline");
  EXPECT_THROW(throughModifier("Release", "ICON_RELEASE"), Exception);
  EXPECT_NE(throughModifier("Release", "ICON_RELEASE"), "Release");
}

TEST_F(InlineImagesTest, AnUnboundThreadShowsWords) {
  EXPECT_EQ(throughModifier("Logo", "TITLE_LOGO"), "Logo");
  VXMPopulateEmail mail, next;
  {
    const ThreadedImageVarCallback binding(&mail);
    std::string elsewhere;
    std::thread([&] { elsewhere = throughModifier("Logo", "TITLE_LOGO"); }).join();
    EXPECT_EQ(elsewhere, "Logo");
  }
  EXPECT_EQ(throughModifier("Logo", "TITLE_LOGO"), "Logo");
  EXPECT_THAT(attached(), IsEmpty());
  // A second binding replaces the first, and one end is enough for both.
  ThreadedImageVarCallback outer(&mail);
  const std::string ofMail = throughModifier("Delete", "ICON_DELETE");
  {
    const ThreadedImageVarCallback inner(&next);
    EXPECT_NE(throughModifier("Delete", "ICON_DELETE"), ofMail);
  }
  EXPECT_EQ(throughModifier("Delete", "ICON_DELETE"), "Delete");
}

TEST_F(InlineImagesTest, TheModifierTakesItsArgumentWithOrWithoutSign) {
  const auto& modifier = ThreadedImageVarCallback::cid_maker_;
  const struct {
    std::string argument;
    bool wantImage;
  } rows[] = {{"=ICON_DELETE", true}, {"ICON_DELETE", true}, {"==ICON_DELETE", false}, {"=", false}, {"", false}};
  const std::string word("a\0b", 3);
  for (const auto& row : rows) {
    VXMPopulateEmail mail;
    const ThreadedImageVarCallback binding(&mail);
    std::string out;
    ctemplate::StringEmitter emitter(&out);
    modifier.Modify(word.data(), word.size(), nullptr, &emitter, row.argument);
    EXPECT_EQ(out != word, row.wantImage) << row.argument;
    EXPECT_NE(out.find(word), std::string::npos);
    EXPECT_TRUE(modifier.MightModify(nullptr, row.argument));
  }
}

TEST_F(InlineImagesTest, ThreadsKeepTheirMailsApart) {
  constexpr int kThreads = 4, kMails = 50;
  std::barrier start(kThreads);
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      start.arrive_and_wait();
      for (int n = 0; n < kMails; ++n) {
        VXMPopulateEmail mail;
        {
          const ThreadedImageVarCallback binding(&mail);
          const std::string first = throughModifier("D", "ICON_DELETE");
          mail.alternative_html(first + throughModifier("A", "ICON_DELALL"), "utf-8");
          mail.send_queued_not_scanned("a@x");
        }
        if (throughModifier("D", "ICON_DELETE") != "D") ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  ASSERT_EQ(world().queue.size(), static_cast<std::size_t>(kThreads * kMails));
  for (const Fake::Mail& mail : world().queue) {
    ASSERT_EQ(mail.images.size(), 2U);
    EXPECT_EQ(mail.html, "<img src=\"cid:" + mail.images[0].cid +
                             "\" alt=\"D\">\n<img src=\"cid:" + mail.images[1].cid + "\" alt=\"A\">\n");
  }
}

}  // namespace
}  // namespace Velmar
