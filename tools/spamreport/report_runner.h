#pragma once

// Makes reports through the library's exported function, on several threads.

#include <functional>
#include <string>
#include <vector>

#include "tools/spamreport/run_result.h"

namespace Velmar::Tool {

struct RunnerOptions {
  int jobs = 1;               ///< threads, at least 1
  bool showProgress = false;  ///< on standard error
  std::string label{};        ///< what the progress is said to be of; may be empty
};

/// Makes the report of each task and calls `done`, if it is not empty, after each one, from any of the threads.
/// `done` may add to the outcome and must not throw. It returns "", or why no further report shall be begun: those left
/// out fail with this reason. Returns the outcomes in the order of the tasks. One call at a time.
using TaskDone = std::function<std::string(const ReportTask& task, Outcome& outcome)>;
std::vector<Outcome> runReports(const std::vector<ReportTask>& tasks, const RunnerOptions& options,
                                const TaskDone& done = {});

}  // namespace Velmar::Tool
