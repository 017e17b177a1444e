// Configuration records: loaded once a process, shared, tried again after a failure.

#include "spamreport/configuration_sources.h"

#include <barrier>
#include <chrono>
#include <thread>

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using ConfigurationSourcesTest = ReportTest;

TEST_F(ConfigurationSourcesTest, ThreadsLoadARecordOnce) {
  world().spamReport.accessLinkHours = 42;
  world().onQuery = [] { std::this_thread::sleep_for(std::chrono::milliseconds(50)); };  // the others arrive meanwhile
  std::barrier start(8);
  std::vector<std::thread> threads;
  std::vector<const void*> seen(8);
  for (const void*& mine : seen) {
    threads.emplace_back([&mine, &start] {
      start.arrive_and_wait();
      const auto handle = CMF::RefSpamReportSettings::instance(false);
      if (handle->record().accessLinkHours == 42) mine = handle.get();
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(seen, std::vector<const void*>(8, CMF::RefSpamReportSettings::instance(false).get()));
  EXPECT_THAT(world().calls,
              ElementsAre("cmf_query_create_withdomain(0,450)", "cmf_query_update(450)", "cmf_shm_read_unlock(450)"));
}

TEST_F(ConfigurationSourcesTest, ALoadedRecordStays) {
  setText(world().spamReport.templateName, "first");
  const auto handle = CMF::RefSpamReportSettings::instance(false);
  setText(world().spamReport.templateName, "second");
  EXPECT_STREQ(handle->record().templateName, "first");
  EXPECT_STREQ(CMF::RefSpamReportSettings::instance(false)->record().templateName, "first");
  EXPECT_THAT(callsOf({"cmf_query_update"}), ElementsAre("cmf_query_update(450)"));
}

TEST_F(ConfigurationSourcesTest, AFailedLoadIsTriedAgain) {
  for (const char* operation : {"cmf_query_create_withdomain", "cmf_query_update"}) {
    startAnew();
    failCall(operation, 1, Failure::Standard);
    EXPECT_THROW(CMF::RefNasStorage::instance(false), std::runtime_error) << operation;
    EXPECT_EQ(world().openQueries, 0);
    world().nasStorage.mode = 9;
    EXPECT_EQ(CMF::RefNasStorage::instance(false)->record().mode, 9U);
  }
}

TEST_F(ConfigurationSourcesTest, AnEmptyHandleThrows) {
  const CMF::RefMailServer empty;
  try {
    empty->record();
    ADD_FAILURE() << "no exception";
  } catch (const Exception& thrown) {
    EXPECT_EQ(thrown.text(), "operator->");
    EXPECT_EQ(thrown.level(), 1);
    EXPECT_EQ(thrown.source(), "VlmRefcounted");
    EXPECT_EQ(thrown.line(), 359);
  }
}

TEST_F(ConfigurationSourcesTest, ATableGivesItsFirstRow) {
  world().interfaces = {{7, "first", {}}, {8, "second", {}}};
  CMF::InterfaceTable table;
  EXPECT_EQ(table.position(), -1);
  EXPECT_EQ(table.head().ngid, 7U);
  EXPECT_EQ(world().openQueries, 1);
}

}  // namespace
}  // namespace Velmar
