// The one place that knows the log events by name. docs/log-events.md says the same for people, and a test holds the
// two together. Log lines take names, field names and texts from here; so does the administrator's command.

#include "host/logging/event_table.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "host/logging/event_text.h"

namespace Velmar::Host {
namespace {

constexpr bool kFailure = true;
constexpr bool kNoFailure = false;
constexpr bool kWarning = true;

// A text says no more than is certain when the event is emitted: "report of" and not "report sent to".
constexpr std::array kEvents{
    EventInfo{0x8000b,
              "report-failed",
              {"error", "mailbox"},
              kFailure,
              "a report could not be built or queued",
              "report for {mailbox} failed: {error}"},
    EventInfo{0x8000c,
              "web-host-left-empty",
              {"text"},
              kNoFailure,
              "links of a report have no host (cluster state)",
              "the web links of a report have no host name",
              kWarning},
    EventInfo{0x8000d,
              "group-owner-lookup-failed",
              {"mailbox"},
              kNoFailure,
              "a report went out without group owners",
              "the owners of the groups of {mailbox} could not be looked up",
              kWarning},
    EventInfo{0x8000e,
              "report-disabled",
              {"mailbox"},
              kNoFailure,
              "policy or profile switches the report off",
              "reports for {mailbox} are switched off"},
    EventInfo{0x8000f,
              "no-recipients",
              {"mailbox"},
              kNoFailure,
              "the domain's settings name nobody to send to",
              "the report for {mailbox} has no recipients"},
    EventInfo{0x80010,
              "nothing-held",
              {"mailbox"},
              kNoFailure,
              "no message was held in the period",
              "nothing to report for {mailbox} in this period"},
    EventInfo{0x80011,
              "report-built",
              {"count", "mailbox", "recipients"},
              kNoFailure,
              "a report is built and sent",
              "report of {count:message/messages} for {mailbox} to {recipients#recipient/recipients}"},
    EventInfo{0x80012,
              "no-template",
              {"operation", "template", "mailbox"},
              kFailure,
              "neither this template nor \"default\" loads",
              "no report for {mailbox}: neither template {template} nor the default one can be used"},
    EventInfo{0x80013,
              "list-links-repaired",
              {"removed", "mailbox"},
              kNoFailure,
              "one-sided address links were removed",
              "one-sided links removed from the lists of {mailbox}: {removed}"},
    EventInfo{0x80014,
              "no-address-in-path",
              {"path"},
              kFailure,
              "a mailbox directory has no address in its name",
              "no report for {path}: no address in the directory's name"},
    EventInfo{0x80015,
              "failed-report-given-up",
              {"error"},
              kFailure,
              "a failed report will not be tried again",
              "failed report given up: {error}"},
    // The queue's, beside the library's own.
    EventInfo{0x90001,
              "mail-handed-over",
              {"id", "recipients", "reply"},
              kNoFailure,
              "the mail server has taken a mail",
              "mail {id} handed over for {recipients#recipient/recipients}: {reply}"},
    EventInfo{0x90002,
              "mail-delayed",
              {"id", "recipients", "reply"},
              kNoFailure,
              "a mail will be tried again later",
              "mail {id} to {recipients} delayed: {reply}",
              kWarning},
    EventInfo{0x90003,
              "mail-refused",
              {"id", "recipients", "reply"},
              kFailure,
              "the mail server refuses a mail for good",
              "mail {id} to {recipients} refused: {reply}"},
    EventInfo{0x90004,
              "mail-given-up",
              {"id", "recipients", "reply"},
              kFailure,
              "a delayed mail has become too old",
              "mail {id} to {recipients} given up: {reply}"},
    EventInfo{0x90005,
              "mail-dropped",
              {"id", "recipients"},
              kNoFailure,
              "an administrator has removed a mail",
              "mail {id} to {recipients} removed from the queue"},
    // The quarantine's.
    EventInfo{0x90010,
              "held-message-unreadable",
              {"path", "reason"},
              kNoFailure,
              "held messages that could not be read were left out",
              "held message {path} left out, it cannot be read: {reason}",
              kWarning},
    EventInfo{0x90011,
              "more-held-messages-unreadable",
              {"count", "path"},
              kNoFailure,
              "held messages that could not be read were left out",
              "{count:more held message/more held messages} of {path} left out as unreadable",
              kWarning},
    EventInfo{0x90012,
              "held-messages-share-identifier",
              {"path", "name", "other"},
              kNoFailure,
              "two held messages cannot be told apart by actions",
              "held messages {name} and {other} of {path} share one identifier",
              kWarning},
    EventInfo{0x90020,
              "link-not-signed",
              {"reason", "mailbox"},
              kNoFailure,
              "the preferences link of a report does not log in",
              "the preferences link of {mailbox} does not log in, it cannot be signed: {reason}",
              kWarning},
};

constexpr bool ascending() {
  for (std::size_t i = 1; i < kEvents.size(); ++i) {
    if (kEvents[i - 1].code >= kEvents[i].code) return false;
  }
  return true;
}
static_assert(ascending(), "findEvent searches by halves");

constexpr bool namesDiffer() {
  for (std::size_t i = 0; i < kEvents.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      if (std::string_view(kEvents[i].name) == kEvents[j].name) return false;
    }
  }
  return true;
}
static_assert(namesDiffer(), "a name stands for one event");

static_assert(std::all_of(kEvents.begin(), kEvents.end(), textNamesFields), "a text's placeholders name fields");

}  // namespace

std::span<const EventInfo> eventTable() noexcept { return kEvents; }

const EventInfo* findEvent(unsigned int code) noexcept {
  const auto* row = std::lower_bound(kEvents.begin(), kEvents.end(), code,
                                     [](const EventInfo& event, unsigned int wanted) { return event.code < wanted; });
  return row != kEvents.end() && row->code == code ? row : nullptr;
}

}  // namespace Velmar::Host
