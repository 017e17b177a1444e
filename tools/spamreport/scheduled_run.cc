// Walks one domain through its scheduled reports. Called for each configured domain by the one process that holds the
// lock of scheduled runs. Time, ledger, mailboxes and reports are behind ScheduledWorld, for the tests.

#include "tools/spamreport/scheduled_run.h"

#include <exception>
#include <limits>

#include "platform/types.h"
#include "tools/spamreport/time_text.h"

namespace Velmar::Tool {
namespace {

using Standings = std::map<std::string, long long>;

/// Notes of a domain are by address; this name, which is none, notes when the domain was last tried.
constexpr char kLastTry[] = "*";
/// By how much the clock may be set back without more ado than nothing being due for a while.
constexpr std::int64_t kClockTolerance = 86400;
constexpr std::int64_t kLastTime = std::numeric_limits<std::int32_t>::max();

Outcome standsInTheFuture(std::int64_t standing) {
  return {OutcomeKind::kFailed, "the record of scheduled runs says that it was reported until " + timeText(standing) +
                                    ", which is to come: the clock was wrong then or is now; --afresh corrects the "
                                    "record"};
}

/// Reports count seconds in 32 bits: beyond, none would find a message, and the time would be noted as reported.
Outcome beyondReports(std::int64_t until) {
  return {OutcomeKind::kFailed, "reports until " + timeText(until) + " cannot be made: the last time that they can " +
                                    "handle is " + timeText(kLastTime) + "; is the clock wrong?"};
}

/// What is noted, without what a clock that was wrong has noted of a time to come. A try after the time that the run
/// acts for counts as none.
Host::ReportedUntil credible(Host::ReportedUntil ledger, std::int64_t now, std::int64_t clock) {
  std::erase_if(ledger.mailboxes, [now, clock](const auto& note) {
    return note.second > (note.first == kLastTry ? now : clock + kClockTolerance);
  });
  return ledger;
}

std::int64_t lastTryOf(const Host::ReportedUntil& ledger) {
  const auto found = ledger.mailboxes.find(kLastTry);
  return found == ledger.mailboxes.end() ? 0 : found->second;
}

bool anyStandsBefore(std::int64_t until, const Host::ReportedUntil& ledger) {
  for (const auto& [address, standing] : ledger.mailboxes) {
    if (address != kLastTry && standing < until) return true;
  }
  return ledger.domain < until;
}

bool isDue(const Host::ReportedUntil& ledger, const Occasion& occasion, std::int64_t now) {
  if (ledger.domain > occasion.until) return false;  // the clock was set back
  return anyStandsBefore(occasion.until, ledger) && now >= nextTry(occasion, lastTryOf(ledger));
}

std::int64_t standingOf(const Host::ReportedUntil& ledger, const std::string& address) {
  const auto found = ledger.mailboxes.find(address);
  return found == ledger.mailboxes.end() ? ledger.domain : found->second;
}

std::vector<ReportTask> dueTasks(const std::string& domain, const std::vector<std::string>& addresses,
                                 const Host::ReportedUntil& ledger, const Occasion& occasion) {
  std::vector<ReportTask> tasks;
  for (const std::string& address : addresses) {
    const std::int64_t start = periodStart(occasion, standingOf(ledger, address));
    if (start == occasion.until) continue;
    tasks.push_back({{domain, address}, static_cast<std::int32_t>(occasion.until - start), occasion.until});
  }
  return tasks;
}

/// Mailboxes that do not stand at the end of the occasion although the domain does: those that failed or went away
/// since they were listed, as all do when their file system is unmounted, and those that were reported further before
/// the clock was set back. A directory whose name is no address will not do better soon.
Standings standElsewhere(const std::vector<ReportTask>& tasks, const std::vector<Outcome>& outcomes,
                         const Host::ReportedUntil& ledger, const Occasion& occasion, std::int64_t now) {
  Standings others;
  for (std::size_t i = 0; i < tasks.size(); ++i) {
    if (!isFailure(outcomes[i]) || !isMailboxAddress(tasks[i].mailbox.address)) continue;
    others[tasks[i].mailbox.address] = tasks[i].until - tasks[i].period;
    others[kLastTry] = now;
  }
  for (const auto& [address, standing] : ledger.mailboxes) {
    if (address != kLastTry && standing > occasion.until) others[address] = standing;
  }
  return others;
}

/// Once the mail is in the queue the report is sent, whatever becomes of the note. Returns why it could not be noted:
/// what is sent after that would be sent again at the next try.
std::string noteIfSent(ScheduledWorld& world, const ReportTask& task, Outcome& outcome) {
  std::string fault;
  try {
    if (outcome.kind == OutcomeKind::kSent) world.noteMailbox(task.mailbox, task.until);
    return "";
  } catch (const Exception& e) {
    fault = e.text();
  } catch (const std::exception& e) {
    fault = e.what();
  }
  outcome.detail += " (not noted: " + fault + ")";
  return fault;
}

/// Notes the try before anything else is done: a report that ends the process does not keep other domains from theirs
/// for long, and a ledger that takes no notes gets no report sent, which would be sent again and again.
/// The first try of all settles where the domain begins, whenever it is through. Returns the ledger after that.
Host::ReportedUntil noteTry(ScheduledWorld& world, const std::string& domain, Host::ReportedUntil ledger,
                            const Occasion& occasion, std::int64_t now) {
  if (ledger.domain != 0) {
    world.noteMailbox({domain, kLastTry}, now);
    return ledger;
  }
  ledger.domain = occasion.previous;
  ledger.mailboxes[kLastTry] = now;
  world.noteDomain(domain, ledger.domain, ledger.mailboxes);
  return ledger;
}

/// Throws Exception when something failed that concerns the whole domain; `results` has what was done before.
void reportDomain(ScheduledWorld& world, const std::string& domain, const Host::ReportedUntil& found,
                  const Occasion& occasion, std::int64_t now, std::vector<RunResult>& results) {
  const Host::ReportedUntil ledger = noteTry(world, domain, found, occasion, now);
  const auto addresses = world.mailboxes(domain);
  if (!addresses) {
    // It may be a directory that is not mounted: the domain stands where it stood, and is looked at again.
    results.push_back(ofWholeDomain(domain, noDirectory()));
    return;
  }
  // Nor does an empty one move it on, which is what is seen of a directory of its own that is not mounted.
  if (addresses->empty()) return;
  const std::vector<ReportTask> tasks = dueTasks(domain, *addresses, ledger, occasion);
  const auto done = [&](const ReportTask& task, Outcome& outcome) { return noteIfSent(world, task, outcome); };
  const std::vector<Outcome> outcomes = world.report(tasks, done);
  for (std::size_t i = 0; i < tasks.size(); ++i) results.push_back({tasks[i], outcomes[i]});
  world.noteDomain(domain, occasion.until, standElsewhere(tasks, outcomes, ledger, occasion, now));
}

}  // namespace

std::vector<RunResult> runScheduledDomain(ScheduledWorld& world, const std::string& domain, const Occasion& occasion,
                                          std::int64_t now) {
  if (occasion.until > kLastTime) return {ofWholeDomain(domain, beyondReports(occasion.until))};
  std::vector<RunResult> results;
  try {
    const std::int64_t clock = world.clock();
    const Host::ReportedUntil ledger = credible(world.reportedUntil(domain), now, clock);
    if (ledger.domain > clock + kClockTolerance) return {ofWholeDomain(domain, standsInTheFuture(ledger.domain))};
    if (!isDue(ledger, occasion, now)) return {};
    reportDomain(world, domain, ledger, occasion, now, results);
  } catch (const Exception& e) {
    results.push_back(ofWholeDomain(domain, {OutcomeKind::kFailed, e.text()}));
  } catch (const std::exception& e) {
    results.push_back(ofWholeDomain(domain, {OutcomeKind::kFailed, e.what()}));
  }
  return results;
}

}  // namespace Velmar::Tool
