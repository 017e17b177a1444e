// Who receives a report: the mailbox or the addresses it stands for, the owners of its groups, and further addresses.

#include "platform/logging.h"
#include "platform/users_lists.h"
#include "spamreport/log_events.h"
#include "velmar/spamreport.h"

namespace Velmar {
namespace {

struct OwnerLookup {
  std::string user;
  int ldapProfile;
  bool option;
};

/// Adds the group owners; returns whether there was one. A failing lookup costs only the owners not yet added.
bool addGroupOwners(const OwnerLookup& lookup, std::set<EmailAddress>& recipients) {
  bool found = false;
  try {
    const std::set<std::string> owners =
        QRL_LdapUserManager::Instance().getGroupOwnerAddressesForUser(lookup.user, lookup.ldapProfile, lookup.option);
    for (const std::string& text : owners) {
      const EmailAddress owner = EmailAddress::rfc5322Parse(text, true);
      if (owner.isEmptyAddress()) continue;
      recipients.insert(owner);
      found = true;
    }
  } catch (const Exception&) {
    Logger::instance(false).log(LogEvent::kGroupOwnerLookupFailed, 0, "%s", lookup.user.c_str());
  }
  return found;
}

std::string joined(const std::set<EmailAddress>& addresses) {
  std::string text;
  for (const EmailAddress& address : addresses) {
    if (!text.empty()) text += ',';
    text += address.asString();
  }
  return text;
}

}  // namespace

std::string Spamreport::getReportRecipients() {
  std::set<EmailAddress> recipients;
  bool ownerFound = false;
  if (sendToGroupOwner) {
    ownerFound = addGroupOwners({recipient.asString(), groupOwnerLdapProfile, groupOwnerOption}, recipients);
  }
  if (sendToRecipient && !(ownerFound && groupOwnerOnly)) {
    // The set stands for the mailbox: the mailbox's own address is then among the recipients only if it is in the set.
    if (secondaryAddresses.empty()) {
      recipients.insert(recipient);
    } else {
      recipients.insert(secondaryAddresses.begin(), secondaryAddresses.end());
    }
  }
  if (sendToOthers && !otherRecipients.empty()) {
    recipients.merge(EmailAddress::rfc5322ParseSet(otherRecipients, true, false));
  }
  return joined(recipients);
}

}  // namespace Velmar
