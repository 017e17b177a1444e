// The list of failed reports: passes, pauses, and what is logged in the end.

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using FailedReportsTest = ReportTest;

const char kPath[] = "/home/d.example/u~d.example";
const char kError[] = "FakeException: call of ApsGwServerCache::find fails (Fake:1, level 4)";

TEST_F(FailedReportsTest, TriesUntilDeliveredOrOutOfTries) {
  const struct {
    int maxTries, failures;
    bool deleted;
    std::size_t wantAttempts, wantPauses;
    int wantTries;  // -1: no longer in the list
    const char* wantError;
  } rows[] = {
      {1, 0, false, 1, 0, -1, ""},    {1, 9, false, 1, 0, 1, kError}, {3, 2, false, 3, 2, -1, ""},
      {3, 9, false, 3, 2, 3, kError}, {3, 0, true, 0, 0, 0, ""},      {0, 0, false, 0, 0, 0, ""},
      {-1, 0, false, 0, 0, 0, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    startAnew();
    if (row.deleted) world().deletedPaths = {kPath};
    failCall("ApsGwServerCache::find", 1, Failure::Platform, row.failures);
    SpamreportGenerator generator(3600, 0);
    generator.failed.emplace_back(File::Path(kPath));
    generator.processFailList(row.maxTries);

    EXPECT_EQ(callsOf({"ApsGwServerCache::find"}).size(), row.wantAttempts);
    EXPECT_EQ(callsOf({"sleep"}), Texts(row.wantPauses, "sleep(30)"));
    EXPECT_EQ(callsOf({"Logger::log(8000b", "Logger::log(80015"}),
              Texts(row.wantTries >= 0, std::string("Logger::log(80015,0,%s,") + row.wantError + ")"));
    EXPECT_EQ(generator.failed.empty() ? -1 : generator.failed.front().tries, row.wantTries);
  }
  world().calls.clear();
  SpamreportGenerator(0, 0).processFailList(5);
  EXPECT_THAT(world().calls, IsEmpty());
}

TEST_F(FailedReportsTest, WorksInListOrderAndKeepsWhatFails) {
  SpamreportGenerator generator(3600, 0);
  for (const char* path : {"/home/x/a~x", kPath, "/home/d", "/home/x/b~x"})
    generator.failed.emplace_back(File::Path(path));
  generator.failed.front().error = "earlier";
  generator.failed.front().tries = 2;
  generator.processFailList(2);
  EXPECT_THAT(callsOf({"Logger", "sleep"}),
              ElementsAre("Logger::log(80011,0,%zd|%s|%s,2|u@d.example|u@d.example)", "Logger::log(80014,0,%s,/home/d)",
                          "sleep(30)", "Logger::log(80014,0,%s,/home/d)", "Logger::log(80015,0,%s,earlier)",
                          "Logger::log(80015,0,%s,)",
                          "Logger::log(80015,0,%s,SpamreportException: Invalid user domain b@x "
                          "(SpamreportGenerator:397, level 4))"));

  // A later call with a higher limit tries again; another exception ends it at once and keeps the list.
  failCall("ApsGwServerCache::find", 2, Failure::Standard);
  world().calls.clear();
  EXPECT_THROW(generator.processFailList(3), std::runtime_error);
  std::vector<int> tries;
  for (const FailReport& entry : generator.failed) tries.push_back(entry.tries);
  EXPECT_THAT(tries, ElementsAre(3, 3, 2));
  EXPECT_THAT(callsOf({"Logger::log(80015"}), IsEmpty());
}

TEST_F(FailedReportsTest, OneAttemptHasAResult) {
  SpamreportGenerator generator(3600, 0);
  std::string error = "before";
  world().deletedPaths = {kPath};  // not looked at here
  EXPECT_EQ(generator.processFail(File::Path(kPath), error), 1);
  EXPECT_EQ(generator.processFail(File::Path("/home/d"), error), 0);
  EXPECT_EQ(error, "before");
  failCall("ApsGwServerCache::find");
  EXPECT_EQ(generator.processFail(File::Path(kPath), error), 0);
  EXPECT_EQ(error, kError);
  EXPECT_THAT(callsOf({"vlm_is_deleted_user_path", "Logger::log(8000b"}), IsEmpty());
}

}  // namespace
}  // namespace Velmar
