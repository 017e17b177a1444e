// The variables with which a plain-text reader, who cannot click, writes the mail actions by hand.

#include "spamreport/action_links.h"
#include "velmar/spamreport.h"

namespace Velmar {

int Spamreport::makeTextBody(boost::shared_ptr<VlmCMsg::VXCustomizedEmailTemplate> mailTemplate,
                             const std::list<CachedMessage>& /*messages*/) {
  if (!mailTemplate) return -1;
  if (!emailReleaseEnabled) return 0;
  const std::string owner = recipient.asString();
  mailTemplate->set("RELEASE_CONTROL_USER", releaseAddress.asString());
  mailTemplate->set("DELETE_CONTROL_USER", deleteAddress.asString());
  mailTemplate->set("DELETE_ALL_SUBJECT",
                    deleteAllTextSubject(deleteAllToken(owner, periodEnd, periodSeconds, accessHash)));
  // "Message-Id" is literal: the reader puts the message's identifier there. Release and delete differ only in the
  // address that they are sent to, so their subjects are the same on purpose.
  const std::string subject = owner + ":Message-Id";
  mailTemplate->set("RELEASE_SUBJECT", subject);
  mailTemplate->set("DELETE_SUBJECT", subject);
  return 0;
}

}  // namespace Velmar
