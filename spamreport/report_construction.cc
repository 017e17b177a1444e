// Gathers every setting of one report, in a fixed order: each step runs only if those before it succeeded, so that a
// report that was constructed can always be composed. Nothing is searched and nothing is sent here.
//
// The source lines of the exceptions are marks that administrators look up; they do not follow this file's lines.

#include <ctime>

#include "platform/antispam_profiles.h"
#include "platform/text_network.h"
#include "platform/users_lists.h"
#include "spamreport/action_links.h"
#include "spamreport/configuration_sources.h"
#include "spamreport/report_period.h"
#include "spamreport/spamreport_exception.h"
#include "spamreport/web_host.h"
#include "velmar/spamreport.h"

namespace Velmar {
namespace {

constexpr int kLineInvalidUser = 381;
constexpr int kLineInvalidDomain = 397;
constexpr int kLineInvalidHost = 481;
constexpr int kLineNoReleaseName = 495;
constexpr int kLineNoDeleteName = 507;

constexpr int kServerMode = 1;  // mail mode in which user groups carry the flag
constexpr int kLanguageSize = 255;
constexpr int kHostSize = 257;
constexpr int kUrlSize = 256;

/// Looks the policy of an address up; an empty handle when surely none applies.
RefRecipientPolicy lookUpPolicy(const std::string& address) {
  RefRecipientPolicy found(true);
  const int status = cfg_get_managed_recipient_policy_with_filter(address.c_str(), &found.get()->record,
                                                                  vlm_recipient_policy_spamreport_filter, 0, 1);
  return status == 0 ? found : RefRecipientPolicy(false);
}

bool flagOfPolicy(const __recipient_policy& record) {
  if (qrl_mail_mode() != kServerMode) return record.flag != 0;
  __aps_user_group group{};
  return vlm_cmf_get_table_data_by_ngid(G_CLI_USER_GROUP, record.userGroup, &group, sizeof group) && group.flag != 0;
}

std::string actionHost() {
  char host[kHostSize] = "";
  if (cfg_get_localdomain_or_host(host, sizeof host) != 0) {
    throw SpamreportException(kLineInvalidHost, "Invalid host or localdomain");
  }
  return host;
}

std::string baseUrl(const std::string& host, std::uint32_t port) {
  char url[kUrlSize] = "";
  vlm_build_http_url(host, port, 1, url, sizeof url);
  return url;
}

std::string linkHash(const std::string& address) {
  Md5Hasher hasher;
  hasher.update(address.data(), address.size());
  hasher.finalize();
  hasher.xorDigest(kLinkKey);
  return hasher.digestAsHexString();
}

std::time_t lastRunBefore(std::time_t now) {
  const auto settings = CMF::RefSpamReportSettings::instance(false);
  std::tm local{};
  tzset();  // localtime_r need not look at the zone again; mktime, which ends the computation, does
  localtime_r(&now, &local);
  return lastScheduledRun(settings->record().schedule, local);
}

}  // namespace

Spamreport::Spamreport(const RefRecipientPolicy& knownPolicy, const std::string& address,
                       const std::string& secondaryList, long period, long until)
    : policy(knownPolicy),
      periodSeconds(period),
      useDomainTemplate(false),
      templateName("default"),
      sendToRecipient(true),
      sendToGroupOwner(false),
      groupOwnerOption(false),
      groupOwnerOnly(false),
      sendToOthers(false),
      groupOwnerLdapProfile(-1),
      recipient(EmailAddress::rfc5322Parse(address, true)),
      secondaryAddresses(EmailAddress::rfc5322ParseSet(secondaryList, true, false)),
      quarantineReportEnabled(false),
      emailReleaseEnabled(false),
      webReleaseEnabled(false),
      userGroupFlag(false),
      whitelistSenderEnabled(false),
      periodEnd(0) {
  if (recipient.isEmptyAddress()) throw SpamreportException(kLineInvalidUser, "Invalid user: " + address);

  const auto settings = CMF::RefSpamReportSettings::instance(false);
  const auto remoteStorage = CMF::RefRemoteStorage::instance(false);  // held, not read
  const auto mailServer = CMF::RefMailServer::instance(false);        // held, not read
  const auto domains = RefApsGwServerCache::instance(false);
  const Ref<ApsGwServer> domain = domains->find(recipient.domain());
  if (!domain) throw SpamreportException(kLineInvalidDomain, "Invalid user domain " + recipient.asString());

  takeDomainSettings(*domain);
  findPolicy();
  if (policy.get()) takeProfileSettings(*domain);
  takeLanguage();
  makeActionAddresses();
  webHost = chooseWebHost(settings->record().webHost);
  webBaseUrl = baseUrl(webHost, settings->record().port);
  queueId = getQueueId();
  messageIdValue = queueId + "." + releaseAddress.asString();
  accessHash = linkHash(address);
  settlePeriod(until);
}

Spamreport::~Spamreport() = default;

void Spamreport::takeDomainSettings(const ApsGwServer& domain) {
  sendToRecipient = domain.sendToRecipient;
  sendToGroupOwner = domain.sendToGroupOwner;
  groupOwnerOption = domain.groupOwnerOption;
  groupOwnerOnly = domain.groupOwnerOnly;
  groupOwnerLdapProfile = sendToGroupOwner ? domain.groupOwnerLdapProfile : -1;
  sendToOthers = domain.sendToOthers;
  if (sendToOthers && !domain.otherRecipients.empty()) otherRecipients = domain.otherRecipients;
  useDomainTemplate = domain.useOwnTemplate;
  templateName =
      useDomainTemplate ? domain.templateName : CMF::RefSpamReportSettings::instance(false)->record().templateName;
}

void Spamreport::findPolicy() {
  if (!policy.get()) policy = lookUpPolicy(recipient.asString());
}

void Spamreport::takeProfileSettings(const ApsGwServer& domain) {
  const __recipient_policy& record = policy.get()->record;
  if (record.antispamProfile == 0) return;
  const ProfileAntiSpam profile =
      ProfileFactory::instance()->createProfileAntiSpam(record.antispamProfile, domain.profileDomain);
  if (!profile.isNull()) {
    quarantineReportEnabled = profile.quarantineReport();
    emailReleaseEnabled = profile.quarantineEmailRelease();
    webReleaseEnabled = profile.quarantineWebRelease();
    whitelistSenderEnabled = profile.quarantineWhitelistSender();
  }
  if (flagOfPolicy(record)) userGroupFlag = true;
}

void Spamreport::takeLanguage() {
  language = "en";
  char preferred[kLanguageSize + 1] = "";
  if (get_user_pref_lang(recipient.address().c_str(), preferred, kLanguageSize) == 0) language = preferred;
}

void Spamreport::makeActionAddresses() {
  const std::string host = actionHost();
  const auto antispam = CMF::RefSysAntispam::instance(false);
  const std::string releaseName = antispam->record().releaseName;
  if (releaseName.empty()) {
    throw SpamreportException(kLineNoReleaseName, "Invalid or Non quarantine release name ");
  }
  releaseAddress = EmailAddress::rfc5322Parse(releaseName + "@" + host, true);
  const std::string deleteName = antispam->record().deleteName;
  if (deleteName.empty()) {
    throw SpamreportException(kLineNoDeleteName, "Invalid or Non quarantine delete name ");
  }
  deleteAddress = EmailAddress::rfc5322Parse(deleteName + "@" + host, true);
}

void Spamreport::settlePeriod(long until) {
  periodEnd = until != 0 ? until : std::time(nullptr);
  // The schedule is applied to the current time, not to the end of the period.
  periodSeconds = settledPeriod(periodSeconds, periodEnd, lastRunBefore(std::time(nullptr)));
}

std::string Spamreport::getQueueId() { return LW::createQueueId(nullptr); }

const std::vector<std::string>& Spamreport::charsets() const {
  if (!charsetFallbacks) charsetFallbacks = RefQRLStaticCharSetFallbacks::instance();
  return charsetFallbacks->charsets();
}

}  // namespace Velmar
