// spamreport run: the exported call for named recipients, and what came of each.
//
// The call is made once a mailbox: its events then belong to this mailbox for certain, and one that breaks the call off
// does not cost those after it their reports.

#include <algorithm>
#include <iostream>

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

/// recipient  checked: it has one "@", and no "/"
bool isDeletedUser(const std::string& domain, const std::string& recipient) {
  const std::string local = recipient.substr(0, recipient.find('@'));
  return vlm_is_deleted_user_path(("/home/" + domain + "/" + local + "~" + domain).c_str()) != 0;
}

Outcome reportMailbox(const RunOptions& options, const std::string& domain, const std::string& recipient,
                      std::int64_t until, EventCollector& collector) try {
  const std::int32_t result = vlm_spamreport_report_byrcpt(domain.c_str(), recipient.c_str(), options.period, until);
  const std::vector<SeenEvent> events = collector.take();
  return outcomeOf(events, result != 0, events.empty() && isDeletedUser(domain, recipient));
} catch (const Exception& e) {
  return {OutcomeKind::kFailed, e.text()};
} catch (const std::exception& e) {
  return {OutcomeKind::kFailed, e.what()};
}

}  // namespace

int run(const RunOptions& options) {
  const std::int64_t until = parseUntil(options.until);
  const std::string domain = chooseDomain(options.domain, Host::configuredDomains());
  const std::vector<std::string> recipients = parseRecipients(domain, options.recipients);

  EventCollector collector;
  std::vector<Outcome> outcomes;
  std::vector<std::vector<std::string>> rows;
  for (const std::string& recipient : recipients) {
    const Outcome outcome = reportMailbox(options, domain, recipient, until, collector);
    outcomes.push_back(outcome);
    rows.push_back({kindText(outcome.kind), recipient, outcome.detail});
  }
  std::cout << alignedTable(rows) << summaryOf(outcomes) << "\n";
  const auto failed = [](const Outcome& outcome) { return outcome.kind == OutcomeKind::kFailed; };
  return std::any_of(outcomes.begin(), outcomes.end(), failed) ? kFailed : kGood;
}

}  // namespace Velmar::Tool
