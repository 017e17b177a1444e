// One report from the exported function to the queue: every call of the platform, in order and with its arguments.

#include <regex>

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using WholeReportTest = ReportTest;

TEST_F(WholeReportTest, AsksForEverythingInThisOrder) {
  setTimeZone("CET-1CEST,M3.5.0,M10.5.0/3");
  ApsGwServer& domain = Fake::domain("d.example");
  domain.sendToGroupOwner = domain.groupOwnerOption = domain.sendToOthers = true;
  domain.groupOwnerLdapProfile = 7;
  domain.otherRecipients = "x@x";
  world().groupOwners = {"o@d.example"};
  world().lists[{"u@d.example", "primaryaddr"}] = {"z@d.example", "a@d.example"};
  world().lists[{"a@d.example", "secondaryaddr"}] = {"u@d.example"};
  world().languages["u@d.example"] = "de";
  world().mailboxes["u@d.example"].messages = {
      {kNow, "\xfb\xff,S", {{"From", "f"}, {"Subject", "s"}, {"Message-Id", "<m>"}}, 0}};
  world().spamReport.port = 8443;
  world().spamReport.accessLinkHours = 1;
  // The period is widened with its sign; the end keeps its 64 bits except in the mailbox's window.
  EXPECT_EQ(vlm_spamreport_report_byrcpt("d.example", "u@d.example", INT32_MIN, 0x100000010), 0);

  std::string got;
  const std::regex left("(cmf_query_create|cmf_shm_read|nCfg_debug|toBase64).*");  // at any time
  for (const std::string& call : world().calls) got += std::regex_match(call, left) ? "" : call + "\n";
  got = std::regex_replace(got, std::regex("3b77616a73e8d819c744cb1105be817e"), "HASH");  // MD5 of the address, keyed
  // Blanks and line breaks between the calls are layout.
  const std::string want = R"(vlm_is_deleted_user_path(/home/d.example/u~d.example)

mail_list_get_names(u@d.example,primaryaddr,0,0)
  mail_list_find(z@d.example,secondaryaddr,u@d.example,0) mail_list_delete_from(u@d.example,primaryaddr,z@d.example,0)
  mail_list_find(a@d.example,secondaryaddr,u@d.example,0)
mail_list_free_names()
Logger::log(80013,0,%s|%s,z@d.example|u@d.example)

rfc5322Parse(u@d.example,true)
cmf_query_update(450) cmf_query_update(636) cmf_query_update(617)
RefApsGwServerCache::instance(0) ApsGwServerCache::find(d.example)
cfg_get_managed_recipient_policy_with_filter(u@d.example,spamreport_filter,0,1) createProfileAntiSpam(5,0)
qrl_mail_mode() vlm_cmf_get_table_data_by_ngid(455,0)
get_user_pref_lang(u@d.example,255) cfg_get_localdomain_or_host(257)
cmf_query_update(801) rfc5322Parse(release@gw.example,true) rfc5322Parse(delete@gw.example,true)
cmf_query_update(282) cmf_query_update(631) createQueueId(null)

getGroupOwnerAddressesForUser(u@d.example,7,true) rfc5322Parse(o@d.example,true)
VXMailUserId(u@d.example) fname(10)
VXMailBoxRef::create(u@d.example,2,0) VXMScopeRef(3,-2147483632,16,2147483647) setScope()
  next() flags() init(128,1) init(32,1) envelope() time() envelope() key() headers()
    find(From) find(X-VX-MESSAGE-ID) find(Message-Id) find(Subject)
  next()
~VXMailboxBase()
Logger::log(80011,0,%zd|%s|%s,1|u@d.example|a@d.example,o@d.example,x@x)

create(38,site,,0)
RefQRLStaticCharSetFallbacks::instance() system charsets() fallon(utf-8)
set(RELEASE_CONTROL_USER,release@gw.example) set(QUARANTINE_MESSAGES_COUNT,1)
translate_datetime(2,de,1024) set(QUARANTINE_PERIOD_FROM,de 2174-02-25 10:42:40)
translate_datetime(2,de,1024) set(QUARANTINE_PERIOD_TO,de 2106-02-07 07:28:32)

set(RELEASE_CONTROL_USER,release@gw.example) set(DELETE_CONTROL_USER,delete@gw.example)
set(DELETE_ALL_SUBJECT,delete_all:u@d.example:15d2a7c21:ffffffffdd2a7c31:HASH)
set(RELEASE_SUBJECT,u@d.example:Message-Id) set(DELETE_SUBJECT,u@d.example:Message-Id)

VXMPopulateEmail() suppress_dsn(true)
beginSection(TABLE_HEADER)
  beginSection(SPAM_WEB_ACTION) endSection() beginSection(SPAM_EMAIL_ACTION) endSection()
endSection()
beginSection(QUARANTINE_MESSAGES_TABLE)
  beginSection(ODD_ROW) endSection()
  translate_datetime(2,de,1024) set(ORIG_DATE,de 2026-03-10 15:30:00)
  headerFrom(ORIG_FROM,f) subject(ORIG_SUBJECT,s) set(EMAIL_ID,+/8=)
  beginSection(SPAM_WEB_ACTION)
    set(RELEASE_URL,https://web.example:8443/releasecontrol?release=0:u@d.example:+/8=:HASH)
    set(DELETE_URL,https://web.example:8443/releasecontrol?release=1:u@d.example:+/8=:HASH)
    set(ICON_RELEASE,Release) set(ICON_DELETE,Delete) endSection()
  beginSection(SPAM_EMAIL_ACTION)
    set(RELEASE_EMAIL_ADDR,mailto:release@gw.example?subject=u@d.example:%2B%2F8%3D)
    set(DELETE_EMAIL_ADDR,mailto:delete@gw.example?subject=u@d.example:%2B%2F8%3D)
  endSection()
  set(ICON_RELEASE,Release) set(ICON_DELETE,Delete) endSection()
set(TITLE_LOGO,Logo)

beginSection(SPAM_WEB_ACTION)
  set(DELETE_ALL_URL,https://web.example:8443/releasecontrol?release=3:u@d.example:15d2a7c21:ffffffffdd2a7c31:HASH)
  set(ICON_DELALL,Delete All) set(ICON_RELEASE,Release) set(ICON_DELETE,Delete) endSection()
vlml_encode_trusted_base64_data(u@d.example:69b038f8,5d2a7c31,1023)
beginSection(SPAM_OTHER_ACTION)
  set(PREFERENCE_URL,https://web.example:8443/mail/logincheck/bypass?access=u%40d.example%3A69b038f8)
endSection()
beginSection(SPAM_EMAIL_ACTION)
  set(DELETE_ALL_EMAIL_ADDR,mailto:delete@gw.example?subject=delete_all: u@d.example:15d2a7c21:ffffffffdd2a7c31:HASH)
  set(ICON_DELALL,Delete All) set(ICON_RELEASE,Release) set(ICON_DELETE,Delete) endSection()

stringToValidEmailAddressRfc822HeaderValue(u@d.example) header_to(<u@d.example>)
headerFromRFC2047() header_from(Sender) subjectRFC2047() header_subject(Held)
envFrom() sender(env@d.example)
createHeaderMessageIdValue(gw.example,21060207-072832) header_message_id(<21060207-072832@gw.example>)
textbody() alternative_plain(1 held,utf-8) htmlbody() add_image_inline(/migadmin/www/admin/images/icon_titlelogo.png,14)
alternative_html(<img src="cid:1.1" alt="Logo">
,utf-8)
send_queued_not_scanned(a@d.example,o@d.example,x@x)
~VXMPopulateEmail() ~VXCustomizedEmailTemplate()
)";
  EXPECT_EQ(got, std::regex_replace(want, std::regex("\\)\\s+"), ")\n"));
}

}  // namespace
}  // namespace Velmar
