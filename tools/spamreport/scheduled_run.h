#pragma once

// The scheduled reports of one domain: which mailboxes are due for which period, and what the ledger is told.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/host.h"
#include "tools/spamreport/run_result.h"
#include "tools/spamreport/schedule.h"

namespace Velmar::Tool {

/// What a scheduled run does to the world. Each operation throws Exception when it failed.
class ScheduledWorld {
 public:
  virtual ~ScheduledWorld() = default;

  /// What the clock shows, whatever time the run acts for.
  virtual std::int64_t clock() = 0;

  virtual Host::ReportedUntil reportedUntil(const std::string& domain) = 0;
  virtual void noteMailbox(const Mailbox& mailbox, std::int64_t until) = 0;
  virtual void noteDomain(const std::string& domain, std::int64_t until,
                          const std::map<std::string, long long>& others) = 0;

  /// The addresses of the domain's mailboxes; nothing when it should have a directory for them and has none.
  virtual std::optional<std::vector<std::string>> mailboxes(const std::string& domain) = 0;

  /// Makes the reports and calls `done` after each one, from any thread. When it returns a reason no further one is
  /// begun, and those left out fail with it. Returns their outcomes in this order.
  using Done = std::function<std::string(const ReportTask& task, Outcome& outcome)>;
  virtual std::vector<Outcome> report(const std::vector<ReportTask>& tasks, const Done& done) = 0;
};

/// Reports what is due in a domain. Returns what was tried; empty when nothing was due.
///
/// A mailbox whose report is sent is noted at once, so that a run which is broken off repeats none but the report that
/// was in the making. For the same reason it ends as soon as one cannot be noted. When all were tried the domain is
/// noted, and each mailbox that failed stays where it stands. now  what counts as the time of this try What failed for
/// the whole domain is a result of its own, as ofWholeDomain() makes it.
std::vector<RunResult> runScheduledDomain(ScheduledWorld& world, const std::string& domain, const Occasion& occasion,
                                          std::int64_t now);

}  // namespace Velmar::Tool
