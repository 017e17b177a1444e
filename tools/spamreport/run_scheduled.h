#pragma once

// The scheduled run on this host.

#include <cstdint>
#include <vector>

#include "tools/spamreport/report_runner.h"

namespace Velmar::Tool {

/// Reports what the schedule makes due, domain by domain. Returns what was tried; empty when nothing was due. Says on
/// standard error when no hour is scheduled or another scheduled run is going on; that is no failure.
///
/// now     the time to act for; 0 = now, and then a run that begins just after a scheduled hour waits for late messages
/// afresh  forget how far mailboxes were reported: only the last period is
/// Throws Exception when the configuration or the lock cannot be looked at.
std::vector<RunResult> runScheduled(std::int64_t now, bool afresh, const RunnerOptions& options);

}  // namespace Velmar::Tool
