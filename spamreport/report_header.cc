// The variables of a report as a whole: release address, number of messages, period. First step of the content.

#include "spamreport/date_text.h"
#include "spamreport/report_period.h"
#include "velmar/spamreport.h"

namespace Velmar {

int Spamreport::makeHeader(boost::shared_ptr<VlmCMsg::VXCustomizedEmailTemplate> mailTemplate,
                           const std::list<CachedMessage>& messages) {
  if (!mailTemplate) return -1;
  mailTemplate->set("RELEASE_CONTROL_USER", releaseAddress.asString());  // its status does not count
  const int count = mailTemplate->set("QUARANTINE_MESSAGES_COUNT", std::to_string(messages.size()));
  const std::time_t start = wrappingDifference(periodEnd, periodSeconds);
  const int from = mailTemplate->set("QUARANTINE_PERIOD_FROM", dateText(start, language));
  const int to = mailTemplate->set("QUARANTINE_PERIOD_TO", dateText(periodEnd, language));
  return count | from | to;
}

}  // namespace Velmar
