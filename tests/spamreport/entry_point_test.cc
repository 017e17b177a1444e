// The exported function: how the list is taken apart, and what ends the run.

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using EntryPointTest = ReportTest;

TEST_F(EntryPointTest, NullArgumentsFailAndLackOfMemoryDoesNot) {
  EXPECT_EQ(vlm_spamreport_report_byrcpt("d.example", nullptr, 0, 0), -1);
  world().copiesFail = true;
  EXPECT_EQ(vlm_spamreport_report_byrcpt(nullptr, "u@d.example", 0, 0), -1);
  EXPECT_EQ(vlm_spamreport_report_byrcpt("d.example", "u@d.example", 0, 0), 0);
  EXPECT_THAT(world().calls, IsEmpty());
}

TEST_F(EntryPointTest, DerivesOneDirectoryForEachRecipient) {
  const std::string a126(126, 'a'), domain1012(1012, 'D'), longDomain(2000, 'D');
  const struct {
    std::string domain, recipients;
    Texts want;
  } rows[] = {
      {"d", ",,,", {}},
      {"d", ",a@d,,b@d,", {"/home/d/a~d", "/home/d/b~d"}},
      {"d", "a@d , b@d", {"/home/d/a~d ", "/home/d/b~d"}},
      {"d", " \t\n\v\f\ra@d, ", {"/home/d/a~d", "/home/d/"}},
      {"other", "a,a@b@d;c@d", {"/home/other/a", "/home/other/a~b@d;c@d"}},
      {"d", a126 + "a@d, " + a126 + "@d,b@d", {"/home/d/" + a126 + "a", "/home/d/" + a126 + "~", "/home/d/b~d"}},
      {longDomain, "a@d", {"/home/" + longDomain.substr(0, 1017)}},
      {domain1012, "a@d", {"/home/" + domain1012 + "/a~d"}},
  };
  for (const auto& row : rows) {
    world().calls.clear();
    Texts want;
    for (const std::string& path : row.want) want.push_back("vlm_is_deleted_user_path(" + path + ")");
    EXPECT_EQ(vlm_spamreport_report_byrcpt(row.domain.c_str(), row.recipients.c_str(), 0, 0), 0);
    EXPECT_EQ(callsOf({"vlm_is_deleted_user_path"}), want) << row.domain << " " << row.recipients;
  }
}

TEST_F(EntryPointTest, AFailedReportCostsItselfAndAFailureBeforeItTheRest) {
  failCall("vlm_is_deleted_user_path", 3);
  EXPECT_EQ(vlm_spamreport_report_byrcpt("d.example", "u@x,u@d.example,b@x,c@x", 0, 0), -1);
  EXPECT_THAT(logged(), ElementsAre("Logger::log(8000b,0,%s,SpamreportException: Invalid user domain u@x "
                                    "(SpamreportGenerator:397, level 4))",
                                    "Logger::log(80011,0,%zd|%s|%s,2|u@d.example|u@d.example)",
                                    "Logger::log(8000b,0,%s,FakeException: call of vlm_is_deleted_user_path fails "
                                    "(Fake:1, level 4))"));
  EXPECT_EQ(callsOf({"vlm_is_deleted_user_path"}).size(), 3U);
}

// Whatever the n-th call of the platform throws: at most one mail, the right event, and nothing left behind.
TEST_F(EntryPointTest, EveryPlatformCallMayFail) {
  for (const Failure kind : {Failure::Platform, Failure::Standard, Failure::Foreign}) {
    const bool platform = kind == Failure::Platform;
    int n = 0;
    bool failed = true;
    while (failed) {
      startAnew();
      Fake::domain("d.example").sendToGroupOwner = true;
      world().groupOwners = {"o@d.example"};
      world().lists[{"u@d.example", "primaryaddr"}] = {"a@d.example", "b@d.example"};
      world().lists[{"a@d.example", "secondaryaddr"}] = {"u@d.example"};
      bool bound = false;
      world().onMailDestroyed = [&] { bound = bound || throughModifier("word", "ICON_DELETE") != "word"; };
      failCall("", ++n, kind);
      int result = 0;
      bool escaped = false;
      try {
        result = vlm_spamreport_report_byrcpt("d.example", "u@d.example", 0, 0);
      } catch (...) {
        escaped = true;
      }
      const std::string name = Fake::failedCall();
      failed = !name.empty();
      SCOPED_TRACE("call " + std::to_string(n) + ", " + name);
      const bool first = name.starts_with("vlm_is_deleted_user_path");
      const bool tolerated = platform && (name.starts_with("getGroupOwnerAddressesForUser") ||
                                          name == "rfc5322Parse(o@d.example,true)" || name == "toBase64String()");
      const bool costsTheReport = failed && !tolerated;
      EXPECT_EQ(result, first && platform ? -1 : 0);
      EXPECT_EQ(escaped, first && !platform);
      EXPECT_EQ(world().queue.size(), costsTheReport ? 0U : 1U);
      const std::string call = name.substr(0, name.find('('));
      const std::string event = "Logger::log(8000b,0,%s,FakeException: call of " + call + " fails (Fake:1, level 4))";
      EXPECT_EQ(callsOf({"Logger::log(8000b"}), costsTheReport && platform ? Texts({event}) : Texts());
      EXPECT_FALSE(bound);
      EXPECT_EQ(world().openQueries, 0);
    }
    EXPECT_GT(n, 100);
  }
}

}  // namespace
}  // namespace Velmar
