// The generator: from directories to addresses, the links between addresses, and what becomes of a report that fails.

#include "spamreport/secondary_list.h"
#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using ReportGeneratorTest = ReportTest;

TEST_F(ReportGeneratorTest, TurnsDirectoriesIntoAddresses) {
  const std::string u244(244, 'u');
  const std::pair<std::string, std::string> rows[] = {
      {"/home/d/u~d", "u@d"},
      {"XXXXXXd/u~d", "u@d"},
      {"/home/d/a~b~d", "a~b@d"},
      {"/home/d/x/u~d", "x/u@d"},
      {"/home/d/u@d", ""},
      {"/home/d~e", ""},
      {"/home/u~d", ""},
      {"abcdef", ""},
      {"", ""},
      {"/home/d/" + u244 + "~d", u244 + "@d"},  // 254 bytes
      {"/home/d/u" + u244 + "~d", ""},
  };
  for (const auto& [path, want] : rows) EXPECT_EQ(SpamreportGenerator::convert_home_dir_to_address(path), want) << path;
  EXPECT_THROW(SpamreportGenerator(0, 0).process(File::Path("a")), std::out_of_range);
  EXPECT_THROW(SpamreportGenerator(0, 0).process(File::Path("abcde")), std::out_of_range);
}

TEST_F(ReportGeneratorTest, SkipsDeletedUsersSilentlyAndLogsPathsWithoutAddress) {
  world().deletedPaths = {"/home/d.example/u~d.example"};
  SpamreportGenerator(0, 0).process(File::Path("/home/d.example/u~d.example"));
  SpamreportGenerator(0, 0).process(File::Path("/home/d"));
  EXPECT_THAT(world().calls, ElementsAre("vlm_is_deleted_user_path(/home/d.example/u~d.example)",
                                         "vlm_is_deleted_user_path(/home/d)", "Logger::log(80014,0,%s,/home/d)"));
}

TEST_F(ReportGeneratorTest, IgnoresTheGivenPolicyAndQueuesNoFailure) {
  RefRecipientPolicy policy(true);
  policy.get()->record.antispamProfile = 77;
  SpamreportGenerator generator(policy, 3600, 0);
  failCall("get_user_pref_lang");
  generator.process(File::Path("/home/d.example/u~d.example"));
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

}  // namespace
}  // namespace Velmar
