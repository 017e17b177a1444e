// How far the scheduled runs have come: who may run, and up to which time each domain and mailbox was reported. Called
// by the administrator's command. It decides nothing about periods.

#include "host/common/host_config.h"  // asciiLower
#include "host/host.h"
#include "host/users_lists/state_store.h"

namespace Velmar::Host {
namespace {

constexpr char kWholeDomain[] = "";

const std::string& named(const char* what, const std::string& text) {
  if (!text.empty()) return text;
  throw Exception("StateException", 4, "ScheduleLedger", __LINE__, std::string(what) + " is empty");
}

std::string domainKey(const std::string& domain) { return asciiLower(named("domain of a scheduled run", domain)); }

std::string mailboxKey(const std::string& address) { return addressKey(named("mailbox of a scheduled run", address)); }

void note(const StateSession& state, const std::string& domain, const std::string& address, long long until) {
  state.run(
      "INSERT INTO reported (domain, address, reported_until) VALUES (:d, :a, :u) "
      "ON CONFLICT (domain, address) DO UPDATE SET reported_until = excluded.reported_until",
      {domain, address, std::to_string(until)});
}

}  // namespace

ReportedUntil reportedUntil(const std::string& domain) {
  const std::string key = domainKey(domain);
  return withState([&](StateSession& state) {
    ReportedUntil result;
    // One statement, so that no change falls between the domain and its mailboxes.
    for (const auto& [address, until] :
         state.rows<std::string, long long>("SELECT address, reported_until FROM reported WHERE domain = :d", {key})) {
      (address == kWholeDomain ? result.domain : result.mailboxes[address]) = until;
    }
    return result;
  });
}

void setMailboxReportedUntil(const std::string& domain, const std::string& address, long long until) {
  const std::string ofDomain = domainKey(domain), ofMailbox = mailboxKey(address);
  withState([&](StateSession& state) {
    StateChange change(state);
    note(state, ofDomain, ofMailbox, until);
    change.commit();
  });
}

void setDomainReportedUntil(const std::string& domain, long long until,
                            const std::map<std::string, long long>& behind) {
  const std::string ofDomain = domainKey(domain);
  withState([&](StateSession& state) {
    StateChange change(state);
    state.run("DELETE FROM reported WHERE domain = :d", {ofDomain});
    note(state, ofDomain, kWholeDomain, until);
    for (const auto& [address, standsAt] : behind) note(state, ofDomain, mailboxKey(address), standsAt);
    change.commit();
  });
}

std::unique_ptr<ScheduledRunLock> ScheduledRunLock::tryAcquire() {
  std::unique_ptr<RunHold> hold;
  try {
    hold = threadDatabase().tryHoldRuns();
  } catch (const soci::soci_error& error) {
    throw stateError(__LINE__, error.get_error_message());
  }
  return std::unique_ptr<ScheduledRunLock>(hold ? new ScheduledRunLock(std::move(hold)) : nullptr);
}

ScheduledRunLock::ScheduledRunLock(std::unique_ptr<RunHold> hold) : hold_(std::move(hold)) {}

ScheduledRunLock::~ScheduledRunLock() = default;

void ScheduledRunLock::confirm() {
  if (!hold_->isHeld()) throw stateError(__LINE__, "the right to make the scheduled reports was lost");
}

}  // namespace Velmar::Host
