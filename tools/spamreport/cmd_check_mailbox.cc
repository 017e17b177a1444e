// spamreport check --mailbox: says step by step whether a mailbox gets a report, in the order in which a run decides.
// The decisions are the library's: a report is constructed and asked, not delivered. No list is repaired, nothing is
// written, and nothing is logged.

#include <iostream>
#include <limits>
#include <optional>
#include <set>

#include "host/host.h"
#include "platform/antispam_profiles.h"
#include "platform/users_lists.h"
#include "tools/spamreport/checks.h"
#include "tools/spamreport/commands.h"
#include "tools/spamreport/mailbox_facts.h"
#include "tools/spamreport/names.h"
#include "tools/spamreport/table.h"
#include "tools/spamreport/time_text.h"
#include "velmar/spamreport.h"

namespace Velmar::Tool {
namespace {

constexpr int kQuarantine = 10;
constexpr int kMostCounted = 100'000;   // of the messages of one mailbox
constexpr std::size_t kShortestId = 3;  // a report passes over messages with a shorter one

/// A report that shows what it found out.
class OpenReport : public Spamreport {
 public:
  OpenReport(const std::string& address, const Links& links)
      : Spamreport(RefRecipientPolicy(false), address, joined(links.confirmed, ","), 0, 0) {}

  using Spamreport::deleteAddress;
  using Spamreport::emailReleaseEnabled;
  using Spamreport::groupOwnerLdapProfile;
  using Spamreport::groupOwnerOnly;
  using Spamreport::groupOwnerOption;
  using Spamreport::language;
  using Spamreport::otherRecipients;
  using Spamreport::periodEnd;
  using Spamreport::periodSeconds;
  using Spamreport::policy;
  using Spamreport::quarantineReportEnabled;
  using Spamreport::recipient;
  using Spamreport::releaseAddress;
  using Spamreport::sendToGroupOwner;
  using Spamreport::sendToOthers;
  using Spamreport::sendToRecipient;
  using Spamreport::templateName;
  using Spamreport::useDomainTemplate;
  using Spamreport::webBaseUrl;
  using Spamreport::webReleaseEnabled;
};

/// What has been said so far.
class Explanation {
 public:
  void good(const char* subject, const std::string& text) { rows_.push_back({"good", subject, text}); }
  void note(const char* subject, const std::string& text) { rows_.push_back({"note", subject, text}); }
  void bad(const char* subject, const std::string& text) {
    rows_.push_back({"BAD", subject, text});
    broken_ = true;
  }

  ExitCode print(const std::string& verdict) const {
    std::cout << alignedTable(rows_) << "Verdict: " << Host::printable(verdict) << "\n";
    return broken_ ? kFailed : kGood;
  }

 private:
  std::vector<std::vector<std::string>> rows_;
  bool broken_ = false;
};

/// The verdict, once a step has settled it.
using Verdict = std::optional<std::string>;

Verdict explainDirectory(const std::string& address, Explanation& said) {
  const std::string directory = directoryOf(address);
  if (isDeletedUser(address)) {
    said.note("mailbox", directory + " carries the mark of a deleted user");
    return "no report: the user is deleted";
  }
  if (!Host::mailboxExists(address)) {
    said.bad("mailbox", directory + " does not exist");
    return "no report: there is no such mailbox";
  }
  said.good("mailbox", directory);
  return {};
}

void explainPolicies(const std::string& address, Explanation& said) {
  for (const Host::PolicyMatch& match : Host::policiesMatching(address)) {
    const std::string policy = "number " + std::to_string(match.number) + ", \"" + match.pattern + "\"";
    if (match.enabled && match.takesPart) return said.good("policy", policy + ", decides");
    said.good("policy", policy + (match.enabled ? ", takes no part in reports: the next one"
                                                : ", is switched off: the next one"));
  }
  said.note("policy", "none that takes part in reports matches");
}

std::string waysText(const OpenReport& report) {
  if (report.webReleaseEnabled && report.emailReleaseEnabled) return "actions on the web and by mail";
  if (report.webReleaseEnabled) return "actions on the web";
  return report.emailReleaseEnabled ? "actions by mail" : "no actions";
}

Verdict explainProfile(const OpenReport& report, Explanation& said) {
  const RecipientPolicy* policy = report.policy.get();
  if (!policy) return "no report: no policy wants one";
  if (policy->record.antispamProfile == 0) {
    said.note("profile", "the policy names none");
    return "no report: disabled, for want of an anti-spam profile";
  }
  const std::string profile = "number " + std::to_string(policy->record.antispamProfile);
  if (!report.quarantineReportEnabled) {
    said.note("profile", profile + ": no reports");
    return "no report: disabled by the anti-spam profile";
  }
  said.good("profile", profile + ": reports, " + waysText(report));
  return {};
}

void explainLanguage(const OpenReport& report, Explanation& said) {
  if (Host::isKnownLanguage(report.language)) return said.good("language", report.language);
  said.note("language", "\"" + report.language + "\" is unknown, dates are in English");
}

/// Asks the directory itself: of a report one hears only that it failed.
void explainOwners(const OpenReport& report, Explanation& said) try {
  const std::set<std::string> owners = QRL_LdapUserManager::Instance().getGroupOwnerAddressesForUser(
      report.recipient.asString(), report.groupOwnerLdapProfile, report.groupOwnerOption);
  const std::string names = joined({owners.begin(), owners.end()}, ", ");
  said.good("group owners",
            owners.empty() ? "none" : names + (report.groupOwnerOnly ? ", instead of the mailbox" : ""));
} catch (const Exception& e) {
  said.bad("group owners", e.text() + " (reports go out without them)");
}

void explainLinks(const OpenReport& report, const Links& links, Explanation& said) {
  if (!report.sendToRecipient) {
    said.good("itself", "its domain sends no reports to mailboxes themselves");
  } else if (!links.confirmed.empty()) {
    said.good("itself", "stands for " + joined(links.confirmed, ", ") + ": reports go there");
  }
  if (!links.oneSided.empty()) {
    said.note("itself", "a run removes the one-sided link to " + joined(links.oneSided, ", "));
  }
}

Verdict explainRecipients(OpenReport& report, const Links& links, Explanation& said) {
  explainLinks(report, links, said);
  if (report.sendToGroupOwner) explainOwners(report, said);
  if (report.sendToOthers) said.good("others", report.otherRecipients.empty() ? "none" : report.otherRecipients);
  const std::string recipients = report.getReportRecipients();
  if (recipients.empty()) {
    said.note("recipients", "none");
    return "no report: it has no recipients";
  }
  said.good("recipients", recipients);
  return {};
}

bool carries(std::uint64_t flags, std::uint64_t mark) {
  VXMessageFlags wanted;
  wanted.mask = mark;
  wanted.used = 1;
  wanted.init();
  return (flags & wanted.mask) == wanted.mask;
}

/// The messages of a quarantine of whatever age.
struct Held {
  int reportable = 0;
  int settled = 0;    ///< released or deleted
  int withoutId = 0;  ///< no Message-Id to act on
};

/// Nothing when there is no quarantine.
std::optional<Held> countHeld(const std::string& address) {
  const auto quarantine =
      VXMailBoxRef::create(VXMailUserId(address).fname(kQuarantine), MAILBOX_OPEN_READ, VXMailBoxRef::MAILBOX_OP_NONE);
  if (!quarantine) return std::nullopt;
  const VXMScopeRef all(VXMScopeRef::TIME_RANGE, 0, std::numeric_limits<int>::max(), kMostCounted);
  quarantine->setScope(all);
  Held held;
  for (VXMessageRef message = quarantine->next(); message; message = quarantine->next()) {
    const std::uint64_t flags = message->flags();
    if (carries(flags, VXMessageFlags::RELEASED) || carries(flags, VXMessageFlags::DELETED)) {
      ++held.settled;
    } else {
      ++(CachedMessage(message).messageId.size() < kShortestId ? held.withoutId : held.reportable);
    }
  }
  return held;
}

/// Returns how many messages a report of the default period would list.
std::size_t explainQuarantine(const OpenReport& report, const std::string& address, Explanation& said) {
  const std::optional<Held> held = countHeld(address);
  if (!held) {
    said.note("quarantine", "there is none: nothing was ever held");
    return 0;
  }
  CachedMailbox mailbox(VXMailUserId(address).fname(kQuarantine));
  mailbox.search(report.periodSeconds, report.periodEnd);
  const std::size_t due = mailbox.getMessages().size();
  std::string text = std::to_string(due) + " since " + localTimeText(report.periodEnd - report.periodSeconds) +
                     " (the default period), " + std::to_string(held->reportable) + " of any age";
  if (held->settled > 0) text += "; " + std::to_string(held->settled) + " released or deleted";
  if (held->withoutId > 0) text += "; " + std::to_string(held->withoutId) + " without a Message-Id, never reported";
  said.good("quarantine", text);
  return due;
}

/// A template that cannot be used gives way to the default.
void explainTemplate(const OpenReport& report, const std::string& domain, Explanation& said) {
  const std::string owner = report.useDomainTemplate ? templateDomain(domain) : "";
  const std::string name = "\"" + report.templateName + "\"" + (owner.empty() ? "" : " of " + owner);
  const std::string fault = Host::templateFault(report.templateName, owner);
  if (fault.empty()) return said.good("template", name);
  said.bad("template", name + ": " + fault);
  const std::string fallback = Host::templateFault("default", "");
  if (fallback.empty()) return said.good("template", "\"default\" stands in");
  said.bad("template", "\"default\": " + fallback);
}

void explainActions(const OpenReport& report, Explanation& said) {
  if (report.webReleaseEnabled) said.good("links", "point to " + report.webBaseUrl);
  if (!report.emailReleaseEnabled) return;
  said.good("mail actions", "go to " + report.releaseAddress.asString() + " and " + report.deleteAddress.asString());
}

std::string explainReport(const std::string& address, Explanation& said) {
  const std::string domain = address.substr(address.find('@') + 1);
  said.good("domain", domain + " is configured");
  explainPolicies(address, said);
  const Links links = linksOf(address);
  OpenReport report(address, links);
  if (const Verdict no = explainProfile(report, said)) return *no;
  explainLanguage(report, said);
  if (const Verdict no = explainRecipients(report, links, said)) return *no;
  const std::size_t due = explainQuarantine(report, address, said);
  explainTemplate(report, domain, said);
  explainActions(report, said);
  if (due == 0) return "no report now: nothing is held in the period";
  return "a run now would report " + counted(due, "message", "messages");
}

}  // namespace

int explainMailbox(const std::string& text) {
  const std::string address = configuredAddress(text);
  Host::setPreview({});
  Explanation said;
  said.good("address", address);
  std::string verdict;
  try {
    const Verdict no = explainDirectory(address, said);
    verdict = no ? *no : explainReport(address, said);
  } catch (const Exception& e) {
    said.bad("report", e.text());
    verdict = "no report: a run would fail";
  }
  return said.print(verdict);
}

}  // namespace Velmar::Tool
