// Brings the schedule, the ledger, the mailboxes and the library together. What is decided, is decided in schedule.cc
// and scheduled_run.cc.

#include "tools/spamreport/run_scheduled.h"

#include <chrono>
#include <ctime>
#include <iostream>
#include <memory>
#include <thread>

#include "host/host.h"
#include "platform/config_store.h"
#include "platform/types.h"
#include "tools/spamreport/mailbox_list.h"
#include "tools/spamreport/schedule.h"
#include "tools/spamreport/scheduled_run.h"

namespace Velmar::Tool {
namespace {

std::uint32_t scheduleWord() {
  const std::unique_ptr<cmf_query, decltype(&cmf_shm_read_unlock)> query(
      cmf_query_create_withdomain(0, G_CLI_SPAM_REPORT), cmf_shm_read_unlock);
  return static_cast<const __aps_spam_report*>(cmf_query_update(query.get()))->schedule;
}

class HostWorld final : public ScheduledWorld {
 public:
  HostWorld(bool afresh, const RunnerOptions& options) : afresh_(afresh), options_(options) {}

  std::int64_t clock() override { return std::time(nullptr); }

  Host::ReportedUntil reportedUntil(const std::string& domain) override {
    return afresh_ ? Host::ReportedUntil{} : Host::reportedUntil(domain);
  }

  void noteMailbox(const Mailbox& mailbox, std::int64_t until) override {
    Host::setMailboxReportedUntil(mailbox.domain, mailbox.address, until);
  }

  void noteDomain(const std::string& domain, std::int64_t until,
                  const std::map<std::string, long long>& others) override {
    Host::setDomainReportedUntil(domain, until, others);
  }

  std::optional<std::vector<std::string>> mailboxes(const std::string& domain) override {
    return listMailboxes(domain);
  }

  std::vector<Outcome> report(const std::vector<ReportTask>& tasks, const Done& done) override {
    RunnerOptions options = options_;
    if (!tasks.empty()) options.label = tasks.front().mailbox.domain;
    return runReports(tasks, options, done);
  }

 private:
  bool afresh_;
  RunnerOptions options_;
};

/// Whether this run still has the right to report; a result that says why when it has not.
bool stillOurs(Host::ScheduledRunLock& lock, const std::string& domain, std::vector<RunResult>& results) try {
  lock.confirm();
  return true;
} catch (const Exception& e) {
  results.push_back(ofWholeDomain(domain, {OutcomeKind::kFailed, e.text()}));
  return false;
}

std::vector<RunResult> runAllDomains(Host::ScheduledRunLock& lock, const Occasion& occasion, std::int64_t now,
                                     bool afresh, const RunnerOptions& options) {
  HostWorld world(afresh, options);
  std::vector<RunResult> results;
  for (const std::string& domain : Host::configuredDomains()) {
    if (!stillOurs(lock, domain, results)) break;
    const std::vector<RunResult> ofDomain = runScheduledDomain(world, domain, occasion, now);
    results.insert(results.end(), ofDomain.begin(), ofDomain.end());
  }
  return results;
}

}  // namespace

std::vector<RunResult> runScheduled(std::int64_t now, bool afresh, const RunnerOptions& options) {
  const std::int64_t actFor = now == 0 ? std::time(nullptr) : now;
  const auto occasion = lastOccasion(scheduleWord(), actFor, Host::catchUpHours());
  if (!occasion) {
    std::cerr << "spamreport: no hour is scheduled: [spam_report] schedule is empty\n";
    return {};
  }
  if (now == 0) std::this_thread::sleep_for(std::chrono::seconds(settlingTime(*occasion, actFor)));
  const auto lock = Host::ScheduledRunLock::tryAcquire();
  if (!lock) {
    std::cerr << "spamreport: another scheduled run is going on\n";
    return {};
  }
  return runAllDomains(*lock, *occasion, actFor, afresh, options);
}

}  // namespace Velmar::Tool
