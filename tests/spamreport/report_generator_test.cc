// The generator: from directories to addresses, the links between addresses, and the list of failed reports.

#include "spamreport/secondary_list.h"
#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using ReportGeneratorTest = ReportTest;

const char kPath[] = "/home/d.example/u~d.example";
const char kError[] = "FakeException: call of ApsGwServerCache::find fails (Fake:1, level 4)";

TEST_F(ReportGeneratorTest, TurnsDirectoriesIntoAddresses) {
  const std::string u244(244, 'u');
  const std::pair<std::string, std::string> rows[] = {
      {"/home/d/u~d", "u@d"},
      {"XXXXXXd/u~d", "u@d"},
      {"/home/d/a~b~d", "a~b@d"},
      {"/home/d/x/u~d", "x/u@d"},
      {"/home/d/u@d", ""},
      {"/home/u~d", ""},
      {"abcdef", ""},
      {"", ""},
      {"/home/d/" + u244 + "~d", u244 + "@d"},  // 254 bytes
      {"/home/d/u" + u244 + "~d", ""},
  };
  for (const auto& [path, want] : rows) EXPECT_EQ(SpamreportGenerator::convert_home_dir_to_address(path), want) << path;
  EXPECT_THROW(SpamreportGenerator(0, 0).process(File::Path("abcde")), std::out_of_range);
}

TEST_F(ReportGeneratorTest, SkipsDeletedUsersSilentlyAndLogsPathsWithoutAddress) {
  world().deletedPaths = {kPath};
  SpamreportGenerator(0, 0).process(File::Path(kPath));
  SpamreportGenerator(0, 0).process(File::Path("/home/d"));
  EXPECT_THAT(world().calls, ElementsAre("vlm_is_deleted_user_path(/home/d.example/u~d.example)",
                                         "vlm_is_deleted_user_path(/home/d)", "Logger::log(80014,0,%s,/home/d)"));
}

TEST_F(ReportGeneratorTest, IgnoresTheGivenPolicyAndQueuesNoFailure) {
  RefRecipientPolicy policy(true);
  policy.get()->record.antispamProfile = 77;
  SpamreportGenerator generator(policy, 3600, 0);
  failCall("get_user_pref_lang");
  generator.process(File::Path(kPath));
  EXPECT_THAT(callsOf({"createProfile"}), ElementsAre("createProfileAntiSpam(5,0)"));
  EXPECT_THAT(generator.failed, IsEmpty());
}

TEST_F(ReportGeneratorTest, KeepsConfirmedLinksAndDeletesOthers) {
  Texts& primary = world().lists[{"u@x", "primaryaddr"}];
  primary = {"z@x", "a@x", "y@x", "c@x"};
  world().lists[{"a@x", "secondaryaddr"}] = {"other@x", "u@x"};
  world().lists[{"c@x", "secondaryaddr"}] = {"u@x"};
  for (int again = 0; again < 2; ++again) {
    EXPECT_EQ(get_secondary_list("u@x"), "a@x,c@x");
    EXPECT_THAT(primary, ElementsAre("a@x", "c@x"));
    EXPECT_THAT(logged(), ElementsAre("Logger::log(80013,0,%s|%s,z@x,y@x|u@x)"));
  }
  primary = {"z@x", "y@x"};
  failCall("mail_list_find", 2);
  EXPECT_THROW(get_secondary_list("u@x"), Exception);
  EXPECT_THAT(primary, ElementsAre("y@x"));
  world().calls.clear();
  for (const char* address : {"", "u~x"}) EXPECT_EQ(get_secondary_list(address), "");
  EXPECT_THAT(world().calls, IsEmpty());
}

TEST_F(ReportGeneratorTest, TriesUntilDeliveredOrOutOfTries) {
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

TEST_F(ReportGeneratorTest, SignalsDoNotShortenAPause) {
  world().signals = 2;
  failCall("ApsGwServerCache::find");
  SpamreportGenerator generator(3600, 0);
  generator.failed.emplace_back(File::Path(kPath));
  generator.processFailList(2);
  EXPECT_THAT(callsOf({"sleep"}), ElementsAre("sleep(30)", "sleep(29)", "sleep(28)"));
}

TEST_F(ReportGeneratorTest, WorksInListOrderAndKeepsWhatFails) {
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

TEST_F(ReportGeneratorTest, OneAttemptHasAResult) {
  SpamreportGenerator generator(3600, 0);
  std::string error = "before";
  world().deletedPaths = {kPath};  // not looked at here
  EXPECT_EQ(generator.processFail(File::Path(kPath), error), 1);
  EXPECT_EQ(generator.processFail(File::Path("/home/d"), error), 0);
  EXPECT_EQ(error, "before");
}

}  // namespace
}  // namespace Velmar
