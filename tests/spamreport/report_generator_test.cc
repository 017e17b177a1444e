// The generator: from directories to addresses, and what becomes of a report that fails.

#include <stdexcept>

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using ReportGeneratorTest = ReportTest;

TEST_F(ReportGeneratorTest, TurnsDirectoriesIntoAddresses) {
  const std::string user247(241, 'u');
  const struct {
    std::string path, want;
  } rows[] = {
      {"/home/d/u~d", "u@d"},
      {"XXXXXXd/u~d", "u@d"},
      {"/home/d/a~b~d", "a~b@d"},
      {"/home/d/x/u~d", "x/u@d"},
      {"/home/d~e/u~d", "u@d"},
      {"/home//u~d", "u@d"},
      {"/home/d/~", "@"},
      {"/home/d/u~", "u@"},
      {"/home/d/u@d", ""},
      {"/home/d/", ""},
      {"/home/d", ""},
      {"/home/u~d", ""},
      {"abcdef", ""},
      {"", ""},
      {"/home/d/" + std::string(244, 'u') + "~d", std::string(244, 'u') + "@d"},  // 254 bytes
      {"/home/d/" + std::string(245, 'u') + "~d", ""},
  };
  for (const auto& row : rows)
    EXPECT_EQ(SpamreportGenerator::convert_home_dir_to_address(row.path), row.want) << row.path;
  for (std::size_t length = 1; length < 6; ++length)
    EXPECT_THROW(SpamreportGenerator::convert_home_dir_to_address(std::string(length, 'x')), std::out_of_range);
}

TEST_F(ReportGeneratorTest, SkipsDeletedUsersSilently) {
  world().deletedPaths = {"/home/d.example/u~d.example"};
  SpamreportGenerator(0, 0).process(File::Path("/home/d.example/u~d.example"));
  EXPECT_THAT(world().calls, ElementsAre("vlm_is_deleted_user_path(/home/d.example/u~d.example)"));
}

TEST_F(ReportGeneratorTest, LogsPathsWithoutAddress) {
  for (const std::string& path : {std::string("/home/d"), "/home/d/" + std::string(247, 'u')}) {
    world().events.clear();
    SpamreportGenerator(0, 0).process(File::Path(path));
    EXPECT_THAT(world().events, ElementsAre(Event{0x80014, "%s", {path}}));
  }
  EXPECT_THROW(SpamreportGenerator(0, 0).process(File::Path("abc")), std::out_of_range);
  EXPECT_THAT(callsOf({"mail_list"}), IsEmpty());
}

TEST_F(ReportGeneratorTest, HandsConfirmedLinksAndPeriodToTheReport) {
  world().lists[{"u@d.example", "primaryaddr"}] = {"b@d.example", "a@d.example"};
  for (const char* name : {"a@d.example", "b@d.example"}) world().lists[{name, "secondaryaddr"}] = {"u@d.example"};
  SpamreportGenerator(100, kNow - 10).process(File::Path("/home/d.example/u~d.example"));
  EXPECT_THAT(
      callsOf({"rfc5322ParseSet", "VXMScopeRef", "send_queued"}),
      ElementsAre("rfc5322ParseSet(b@d.example,a@d.example,true,false)",
                  "VXMScopeRef(3," + std::to_string(kNow - 110) + "," + std::to_string(kNow - 10) + ",2147483647)",
                  "send_queued_not_scanned(a@d.example,b@d.example)"));
}

TEST_F(ReportGeneratorTest, FailuresAreLoggedOrDroppedNeverThrown) {
  for (const char* operation : {"mail_list_get_names", "ApsGwServerCache::find", "next", "send_queued_not_scanned"}) {
    for (const Failure kind : {Failure::Platform, Failure::Standard, Failure::Foreign}) {
      startAnew();
      SpamreportGenerator generator(3600, 0);
      failCall(operation, 1, kind);
      generator.process(File::Path("/home/d.example/u~d.example"));
      std::vector<Event> want;
      if (kind == Failure::Platform)
        want = {{0x8000b, "%s", {std::string("FakeException: call of ") + operation + " fails (Fake:1, level 4)"}}};
      std::erase_if(world().events, [](const Event& event) { return event.code == 0x80011; });
      EXPECT_EQ(world().events, want) << operation;
      EXPECT_THAT(generator.failed, IsEmpty());
      EXPECT_THAT(world().queue, IsEmpty());
    }
  }
}

TEST_F(ReportGeneratorTest, IgnoresTheGivenPolicy) {
  RefRecipientPolicy policy(true);
  policy.get()->record.antispamProfile = 77;
  SpamreportGenerator(policy, 3600, 0).process(File::Path("/home/d.example/u~d.example"));
  EXPECT_THAT(callsOf({"cfg_get_managed", "createProfile"}),
              ElementsAre("cfg_get_managed_recipient_policy_with_filter(u@d.example,spamreport_filter,0,1)",
                          "createProfileAntiSpam(5,0)"));
}

}  // namespace
}  // namespace Velmar
