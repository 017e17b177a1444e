// The exported function: how the list is taken apart, and what ends the run.

#include <stdexcept>

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using EntryPointTest = ReportTest;

TEST_F(EntryPointTest, RefusesNullArguments) {
  EXPECT_EQ(vlm_spamreport_report_byrcpt("d.example", nullptr, 0, 0), -1);
  EXPECT_EQ(vlm_spamreport_report_byrcpt(nullptr, "u@d.example", 0, 0), -1);
  EXPECT_EQ(vlm_spamreport_report_byrcpt(nullptr, nullptr, 0, 0), -1);
  EXPECT_THAT(world().calls, IsEmpty());
}

TEST_F(EntryPointTest, DerivesOneDirectoryForEachRecipient) {
  const std::string long200 = std::string(150, 'a') + "@" + std::string(49, 'd');
  const std::string longDomain(2000, 'D');
  const struct {
    std::string domain, recipients;
    Texts want;
  } rows[] = {
      {"d", "", {}},
      {"d", ",,,", {}},
      {"d", "a@d,b@d", {"/home/d/a~d", "/home/d/b~d"}},
      {"d", ",a@d,,b@d,", {"/home/d/a~d", "/home/d/b~d"}},
      {"d", "a@d, b@d", {"/home/d/a~d", "/home/d/b~d"}},
      {"d", "a@d ,b@d", {"/home/d/a~d ", "/home/d/b~d"}},
      {"d", " \t\n\v\f\ra@d", {"/home/d/a~d"}},
      {"d", " ,a@d", {"/home/d/", "/home/d/a~d"}},
      {"d", "a", {"/home/d/a"}},
      {"d", "a@b@d", {"/home/d/a~b@d"}},
      {"other", "a@d;b@d", {"/home/other/a~d;b@d"}},
      {"d", std::string(127, 'a') + "@d", {"/home/d/" + std::string(127, 'a')}},
      {"d", std::string(126, 'a') + "@d", {"/home/d/" + std::string(126, 'a') + "~"}},
      {"d", " " + long200 + ",b@d", {"/home/d/" + std::string(127, 'a'), "/home/d/b~d"}},
      {longDomain, "a@d", {"/home/" + longDomain.substr(0, 1017)}},
      {std::string(1012, 'D'), "a@d", {"/home/" + std::string(1012, 'D') + "/a~d"}},
  };
  for (const auto& row : rows) {
    world().calls.clear();
    Texts want;
    for (const std::string& path : row.want) want.push_back("vlm_is_deleted_user_path(" + path + ")");
    EXPECT_EQ(vlm_spamreport_report_byrcpt(row.domain.c_str(), row.recipients.c_str(), 0, 0), 0);
    EXPECT_EQ(callsOf({"vlm_is_deleted_user_path"}), want) << row.domain << " " << row.recipients;
  }
}

TEST_F(EntryPointTest, LeavesTheCallersListAlone) {
  std::string recipients = "a@d, b@d";
  vlm_spamreport_report_byrcpt("d", recipients.c_str(), 0, 0);
  EXPECT_EQ(recipients, "a@d, b@d");
}

TEST_F(EntryPointTest, LackOfMemoryForTheListIsNoFailure) {
  Fake::setCopiesFail(true);
  EXPECT_EQ(vlm_spamreport_report_byrcpt("d", "a@d", 0, 0), 0);
  EXPECT_THAT(world().calls, IsEmpty());
  EXPECT_EQ(vlm_spamreport_report_byrcpt(nullptr, "a@d", 0, 0), -1);
}

TEST_F(EntryPointTest, GoesOnAfterAFailedReport) {
  EXPECT_EQ(vlm_spamreport_report_byrcpt("d.example", "u@unknown.example,u@d.example", 0, 0), 0);
  ASSERT_EQ(world().queue.size(), 1U);
  EXPECT_EQ(world().queue.front().recipients, "u@d.example");
  ASSERT_EQ(world().events.size(), 2U);
  EXPECT_EQ(world().events[0].code, 0x8000bU);
}

TEST_F(EntryPointTest, APlatformExceptionBeforeTheReportEndsTheRun) {
  failCall("vlm_is_deleted_user_path", 2);
  EXPECT_EQ(vlm_spamreport_report_byrcpt("d", "a@d,b@d,c@d", 0, 0), -1);
  EXPECT_THAT(callsOf({"vlm_is_deleted_user_path"}),
              ElementsAre("vlm_is_deleted_user_path(/home/d/a~d)", "vlm_is_deleted_user_path(/home/d/b~d)"));
  ASSERT_EQ(world().events.size(), 2U);  // a@d has no domain record
  EXPECT_EQ(world().events[1],
            (Event{0x8000b, "%s", {"FakeException: call of vlm_is_deleted_user_path fails (Fake:1, level 4)"}}));
}

TEST_F(EntryPointTest, OtherExceptionsPassToTheCaller) {
  failCall("vlm_is_deleted_user_path", 1, Failure::Standard);
  EXPECT_THROW(vlm_spamreport_report_byrcpt("d", "a@d,b@d", 0, 0), std::runtime_error);
  failCall("vlm_is_deleted_user_path", 1, Failure::Foreign);
  EXPECT_THROW(vlm_spamreport_report_byrcpt("d", "a@d,b@d", 0, 0), int);
  EXPECT_EQ(callsOf({"vlm_is_deleted_user_path"}).size(), 2U);
  EXPECT_THAT(world().events, IsEmpty());
}

TEST_F(EntryPointTest, WidensThePeriodWithItsSignAndPassesTheEndUnchanged) {
  world().mailboxes["u@d.example"].messages = {held(10, "key")};
  EXPECT_EQ(vlm_spamreport_report_byrcpt("d.example", "u@d.example", INT32_MIN, 0x100000010), 0);
  EXPECT_THAT(callsOf({"VXMScopeRef"}), ElementsAre("VXMScopeRef(3,-2147483632,16,2147483647)"));
  EXPECT_THAT(callsOf({"set(DELETE_ALL_SUBJECT"}),
              ElementsAre("set(DELETE_ALL_SUBJECT,delete_all:u@d.example:15d2a7c21:ffffffffdd2a7c31:"
                          "md5(u@d.example)^5d2a7c31)"));
}

// Whatever the n-th call of the platform throws: at most one mail, the right event, and nothing left behind.
TEST_F(EntryPointTest, EveryPlatformCallMayFail) {
  for (const Failure kind : {Failure::Platform, Failure::Standard, Failure::Foreign}) {
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
      } catch (const std::runtime_error&) {
        escaped = kind == Failure::Standard;
      } catch (int) {
        escaped = kind == Failure::Foreign;
      }
      const std::string name = Fake::failedCall();
      failed = !name.empty();
      SCOPED_TRACE("call " + std::to_string(n) + ", " + name);
      const bool first = name.rfind("vlm_is_deleted_user_path", 0) == 0;
      const bool tolerated = kind == Failure::Platform &&
                             (name.rfind("getGroupOwnerAddressesForUser", 0) == 0 ||
                              name.rfind("rfc5322Parse(o@d.example", 0) == 0 || name.rfind("toBase64String", 0) == 0);
      EXPECT_EQ(result, first && kind == Failure::Platform ? -1 : 0);
      EXPECT_EQ(escaped, first && kind != Failure::Platform);
      EXPECT_EQ(world().queue.size(), failed && !tolerated ? 0U : 1U);
      const auto failures = std::count_if(world().events.begin(), world().events.end(), [&](const Event& event) {
        return event.code == 0x8000b && event.fields.front().find(name.substr(0, name.find('('))) != std::string::npos;
      });
      EXPECT_EQ(failures, failed && !tolerated && kind == Failure::Platform ? 1 : 0);
      EXPECT_FALSE(bound);
      EXPECT_EQ(world().openQueries, 0);
    }
    EXPECT_GT(n, 100);
  }
}

}  // namespace
}  // namespace Velmar
