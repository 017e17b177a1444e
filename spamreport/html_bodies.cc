// Fills the table of held messages and the report-wide actions of the HTML body.
//
// Which sections are shown, how often, and what each variable holds is decided here; how it looks is the template's
// business. Runs on the thread that holds the image binding.

#include <ctime>

#include "spamreport/action_links.h"
#include "spamreport/configuration_sources.h"
#include "spamreport/date_text.h"
#include "velmar/spamreport.h"

namespace Velmar {
namespace {

using TemplateHandle = boost::shared_ptr<VlmCMsg::VXCustomizedEmailTemplate>;

/// A section that only switches on the text it encloses.
void emptySection(const TemplateHandle& mailTemplate, const char* name) {
  mailTemplate->beginSection(name);
  mailTemplate->endSection();
}

void setRowIcons(const TemplateHandle& mailTemplate) {
  mailTemplate->set("ICON_RELEASE", "Release");
  mailTemplate->set("ICON_DELETE", "Delete");
}

void setReportIcons(const TemplateHandle& mailTemplate) {
  mailTemplate->set("ICON_DELALL", "Delete All");
  setRowIcons(mailTemplate);
}

/// What every row of one report has in common.
struct ReportLinks {
  std::string owner;
  std::string releaseAddress;
  std::string deleteAddress;
  std::string baseUrl;
  std::string accessHash;
  std::string deleteAll;  ///< the delete-all token
  bool web;
  bool mail;
  UrlEscaper escaped;
};

void makeTableHeader(const TemplateHandle& mailTemplate, const ReportLinks& links) {
  mailTemplate->beginSection("TABLE_HEADER");
  if (links.web) emptySection(mailTemplate, "SPAM_WEB_ACTION");
  if (links.mail) emptySection(mailTemplate, "SPAM_EMAIL_ACTION");
  mailTemplate->endSection();
}

void makeRowWebActions(const TemplateHandle& mailTemplate, const ReportLinks& links, const std::string& messageId) {
  const std::string token = webToken(links.owner, messageId, links.accessHash);
  mailTemplate->beginSection("SPAM_WEB_ACTION");
  mailTemplate->set("RELEASE_URL", releaseUrl(links.baseUrl, token));
  mailTemplate->set("DELETE_URL", deleteUrl(links.baseUrl, token));
  setRowIcons(mailTemplate);
  mailTemplate->endSection();
}

void makeRowMailActions(const TemplateHandle& mailTemplate, ReportLinks& links, const std::string& messageId) {
  const std::string token = mailToken(links.owner, messageId, links.escaped);
  mailTemplate->beginSection("SPAM_EMAIL_ACTION");
  mailTemplate->set("RELEASE_EMAIL_ADDR", mailAction(links.releaseAddress, token));
  mailTemplate->set("DELETE_EMAIL_ADDR", mailAction(links.deleteAddress, token));
  mailTemplate->endSection();
}

void makeRow(const TemplateHandle& mailTemplate, ReportLinks& links, const CachedMessage& message, bool odd,
             const std::string& language) {
  mailTemplate->beginSection("QUARANTINE_MESSAGES_TABLE");
  emptySection(mailTemplate, odd ? "ODD_ROW" : "EVEN_ROW");
  mailTemplate->set("ORIG_DATE", dateText(message.date, language));
  mailTemplate->headerFrom(message.from, "ORIG_FROM");
  mailTemplate->subject(message.subject, "ORIG_SUBJECT");
  const std::string messageId = Spamreport::Base64MsgId(message);
  mailTemplate->set("EMAIL_ID", messageId);
  if (links.web) makeRowWebActions(mailTemplate, links, messageId);
  if (links.mail) makeRowMailActions(mailTemplate, links, messageId);
  setRowIcons(mailTemplate);  // again, so that the row can show them outside both action sections
  mailTemplate->endSection();
}

void makeReportWebActions(const TemplateHandle& mailTemplate, const ReportLinks& links, std::int32_t accessLinkHours) {
  mailTemplate->beginSection("SPAM_WEB_ACTION");
  mailTemplate->set("DELETE_ALL_URL", deleteAllUrl(links.baseUrl, links.deleteAll));
  setReportIcons(mailTemplate);
  mailTemplate->endSection();

  const std::string preferences = preferenceUrl(links.baseUrl, links.owner, accessLinkHours, std::time(nullptr));
  mailTemplate->beginSection("SPAM_OTHER_ACTION");
  mailTemplate->set("PREFERENCE_URL", preferences);
  mailTemplate->endSection();
}

void makeReportMailActions(const TemplateHandle& mailTemplate, const ReportLinks& links) {
  mailTemplate->beginSection("SPAM_EMAIL_ACTION");
  mailTemplate->set("DELETE_ALL_EMAIL_ADDR", mailAction(links.deleteAddress, deleteAllMailSubject(links.deleteAll)));
  setReportIcons(mailTemplate);
  mailTemplate->endSection();
}

}  // namespace

int Spamreport::makeBodies(TemplateHandle mailTemplate, const std::list<CachedMessage>& messages,
                           const std::string& /*recipientText*/, VXMPopulateEmail& /*mail*/) {
  if (!mailTemplate) return -1;
  ReportLinks links{recipient.asString(),
                    releaseAddress.asString(),
                    deleteAddress.asString(),
                    webBaseUrl,
                    accessHash,
                    "",
                    webReleaseEnabled,
                    emailReleaseEnabled,
                    {}};
  makeTableHeader(mailTemplate, links);
  links.deleteAll = deleteAllToken(links.owner, periodEnd, periodSeconds, accessHash);
  const auto settings = CMF::RefSpamReportSettings::instance(false);

  bool odd = true;
  for (const CachedMessage& message : messages) {
    makeRow(mailTemplate, links, message, odd, language);
    odd = !odd;
  }
  mailTemplate->set("TITLE_LOGO", "Logo");
  if (links.web) makeReportWebActions(mailTemplate, links, settings->record().accessLinkHours);
  if (links.mail) makeReportMailActions(mailTemplate, links);
  return 0;
}

}  // namespace Velmar
