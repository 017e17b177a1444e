// spamreport queue: what waits in the spool, what has failed, and what administrators do about it.

#include <ctime>
#include <functional>
#include <iostream>

#include "host/host.h"
#include "platform/types.h"
#include "tools/spamreport/commands.h"
#include "tools/spamreport/names.h"
#include "tools/spamreport/queue_text.h"
#include "tools/spamreport/table.h"
#include "tools/spamreport/time_text.h"

namespace Velmar::Tool {
namespace {

using Host::SpoolState;

constexpr std::size_t kMostNames = 10;  // of a mail: the longest makes the column as wide for all others

std::string namesOf(const std::vector<std::string>& names) {
  if (names.size() <= kMostNames) return joined(names, ", ");
  const std::vector<std::string> shown(names.begin(), names.begin() + kMostNames);
  return joined(shown, ", ") + " and " + std::to_string(names.size() - kMostNames) + " more";
}

const char* stateName(SpoolState state) {
  switch (state) {
    case SpoolState::kWaiting:
      return "waiting";
    case SpoolState::kFailed:
      return "FAILED";
    case SpoolState::kUnreadable:
      break;
  }
  return "UNREADABLE";
}

std::string nextText(const Host::SpoolEntry& entry, std::int64_t now) {
  if (entry.state != SpoolState::kWaiting) return "-";
  return entry.nextAttempt <= now ? "due" : "in " + durationText(entry.nextAttempt - now);
}

std::vector<std::string> rowOf(const Host::SpoolEntry& entry, std::int64_t now) {
  if (entry.state == SpoolState::kUnreadable) {
    return {entry.id, stateName(entry.state), "-", "-", "-", "-", "-", "-", entry.lastReply};
  }
  return {entry.id,
          stateName(entry.state),
          durationText(now - entry.queuedAt),
          std::to_string(entry.attempts),
          nextText(entry, now),
          std::to_string(entry.size),
          entry.sender.empty() ? "<>" : entry.sender,
          namesOf(entry.recipients),
          entry.lastReply};
}

/// Says that the queue is held, if it is.
void printHold(std::int64_t now) {
  const Host::QueueHold hold = Host::queueHold();
  if (hold.failures == 0) return;
  std::cout << "The mail server cannot be used (" << Host::printable(hold.reason) << "). It is tried again "
            << (hold.until <= now ? "with the next flush" : "in " + durationText(hold.until - now)) << ".\n";
}

/// Does something to one mail. A failure is printed and must not keep the others from their turn.
bool tryOne(const std::function<void()>& action) try {
  action();
  return true;
} catch (const Exception& e) {
  std::cerr << "spamreport: " << Host::printable(e.text()) << "\n";
  return false;
}

int retryAll() {
  std::size_t failures = 0;
  for (const Host::SpoolEntry& entry : Host::listSpool()) {
    failures += !tryOne([&] { Host::retryQueued(entry.id); });
  }
  return failures == 0 ? kGood : kFailed;
}

void printProblems(const std::vector<Host::FlushProblem>& problems) {
  std::vector<std::vector<std::string>> rows;
  for (const Host::FlushProblem& problem : problems) {
    const char* what = problem.state == SpoolState::kWaiting ? "delayed" : stateName(problem.state);
    rows.push_back({what, problem.id, namesOf(problem.recipients), problem.reply});
  }
  if (!rows.empty()) std::cout << alignedTable(rows);
}

}  // namespace

int listQueue() {
  const std::int64_t now = std::time(nullptr);
  std::vector<std::vector<std::string>> rows{
      {"ID", "STATE", "AGE", "ATTEMPTS", "NEXT", "BYTES", "SENDER", "RECIPIENTS", "REPLY"}};
  for (const Host::SpoolEntry& entry : Host::listSpool()) rows.push_back(rowOf(entry, now));
  std::cout << (rows.size() > 1 ? alignedTable(rows) : "The queue is empty.\n");
  printHold(now);
  return kGood;
}

int showQueued(const std::string& id) {
  std::cout << Host::readSpool(id).content;
  return kGood;
}

int retryQueue(const std::string& id, bool all) {
  if (all == !id.empty()) throw WrongUse("either an ID or --all must be given");
  if (all) return retryAll();
  Host::retryQueued(id);
  return kGood;
}

int dropFromQueue(const std::string& id) {
  Host::dropQueued(id);
  return kGood;
}

int flushQueue(bool evenIfNotDue) {
  const Host::FlushResult result = Host::flushQueue({evenIfNotDue});
  if (!result.enabled) {
    std::cout << "Nothing is handed on: the configuration leaves mails in the spool (kind in [queue]).\n";
    return kGood;
  }
  printProblems(result.problems);
  std::cout << flushSummary(result) << "\n";
  printHold(std::time(nullptr));
  return result.problems.empty() && result.held == 0 ? kGood : kFailed;
}

}  // namespace Velmar::Tool
