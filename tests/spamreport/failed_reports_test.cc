// The list of failed reports: passes, pauses, and what is logged in the end.

#include <stdexcept>

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using FailedReportsTest = ReportTest;

const char kPath[] = "/home/d.example/u~d.example";
const char kError[] = "FakeException: call of ApsGwServerCache::find fails (Fake:1, level 4)";

TEST_F(FailedReportsTest, TriesUntilDeliveredOrOutOfTries) {
  const struct {
    const char* name;
    int maxTries, failures;
    bool deleted;
    int wantAttempts, wantPauses, wantTries;  // wantTries -1: no longer in the list
    const char* wantError;
  } rows[] = {
      {"delivered at once", 1, 0, false, 1, 0, -1, ""}, {"one try, fails", 1, 9, false, 1, 0, 1, kError},
      {"third time lucky", 3, 2, false, 3, 2, -1, ""},  {"three tries, fails", 3, 9, false, 3, 2, 3, kError},
      {"last try lucky", 2, 1, false, 2, 1, -1, ""},    {"deleted user", 3, 0, true, 0, 0, 0, ""},
      {"no tries", 0, 0, false, 0, 0, 0, ""},           {"negative tries", -1, 0, false, 0, 0, 0, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    startAnew();
    if (row.deleted) world().deletedPaths = {kPath};
    failCall("ApsGwServerCache::find", 1, Failure::Platform, row.failures);
    SpamreportGenerator generator(3600, 0);
    generator.failed.emplace_back(File::Path(kPath));
    generator.processFailList(row.maxTries);

    const bool left = row.wantTries >= 0;
    EXPECT_EQ(callsOf({"ApsGwServerCache::find"}).size(), static_cast<std::size_t>(row.wantAttempts));
    EXPECT_EQ(callsOf({"sleep"}), Texts(static_cast<std::size_t>(row.wantPauses), "sleep(30)"));
    ASSERT_EQ(generator.failed.size(), left ? 1U : 0U);
    EXPECT_EQ(world().queue.size(), left ? 0U : 1U);
    std::erase_if(world().events, [](const Event& event) { return event.code == 0x80011; });
    std::vector<Event> want;
    if (left) want = {{0x80015, "%s", {row.wantError}}};
    EXPECT_EQ(world().events, want);
    if (!left) continue;
    EXPECT_EQ(generator.failed.front().tries, row.wantTries);
    EXPECT_EQ(generator.failed.front().error, row.wantError);
  }
}

TEST_F(FailedReportsTest, AnEmptyListIsDoneAtOnce) {
  SpamreportGenerator(0, 0).processFailList(5);
  EXPECT_THAT(world().calls, IsEmpty());
}

TEST_F(FailedReportsTest, WorksInListOrderAndKeepsWhatFails) {
  Fake::domain("e");
  SpamreportGenerator generator(3600, 0);
  for (const char* path : {"/home/x/a~x", kPath, "/home/d", "/home/x/b~x"})
    generator.failed.emplace_back(File::Path(path));
  generator.failed.front().error = "earlier";
  generator.failed.front().tries = 2;
  generator.processFailList(2);

  const std::string unknown = "SpamreportException: Invalid user domain b@x (SpamreportGenerator:397, level 4)";
  std::vector<Event> want;
  want.push_back({0x80011, "%zd\x01%s\x01%s", {"2", "u@d.example", "u@d.example"}});
  want.push_back({0x80014, "%s", {"/home/d"}});
  want.push_back({0x80014, "%s", {"/home/d"}});  // the second pass
  want.push_back({0x80015, "%s", {"earlier"}});
  want.push_back({0x80015, "%s", {""}});
  want.push_back({0x80015, "%s", {unknown}});
  EXPECT_EQ(world().events, want);
  EXPECT_THAT(callsOf({"sleep"}), ElementsAre("sleep(30)"));
  ASSERT_EQ(generator.failed.size(), 3U);

  // A later call with a higher limit tries again, logged or not.
  world().calls.clear();
  generator.processFailList(3);
  EXPECT_THAT(callsOf({"vlm_is_deleted_user_path"}),
              ElementsAre("vlm_is_deleted_user_path(/home/x/a~x)", "vlm_is_deleted_user_path(/home/d)",
                          "vlm_is_deleted_user_path(/home/x/b~x)"));
  for (const FailReport& entry : generator.failed) EXPECT_EQ(entry.tries, 3);
}

TEST_F(FailedReportsTest, OtherExceptionsLeaveAtOnceAndKeepTheList) {
  SpamreportGenerator generator(3600, 0);
  for (const char* path : {"/home/x/a~x", kPath, "/home/x/b~x"}) generator.failed.emplace_back(File::Path(path));
  failCall("ApsGwServerCache::find", 2, Failure::Standard);
  EXPECT_THROW(generator.processFailList(5), std::runtime_error);
  ASSERT_EQ(generator.failed.size(), 3U);
  Texts tries;
  for (const FailReport& entry : generator.failed) tries.push_back(std::to_string(entry.tries));
  EXPECT_THAT(tries, ElementsAre("1", "0", "0"));
  EXPECT_THAT(world().events, IsEmpty());
}

TEST_F(FailedReportsTest, OneAttemptHasAResult) {
  SpamreportGenerator generator(3600, 0);
  std::string error = "before";
  EXPECT_EQ(generator.processFail(File::Path(kPath), error), 1);
  EXPECT_EQ(generator.processFail(File::Path("/home/d"), error), 0);
  EXPECT_EQ(error, "before");
  world().profiles.clear();  // not due is no failure
  EXPECT_EQ(generator.processFail(File::Path(kPath), error), 1);
  world().deletedPaths = {kPath};  // not looked at here
  failCall("ApsGwServerCache::find");
  EXPECT_EQ(generator.processFail(File::Path(kPath), error), 0);
  EXPECT_EQ(error, kError);
  EXPECT_THAT(callsOf({"vlm_is_deleted_user_path"}), IsEmpty());
  EXPECT_THAT(generator.failed, IsEmpty());
  failCall("ApsGwServerCache::find", 1, Failure::Foreign);
  EXPECT_THROW(generator.processFail(File::Path(kPath), error), int);
}

}  // namespace
}  // namespace Velmar
