// Calls the library and finds out what came of each report.
//
// The call is made once a mailbox: its events then belong to this mailbox for certain, and one that breaks the call off
// does not cost those after it their reports.

#include "tools/spamreport/report_runner.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "host/host.h"
#include "platform/types.h"
#include "platform/users_lists.h"
#include "tools/spamreport/event_collector.h"
#include "tools/spamreport/progress.h"
#include "velmar/spamreport.h"

namespace Velmar::Tool {
namespace {

/// mailbox  its address is checked: it has one "@", and no "/"
bool isDeletedUser(const Mailbox& mailbox) {
  const std::string local = mailbox.address.substr(0, mailbox.address.find('@'));
  return vlm_is_deleted_user_path(("/home/" + mailbox.domain + "/" + local + "~" + mailbox.domain).c_str()) != 0;
}

/// The library takes a mailbox that does not exist for one that holds nothing.
Outcome corrected(Outcome outcome, const Mailbox& mailbox) {
  const bool leftOut = outcome.kind == OutcomeKind::kNothingHeld || outcome.kind == OutcomeKind::kDisabled ||
                       outcome.kind == OutcomeKind::kNoRecipients;
  if (!leftOut || Host::mailboxExists(mailbox.address)) return outcome;
  return {OutcomeKind::kNoMailbox, "there is no such mailbox"};
}

Outcome reportMailbox(const ReportTask& task, EventCollector& collector) try {
  const auto& [mailbox, period, until] = task;
  mailboxAddress(mailbox.address);  // those found on disk may have any name
  const std::int32_t result =
      vlm_spamreport_report_byrcpt(mailbox.domain.c_str(), mailbox.address.c_str(), period, until);
  const std::vector<SeenEvent> events = collector.take();
  return corrected(outcomeOf(events, result != 0, events.empty() && isDeletedUser(mailbox)), mailbox);
} catch (const Exception& e) {
  collector.take();
  return {OutcomeKind::kFailed, e.text()};
} catch (const std::exception& e) {
  collector.take();
  return {OutcomeKind::kFailed, e.what()};
}

/// Why no further report is begun; "" as long as they are. Any thread.
class Stop {
 public:
  std::string reason() const {
    const std::lock_guard lock(mutex_);
    return reason_;
  }
  void set(std::string reason) {
    const std::lock_guard lock(mutex_);
    if (reason_.empty()) reason_ = std::move(reason);
  }

 private:
  mutable std::mutex mutex_;
  std::string reason_;
};

}  // namespace

std::vector<Outcome> runReports(const std::vector<ReportTask>& tasks, const RunnerOptions& options,
                                const TaskDone& done) {
  EventCollector collector;
  Progress progress(options.showProgress, tasks.size(), options.label);
  std::vector<Outcome> outcomes(tasks.size());
  std::atomic<std::size_t> next{0};
  Stop stop;
  const auto work = [&] {
    for (std::size_t i = next++; i < tasks.size(); i = next++) {
      if (const std::string reason = stop.reason(); !reason.empty()) {
        outcomes[i] = {OutcomeKind::kFailed, "left out: " + reason};
        continue;
      }
      outcomes[i] = reportMailbox(tasks[i], collector);
      if (done) stop.set(done(tasks[i], outcomes[i]));
      progress.step(isFailure(outcomes[i]));
    }
  };
  const auto helperCount = std::min(static_cast<std::size_t>(options.jobs), tasks.size());
  std::vector<std::jthread> helpers;
  try {
    for (std::size_t i = 1; i < helperCount; ++i) helpers.emplace_back(work);
  } catch (const std::system_error&) {
    // The system has no more threads: those that are there do the work.
  }
  work();
  helpers.clear();
  return outcomes;
}

}  // namespace Velmar::Tool
