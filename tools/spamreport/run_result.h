#pragma once

// What a run was asked for and what came of it, as people and as programs read it.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/host.h"
#include "tools/spamreport/outcome.h"
#include "tools/spamreport/recipients.h"

namespace Velmar::Tool {

/// The report of one mailbox, as the library is asked for it.
struct ReportTask {
  Mailbox mailbox;
  std::int32_t period = 0;  ///< seconds; 0 = the library chooses
  std::int64_t until = 0;   ///< seconds since the epoch; 0 = now
};

struct RunResult {
  ReportTask task;
  Outcome outcome;
};

/// A result that stands for all mailboxes of a domain where they could not be listed; its address is "*@DOMAIN".
RunResult ofWholeDomain(const std::string& domain, Outcome outcome);

/// The outcome of a domain that should have a directory for mailboxes and has none.
Outcome noDirectory();

/// One line a mailbox and one that counts them.
/// onlyTrouble  lines only for what failed and for domains without a directory
std::string resultTable(const std::vector<RunResult>& results, bool onlyTrouble);

/// One JSON object with a line feed at its end; spamreport(1) describes its members.
/// queue  what handing on did; nothing when it was not tried
std::string resultJson(const std::vector<RunResult>& results, const std::optional<Host::FlushResult>& queue);

/// Whether a report came into the queue.
bool anySent(const std::vector<RunResult>& results);

bool anyFailure(const std::vector<RunResult>& results);

}  // namespace Velmar::Tool
