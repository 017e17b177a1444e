// Turns the events of one report into a line for the administrator.

#include "tools/spamreport/outcome.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "host/host.h"

namespace Velmar::Tool {
namespace {

struct KindRow {
  OutcomeKind kind;
  const char* text;
  const char* key;
  const char* counted;  ///< as the summary counts it
  const char* event;    ///< name of the event that decides for it; null = none
};

constexpr std::array kKinds{
    KindRow{OutcomeKind::kSent, "sent", "sent", "sent", "report-built"},
    KindRow{OutcomeKind::kNothingHeld, "nothing held", "nothing_held", "with nothing held", "nothing-held"},
    KindRow{OutcomeKind::kDisabled, "disabled", "disabled", "disabled", "report-disabled"},
    KindRow{OutcomeKind::kNoRecipients, "no recipients", "no_recipients", "without recipients", "no-recipients"},
    KindRow{OutcomeKind::kDeletedUser, "deleted user", "deleted_user", "of deleted users", nullptr},
    KindRow{OutcomeKind::kNoMailbox, "NO MAILBOX", "no_mailbox", "nonexistent", nullptr},
    KindRow{OutcomeKind::kNoDomain, "no domain", "no_domain", "without a domain directory", nullptr},
    KindRow{OutcomeKind::kFailed, "FAILED", "failed", "failed", nullptr},
};

constexpr bool inEnumOrder() {
  for (std::size_t i = 0; i < kKinds.size(); ++i) {
    if (static_cast<std::size_t>(kKinds[i].kind) != i) return false;
  }
  return true;
}
static_assert(inEnumOrder());

const Host::EventInfo* infoOf(const SeenEvent& event) {
  for (const Host::EventInfo& row : Host::eventTable()) {
    if (row.code == event.code) return &row;
  }
  return nullptr;
}

bool tellsFailure(const SeenEvent& event) {
  const Host::EventInfo* info = infoOf(event);
  return info && info->failure;
}

const KindRow* kindDecidedBy(const SeenEvent& event) {
  const auto decides = [&](const KindRow& row) { return row.event && event.name == row.event; };
  const auto* row = std::find_if(kKinds.begin(), kKinds.end(), decides);
  return row != kKinds.end() ? row : nullptr;
}

std::string fieldOf(const SeenEvent& event, std::size_t index) {
  return index < event.fields.size() ? event.fields[index] : "";
}

/// What failed: the event's text, or its meaning where the text alone does not say it.
std::string failureText(const SeenEvent& event) {
  if (event.name == "no-template") {
    return "neither the template \"" + fieldOf(event, 1) + "\" nor \"default\" can be used";
  }
  if (event.name == "no-address-in-path") return "no address in the path " + fieldOf(event, 0);
  return fieldOf(event, 0);
}

std::string sentText(const SeenEvent& built) {
  const std::string count = fieldOf(built, 0);
  std::string recipients;
  for (const char c : fieldOf(built, 2)) recipients += c == ',' ? ", " : std::string(1, c);
  return count + (count == "1" ? " message" : " messages") + " to " + recipients;
}

/// The meanings of the events that decide nothing, each once, in brackets.
std::string remarks(const std::vector<SeenEvent>& events) {
  std::string text;
  for (const SeenEvent& event : events) {
    const Host::EventInfo* info = infoOf(event);
    const bool isNew = info && !info->failure && !kindDecidedBy(event) && text.find(info->meaning) == std::string::npos;
    if (isNew) text += (text.empty() ? "" : "; ") + std::string(info->meaning);
  }
  return text.empty() ? "" : "(" + text + ")";
}

std::string withRemarks(std::string detail, const std::vector<SeenEvent>& events) {
  const std::string remark = remarks(events);
  if (!detail.empty() && !remark.empty()) detail += " ";
  return detail + remark;
}

}  // namespace

Outcome outcomeOf(const std::vector<SeenEvent>& events, bool brokenOff, bool deletedUser) {
  const auto failure = std::find_if(events.begin(), events.end(), tellsFailure);
  if (failure != events.end()) return {OutcomeKind::kFailed, withRemarks(failureText(*failure), events)};
  if (brokenOff) return {OutcomeKind::kFailed, withRemarks("the run was broken off", events)};
  for (const SeenEvent& event : events) {
    const KindRow* row = kindDecidedBy(event);
    if (!row) continue;
    return {row->kind, withRemarks(row->kind == OutcomeKind::kSent ? sentText(event) : "", events)};
  }
  if (deletedUser) return {OutcomeKind::kDeletedUser, ""};
  return {OutcomeKind::kFailed, withRemarks("the report stopped without a log event", events)};
}

const char* kindText(OutcomeKind kind) { return kKinds[static_cast<std::size_t>(kind)].text; }

const char* kindKey(OutcomeKind kind) { return kKinds[static_cast<std::size_t>(kind)].key; }

std::vector<OutcomeKind> allKinds() {
  std::vector<OutcomeKind> kinds;
  kinds.reserve(std::size(kKinds));
  for (const KindRow& row : kKinds) kinds.push_back(row.kind);
  return kinds;
}

bool isFailure(const Outcome& outcome) {
  return outcome.kind == OutcomeKind::kFailed || outcome.kind == OutcomeKind::kNoMailbox;
}

std::size_t countOf(const std::vector<Outcome>& outcomes, OutcomeKind kind) {
  const auto ofKind = [&](const Outcome& outcome) { return outcome.kind == kind; };
  return static_cast<std::size_t>(std::count_if(outcomes.begin(), outcomes.end(), ofKind));
}

std::string summaryOf(const std::vector<Outcome>& outcomes) {
  std::string text = std::to_string(outcomes.size()) + (outcomes.size() == 1 ? " mailbox" : " mailboxes");
  const char* separator = ": ";
  for (const KindRow& row : kKinds) {
    const std::size_t count = countOf(outcomes, row.kind);
    if (count == 0) continue;
    text += separator + std::to_string(count) + " " + row.counted;
    separator = ", ";
  }
  return text;
}

}  // namespace Velmar::Tool
