// Writes down what a run did. Called once, at its end.

#include "tools/spamreport/run_result.h"

#include <algorithm>
#include <utility>

#include "tools/spamreport/json.h"
#include "tools/spamreport/table.h"

namespace Velmar::Tool {
namespace {

std::vector<Outcome> outcomesOf(const std::vector<RunResult>& results) {
  std::vector<Outcome> outcomes;
  outcomes.reserve(results.size());
  for (const RunResult& result : results) outcomes.push_back(result.outcome);
  return outcomes;
}

/// 0 stands for what the library chooses, which nobody but the report knows.
std::string numberOrNull(std::int64_t number) { return number == 0 ? "null" : std::to_string(number); }

std::string mailboxJson(const RunResult& result) {
  const auto& [task, outcome] = result;
  return "{\"address\": " + jsonText(task.mailbox.address) + ", \"domain\": " + jsonText(task.mailbox.domain) +
         ", \"period\": " + numberOrNull(task.period) + ", \"until\": " + numberOrNull(task.until) +
         ", \"outcome\": " + jsonText(kindKey(outcome.kind)) + ", \"detail\": " + jsonText(outcome.detail) + "}";
}

std::string countsJson(const std::vector<Outcome>& outcomes) {
  std::string text;
  for (const OutcomeKind kind : allKinds()) {
    text += (text.empty() ? "" : ", ") + jsonText(kindKey(kind)) + ": " + std::to_string(countOf(outcomes, kind));
  }
  return "{" + text + "}";
}

std::string queueJson(const std::optional<Host::FlushResult>& queue) {
  if (!queue) return "null";
  const std::pair<const char*, std::size_t> counts[] = {
      {"handed_on", queue->handedOn},    {"delayed", queue->delayed}, {"failed", queue->failed},
      {"unreadable", queue->unreadable}, {"not_due", queue->notDue},  {"held", queue->held},
  };
  std::string text;
  for (const auto& [key, count] : counts) {
    text += (text.empty() ? "" : ", ") + jsonText(key) + ": " + std::to_string(count);
  }
  return "{" + text + "}";
}

}  // namespace

RunResult ofWholeDomain(const std::string& domain, Outcome outcome) {
  return {{{domain, "*@" + domain}, 0, 0}, std::move(outcome)};
}

Outcome noDirectory() { return {OutcomeKind::kNoDomain, "it has no directory below /home, and so no mailboxes"}; }

std::string resultTable(const std::vector<RunResult>& results, bool onlyTrouble) {
  std::vector<std::vector<std::string>> rows;
  for (const auto& [task, outcome] : results) {
    if (onlyTrouble && !isFailure(outcome) && outcome.kind != OutcomeKind::kNoDomain) continue;
    rows.push_back({kindText(outcome.kind), task.mailbox.address, outcome.detail});
  }
  return alignedTable(rows) + summaryOf(outcomesOf(results)) + "\n";
}

std::string resultJson(const std::vector<RunResult>& results, const std::optional<Host::FlushResult>& queue) {
  std::string text = "{\"mailboxes\": [";
  const char* separator = "\n";
  for (const RunResult& result : results) {
    text += separator + mailboxJson(result);
    separator = ",\n";
  }
  return text + "],\n\"counts\": " + countsJson(outcomesOf(results)) + ",\n\"queue\": " + queueJson(queue) + "}\n";
}

bool anyFailure(const std::vector<RunResult>& results) {
  return std::any_of(results.begin(), results.end(), [](const RunResult& result) { return isFailure(result.outcome); });
}

bool anySent(const std::vector<RunResult>& results) {
  const auto sent = [](const RunResult& result) { return result.outcome.kind == OutcomeKind::kSent; };
  return std::any_of(results.begin(), results.end(), sent);
}

}  // namespace Velmar::Tool
