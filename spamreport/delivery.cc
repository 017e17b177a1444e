// The last step of a report: decides whether one is due, searches the quarantine, fills the template, builds the mail
// and hands it to the queue.
//
// A report that is not due ends with a log event; failures of the platform leave as exceptions, after every local
// object is gone.

#include <cstddef>
#include <ctime>

#include "platform/logging.h"
#include "platform/text_network.h"
#include "platform/users_lists.h"
#include "spamreport/images/threaded_image_var_callback.h"
#include "spamreport/log_events.h"
#include "velmar/spamreport.h"

namespace Velmar {
namespace {

using VlmCMsg::VXCustomizedEmailTemplate;
using TemplateHandle = boost::shared_ptr<VXCustomizedEmailTemplate>;

constexpr int kReportTemplateType = 38;
constexpr int kQuarantine = 10;
constexpr std::uint32_t kTraceMask = 0x80008;

// Marks of the two traces, stable across versions.
constexpr int kLineDomainTemplate = 953;
constexpr int kLineSystemTemplate = 956;

void logMailbox(unsigned int event, const std::string& mailbox) {
  Logger::instance(false).log(event, 0, "%s", mailbox.c_str());
}

void traceDomain(int line, const std::string& domain) {
  if ((nCfg_debug_zone()->debugMask & kTraceMask) != kTraceMask) return;
  basepp::dbg::debug("SpamreportGenerator", line, "deliver", 0, "%s", ("domain=" + domain).c_str());
}

/// The domain whose templates are used for mailboxes of `domain`: its main domain where it has one.
std::string templateDomain(const std::string& domain) {
  if (domain == "system") return domain;
  const char* main = cfg_get_main_domain_name(domain.c_str(), 0);
  return main && *main ? main : domain;
}

bool usable(const TemplateHandle& mailTemplate) { return mailTemplate && mailTemplate->good(); }

}  // namespace

TemplateHandle Spamreport::chooseTemplate() const {
  TemplateHandle chosen;
  if (useDomainTemplate) {
    const std::string domain = templateDomain(recipient.domain());
    traceDomain(kLineDomainTemplate, domain);
    chosen = VXCustomizedEmailTemplate::create(kReportTemplateType, templateName, domain, 0);
  } else {
    traceDomain(kLineSystemTemplate, "system");
    chosen = VXCustomizedEmailTemplate::create(kReportTemplateType, templateName, "", 0);
  }
  if (!usable(chosen)) chosen = VXCustomizedEmailTemplate::create(kReportTemplateType, "default", "", 0);
  return chosen;
}

void Spamreport::deliver() {
  const std::string mailbox = recipient.asString();
  if (!quarantineReportEnabled) return logMailbox(LogEvent::kReportDisabled, mailbox);

  const std::string recipients = getReportRecipients();
  if (recipients.empty()) return logMailbox(LogEvent::kNoRecipients, mailbox);

  const VXMailUserId user(recipient.address());
  CachedMailbox quarantine(user.fname(kQuarantine));
  quarantine.search(periodSeconds, periodEnd);
  const std::list<CachedMessage>& messages = quarantine.getMessages();
  if (messages.empty()) return logMailbox(LogEvent::kNothingHeld, mailbox);
  Logger::instance(false).log(LogEvent::kReportBuilt, 0, "%zd\x01%s\x01%s",
                              static_cast<std::ptrdiff_t>(messages.size()), mailbox.c_str(), recipients.c_str());

  const TemplateHandle mailTemplate = chooseTemplate();
  if (!usable(mailTemplate)) {
    // No exception on purpose: a missing template would be missing at a retry as well.
    MigLogger::instance(false).log(LogEvent::kNoTemplate, 0, "%s\x01%s", "deliver", templateName.c_str());
    return;
  }
  mailTemplate->fallon(this);
  makeHeader(mailTemplate, messages);
  makeTextBody(mailTemplate, messages);

  VXMPopulateEmail mail;
  mail.suppress_dsn(true);
  const ThreadedImageVarCallback images(&mail);  // images of the HTML body go to this mail from here on
  makeBodies(mailTemplate, messages, mailbox, mail);
  compose(mailTemplate, mail);
  mail.send_queued_not_scanned(recipients);
}

void Spamreport::compose(const TemplateHandle& mailTemplate, VXMPopulateEmail& mail) const {
  mail.header_to(stringToValidEmailAddressRfc822HeaderValue(recipient.asString()));
  mail.header_from(mailTemplate->headerFromRFC2047());
  mail.header_subject(mailTemplate->subjectRFC2047());
  mail.sender(mailTemplate->envFrom());
  std::tm end{};
  localtime_r(&periodEnd, &end);  // the identifier carries the period's end, not the time of sending
  mail.header_message_id(LW::createHeaderMessageIdValue(releaseAddress.domain(), end));
  mail.alternative_plain(mailTemplate->textbody(), "utf-8");
  mail.alternative_html(mailTemplate->htmlbody(), "utf-8");
}

}  // namespace Velmar
