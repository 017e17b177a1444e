// spamreport run: the exported call for some or all mailboxes, and what came of each.
//
// The call is made once a mailbox: its events then belong to this mailbox for certain, and one that breaks the call off
// does not cost those after it their reports.

#include <algorithm>
#include <atomic>
#include <iostream>
#include <system_error>
#include <thread>

#include "host/host.h"
#include "platform/users_lists.h"
#include "tools/spamreport/commands.h"
#include "tools/spamreport/event_collector.h"
#include "tools/spamreport/outcome.h"
#include "tools/spamreport/recipients.h"
#include "tools/spamreport/table.h"
#include "tools/spamreport/time_text.h"
#include "velmar/spamreport.h"

namespace Velmar::Tool {
namespace {

struct Mailbox {
  std::string domain;
  std::string address;
  std::string fault{};  ///< why it stands for a whole domain whose mailboxes could not be listed; "" = it does not
};

struct Period {
  std::int32_t seconds = 0;
  std::int64_t until = 0;
};

void checkOptions(const RunOptions& options) {
  if (options.all && !options.domain.empty()) throw WrongUse("--all and --domain cannot be used together");
  if (!options.all && options.domain.empty()) throw WrongUse("say which mailboxes: --domain DOMAIN, or --all");
  if (options.recipients && options.domain.empty()) throw WrongUse("--recipients needs --domain");
}

std::vector<Mailbox> chooseMailboxes(const RunOptions& options) {
  checkOptions(options);
  std::vector<std::string> domains = Host::configuredDomains();
  if (!options.all) domains = {chooseDomain(options.domain, domains)};
  std::vector<Mailbox> mailboxes;
  for (const std::string& domain : domains) {
    try {
      const auto addresses =
          options.recipients ? parseRecipients(domain, *options.recipients) : Host::mailboxesOfDomain(domain);
      for (const std::string& address : addresses) mailboxes.push_back({domain, address});
    } catch (const Exception& e) {
      mailboxes.push_back({domain, "*@" + domain, e.text()});  // the other domains go on
    }
  }
  return mailboxes;
}

/// mailbox  its address is checked: it has one "@", and no "/"
bool isDeletedUser(const Mailbox& mailbox) {
  const std::string local = mailbox.address.substr(0, mailbox.address.find('@'));
  return vlm_is_deleted_user_path(("/home/" + mailbox.domain + "/" + local + "~" + mailbox.domain).c_str()) != 0;
}

Outcome reportMailbox(const Mailbox& mailbox, const Period& period, EventCollector& collector) try {
  if (!mailbox.fault.empty()) return {OutcomeKind::kFailed, mailbox.fault};
  mailboxAddress(mailbox.address);  // those found on disk may have any name
  const std::int32_t result =
      vlm_spamreport_report_byrcpt(mailbox.domain.c_str(), mailbox.address.c_str(), period.seconds, period.until);
  const std::vector<SeenEvent> events = collector.take();
  return outcomeOf(events, result != 0, events.empty() && isDeletedUser(mailbox));
} catch (const Exception& e) {
  collector.take();
  return {OutcomeKind::kFailed, e.text()};
} catch (const std::exception& e) {
  collector.take();
  return {OutcomeKind::kFailed, e.what()};
}

/// Reports all mailboxes on up to `jobs` threads. Returns their outcomes in the order of the mailboxes.
std::vector<Outcome> reportAll(const std::vector<Mailbox>& mailboxes, const Period& period, int jobs) {
  EventCollector collector;
  std::vector<Outcome> outcomes(mailboxes.size());
  std::atomic<std::size_t> next{0};
  const auto work = [&] {
    for (std::size_t i = next++; i < mailboxes.size(); i = next++) {
      outcomes[i] = reportMailbox(mailboxes[i], period, collector);
    }
  };
  std::vector<std::jthread> helpers;
  try {
    for (int i = 1; i < jobs; ++i) helpers.emplace_back(work);
  } catch (const std::system_error&) {
    // The system has no more threads: those that are there do the work.
  }
  work();
  helpers.clear();
  return outcomes;
}

}  // namespace

int run(const RunOptions& options) {
  const Period period{options.period, parseUntil(options.until)};
  const std::vector<Mailbox> mailboxes = chooseMailboxes(options);
  const std::vector<Outcome> outcomes = reportAll(mailboxes, period, options.jobs);
  std::vector<std::vector<std::string>> rows;
  for (std::size_t i = 0; i < mailboxes.size(); ++i) {
    rows.push_back({kindText(outcomes[i].kind), mailboxes[i].address, outcomes[i].detail});
  }
  std::cout << alignedTable(rows) << summaryOf(outcomes) << "\n";
  const auto failed = [](const Outcome& outcome) { return outcome.kind == OutcomeKind::kFailed; };
  return std::any_of(outcomes.begin(), outcomes.end(), failed) ? kFailed : kGood;
}

}  // namespace Velmar::Tool
