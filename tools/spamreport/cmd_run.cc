// spamreport run: reports for some or all mailboxes, now or by the schedule, and what came of each.

#include <algorithm>
#include <ctime>
#include <iostream>
#include <optional>

#include "host/host.h"
#include "platform/types.h"
#include "tools/spamreport/commands.h"
#include "tools/spamreport/mailbox_list.h"
#include "tools/spamreport/progress.h"
#include "tools/spamreport/queue_text.h"
#include "tools/spamreport/report_runner.h"
#include "tools/spamreport/run_scheduled.h"
#include "tools/spamreport/time_text.h"

namespace Velmar::Tool {
namespace {

/// What a run is to do, and what is known about it before it begins.
struct Plan {
  std::vector<ReportTask> tasks;
  std::vector<RunResult> told;  ///< domains whose mailboxes could not be listed, or that have none
};

void checkScheduled(const RunOptions& options) {
  if (options.all || !options.domain.empty() || options.recipients) {
    throw WrongUse("--scheduled is for all mailboxes: --all, --domain and --recipients cannot be used with it");
  }
  if (options.period != 0 || options.until != "0") {
    throw WrongUse("--scheduled works out the period: --period and --until cannot be used with it");
  }
}

void checkOptions(const RunOptions& options) {
  if (options.scheduled) return checkScheduled(options);
  if (options.now != "0") throw WrongUse("--now needs --scheduled");
  if (options.afresh) throw WrongUse("--afresh needs --scheduled");
  if (options.all && !options.domain.empty()) throw WrongUse("--all and --domain cannot be used together");
  if (options.all && options.recipients) throw WrongUse("--all and --recipients cannot be used together");
  if (!options.all && options.domain.empty() && !options.recipients) {
    throw WrongUse("say which mailboxes: --domain DOMAIN, --recipients LIST, --all, or --scheduled");
  }
}

void planDomain(const std::string& domain, const ReportTask& model, Plan& plan) try {
  const auto addresses = listMailboxes(domain);
  if (!addresses) return plan.told.push_back(ofWholeDomain(domain, noDirectory()));
  for (const std::string& address : *addresses) plan.tasks.push_back({{domain, address}, model.period, model.until});
} catch (const Exception& e) {
  // The other domains go on.
  plan.told.push_back(ofWholeDomain(domain, {OutcomeKind::kFailed, e.text()}));
}

Plan makePlan(const RunOptions& options) {
  const ReportTask model{{}, options.period, parseUntil(options.until)};
  std::vector<std::string> domains = Host::configuredDomains();
  if (!options.domain.empty()) domains = {chooseDomain(options.domain, domains)};
  Plan plan;
  if (options.recipients) {
    for (const Mailbox& mailbox : parseRecipients(domains, *options.recipients)) {
      plan.tasks.push_back({mailbox, model.period, model.until});
    }
    return plan;
  }
  for (const std::string& domain : domains) planDomain(domain, model, plan);
  return plan;
}

/// On a terminal the progress takes the place of the log events, which would tear it apart.
bool decideProgress(const RunOptions& options) {
  const bool shown = !options.verbose && !options.json && canShowProgress();
  if (shown) Host::setLogToStderr(false);
  return shown;
}

std::vector<RunResult> runPlan(const Plan& plan, const RunnerOptions& options) {
  const std::vector<Outcome> outcomes = runReports(plan.tasks, options);
  std::vector<RunResult> results = plan.told;
  for (std::size_t i = 0; i < outcomes.size(); ++i) results.push_back({plan.tasks[i], outcomes[i]});
  return results;
}

struct HandOver {
  std::optional<Host::FlushResult> done;  ///< nothing when mails are not handed on
  bool failed = false;
};

/// Hands on what is in the queue. What has to wait is no failure: it is tried again by whoever flushes the queue.
HandOver handOver() try {
  const Host::FlushResult result = Host::flushQueue({});
  if (!result.enabled) return {};
  return {result, result.failed > 0};
} catch (const Exception& e) {
  std::cerr << "spamreport: " << Host::printable(e.text()) << "\n";
  return {std::nullopt, true};
}

/// The events that say why mails wait do not show beside a progress bar.
std::string handOverText(const Host::FlushResult& result) {
  const bool allWell = result.problems.empty() && result.held == 0;
  return "queue: " + flushSummary(result) + (allWell ? "" : " (spamreport queue list says why)");
}

/// Whether no domain has its directory. One may wait for its first mailbox; all of them do where a disk is missing.
bool allHomesMissing(const std::vector<RunResult>& results) {
  const auto noDomain = [](const RunResult& result) { return result.outcome.kind == OutcomeKind::kNoDomain; };
  if (std::none_of(results.begin(), results.end(), noDomain)) return false;
  const std::vector<std::string> domains = Host::configuredDomains();
  return std::none_of(domains.begin(), domains.end(), Host::domainDirectoryExists);
}

std::int64_t scheduledNow(const RunOptions& options) {
  const std::int64_t clock = std::time(nullptr);
  const std::int64_t given = parseTime("--now", options.now);
  // The record of scheduled runs would stand in the future, and nothing would be due until then.
  if (given > clock) throw WrongUse("--now: \"" + options.now + "\": lies in the future");
  return given;
}

}  // namespace

int run(const RunOptions& options) {
  checkOptions(options);
  const RunnerOptions runner{options.jobs, decideProgress(options)};
  const std::vector<RunResult> results = options.scheduled ? runScheduled(scheduledNow(options), options.afresh, runner)
                                                           : runPlan(makePlan(options), runner);
  const bool quiet = options.json || (options.scheduled && results.empty());
  if (!quiet) std::cout << resultTable(results, options.scheduled) << std::flush;
  const HandOver handedOver = anySent(results) ? handOver() : HandOver{};
  if (!quiet && handedOver.done) std::cout << handOverText(*handedOver.done) << "\n";
  if (options.json) std::cout << resultJson(results, handedOver.done);
  return anyFailure(results) || handedOver.failed || allHomesMissing(results) ? kFailed : kGood;
}

}  // namespace Velmar::Tool
