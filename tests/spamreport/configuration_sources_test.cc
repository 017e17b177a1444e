// Configuration records: loaded once a process, shared, tried again after a failure.

#include "spamreport/configuration_sources.h"

#include <barrier>
#include <chrono>
#include <thread>

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using ConfigurationSourcesTest = ReportTest;

TEST_F(ConfigurationSourcesTest, ThreadsLoadARecordOnceAndItStays) {
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
  world().spamReport.accessLinkHours = 43;
  const auto later = CMF::RefSpamReportSettings::instance(false);
  EXPECT_EQ(later->record().accessLinkHours, 42);
  EXPECT_EQ(seen, std::vector<const void*>(8, later.get()));
  EXPECT_THAT(world().calls,
              ElementsAre("cmf_query_create_withdomain(0,450)", "cmf_query_update(450)", "cmf_shm_read_unlock(450)"));
}

TEST_F(ConfigurationSourcesTest, AFailedLoadIsTriedAgain) {
  failCall("cmf_query_update", 1, Failure::Standard);
  EXPECT_THROW(CMF::RefNasStorage::instance(false), std::runtime_error);
  world().nasStorage.mode = 9;
  EXPECT_EQ(CMF::RefNasStorage::instance(false)->record().mode, 9U);
}

}  // namespace
}  // namespace Velmar
