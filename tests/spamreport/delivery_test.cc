// Delivery: when a report is due, which template it uses, how the mail is put together.

#include <stdexcept>

#include "spamreport/images/threaded_image_var_callback.h"
#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using DeliveryTest = ReportTest;

Event sent(const std::string& count, const std::string& recipients) {
  return {0x80011, "%zd\x01%s\x01%s", {count, "u@d.example", recipients}};
}

TEST_F(DeliveryTest, EndsQuietlyWhenNothingIsDue) {
  using Arrange = std::function<void(Probe&)>;
  const Arrange disabled = [](Probe& report) { report.quarantineReportEnabled = false; };
  const Arrange nobody = [](Probe& report) { report.sendToRecipient = false; };
  const Arrange both = [](Probe& report) { report.quarantineReportEnabled = report.sendToRecipient = false; };
  const Arrange emptied = [](Probe&) { world().mailboxes["u@d.example"].messages.clear(); };
  const Arrange shorter = [](Probe& report) { report.periodSeconds = 30; };
  const Arrange removed = [](Probe&) { world().mailboxes.clear(); };
  const Texts opened = {"VXMailBoxRef::create(u@d.example,2,0)"};
  const struct {
    const char* name;
    const Arrange& arrange;
    unsigned int wantCode;
    Texts wantCalls;
  } rows[] = {
      {"disabled", disabled, 0x8000e, {}},       {"disabled comes first", both, 0x8000e, {}},
      {"no recipients", nobody, 0x8000f, {}},    {"nothing held", emptied, 0x80010, opened},
      {"held before", shorter, 0x80010, opened}, {"no mailbox", removed, 0x80010, opened},
  };
  for (const auto& row : rows) {
    startAnew();
    world().mailboxes["u@d.example"].messages = {held(kNow - 31, "key")};
    Probe report("U <u@d.example>");
    world().calls.clear();
    row.arrange(report);
    report.deliver();
    EXPECT_THAT(world().events, ElementsAre(Event{row.wantCode, "%s", {"u@d.example"}})) << row.name;
    EXPECT_EQ(callsOf({"VXMailBoxRef", "create(", "VXMPopulateEmail"}), row.wantCalls) << row.name;
    EXPECT_THAT(world().queue, IsEmpty());
  }
}

TEST_F(DeliveryTest, AssemblesTheMailInThisOrder) {
  setTimeZone("CET-1CEST,M3.5.0,M10.5.0/3");
  Probe report("U <u@d.example>", "b@x,a@x", 3600, kNow - 5);
  world().calls.clear();
  report.deliver();
  const Texts groups = {"VXMailUserId",  "fname",    "VXMailBoxRef",    "VXMScopeRef", "log(",        "create(",
                        "fallon",        "set(QUAR", "set(RELEASE_SUB", "set(TITLE",   "VXMPopulate", "suppress_dsn",
                        "stringToValid", "header",   "subjectRFC2047",  "sender",      "envFrom",     "createHeader",
                        "textbody",      "htmlbody", "alternative",     "add_image",   "send_",       "~VXM",
                        "~VXCustomized"};
  Texts calls = callsOf(groups);
  std::erase_if(calls, [](const std::string& call) { return call.rfind("header", 0) == 0 && call.find("ORIG") < 30; });
  std::erase_if(calls, [](const std::string& call) { return call == "headers()"; });
  EXPECT_THAT(
      calls,
      ElementsAre(
          "VXMailUserId(u@d.example)", "fname(10)", "VXMailBoxRef::create(u@d.example,2,0)",
          "VXMScopeRef(3,1773149395,1773152995,2147483647)", "~VXMailboxBase()", "log(17,0)", "create(38,site,,0)",
          "fallon(utf-8)", "set(QUARANTINE_MESSAGES_COUNT,2)", "set(QUARANTINE_PERIOD_FROM,en 2026-03-10 14:29:55)",
          "set(QUARANTINE_PERIOD_TO,en 2026-03-10 15:29:55)", "set(RELEASE_SUBJECT,u@d.example:Message-Id)",
          "VXMPopulateEmail()", "suppress_dsn(true)", "set(TITLE_LOGO,Logo)",
          "stringToValidEmailAddressRfc822HeaderValue(u@d.example)", "header_to(<u@d.example>)", "headerFromRFC2047()",
          "header_from(=?utf-8?Q?S?= <s@d.example>)", "subjectRFC2047()", "header_subject(=?utf-8?Q?Held?=)",
          "envFrom()", "sender(env@d.example)", "createHeaderMessageIdValue(gw.example,20260310-152955)",
          "header_message_id(<20260310-152955@gw.example>)", "textbody()", "alternative_plain(utf-8)", "htmlbody()",
          "add_image_inline(/migadmin/www/admin/images/icon_titlelogo.png,14)", "alternative_html(utf-8)",
          "send_queued_not_scanned(a@x,b@x)", "~VXMPopulateEmail()", "~VXCustomizedEmailTemplate()"));
  EXPECT_THAT(world().events, ElementsAre(sent("2", "a@x,b@x")));
  ASSERT_EQ(world().queue.size(), 1U);
  const Fake::Mail& mail = world().queue.front();
  EXPECT_TRUE(mail.suppressDsn);
  EXPECT_EQ(mail.plain, "2 held");
  ASSERT_EQ(mail.images.size(), 1U);
  EXPECT_EQ(mail.html, "<img src=\"cid:" + mail.images.front().cid + "\" alt=\"Logo\">\n");
}

TEST_F(DeliveryTest, ToNamesTheMailboxWhoeverReceives) {
  Probe report;
  report.sendToRecipient = false;
  report.sendToOthers = true;
  report.otherRecipients = "c@x, a@x, b@x";
  report.deliver();
  ASSERT_EQ(world().queue.size(), 1U);
  EXPECT_EQ(world().queue.front().recipients, "a@x,b@x,c@x");
  EXPECT_EQ(world().queue.front().to, "<u@d.example>");
}

TEST_F(DeliveryTest, ChoosesTheTemplate) {
  using Names = std::map<std::string, std::string>;
  using Templates = std::map<std::pair<std::string, std::string>, bool>;  // by domain and name: good?
  const std::string asked = "cfg_get_main_domain_name(d.example,0)", fallback = "create(38,default,,0)";
  const struct {
    const char* domain;  // whose own template is wanted; "" = the system's, for d.example
    Names mainDomains;
    Templates templates;
    Texts wantCalls;
    bool wantMail;
  } rows[] = {
      {"", {}, {{{"", "site"}, true}}, {"create(38,site,,0)"}, true},
      {"", {}, {{{"", "site"}, false}, {{"", "default"}, true}}, {"create(38,site,,0)", fallback}, true},
      {"", {}, {}, {"create(38,site,,0)", fallback}, false},
      {"", {}, {{{"", "default"}, false}}, {"create(38,site,,0)", fallback}, false},
      {"d.example", {}, {{{"d.example", "site"}, true}}, {asked, "create(38,site,d.example,0)"}, true},
      {"d.example", {{"d.example", "m"}}, {{{"m", "site"}, true}}, {asked, "create(38,site,m,0)"}, true},
      {"d.example", {{"d.example", ""}}, {{{"d.example", "site"}, true}}, {asked, "create(38,site,d.example,0)"}, true},
      {"d.example", {}, {{{"", "site"}, true}}, {asked, "create(38,site,d.example,0)", fallback}, false},
      {"system", {{"system", "m"}}, {{{"system", "site"}, true}}, {"create(38,site,system,0)"}, true},
      {"System", {{"System", "m"}}, {}, {"cfg_get_main_domain_name(System,0)", "create(38,site,m,0)", fallback}, false},
  };
  for (const auto& row : rows) {
    startAnew();
    const std::string domain = *row.domain ? row.domain : "d.example", address = "u@" + domain;
    Fake::domain(domain);
    world().policies[address] = {1, 0, 5, 0, 1};
    world().mailboxes[address].messages = {held(kNow - 1, "k")};
    world().mainDomains = row.mainDomains;
    world().templates.clear();
    for (const auto& [key, good] : row.templates) world().templates[key].good = good;
    Probe report(address);
    report.useDomainTemplate = *row.domain;
    report.deliver();
    EXPECT_EQ(callsOf({"cfg_get_main", "create("}), row.wantCalls);
    EXPECT_EQ(world().queue.size(), row.wantMail ? 1U : 0U);
    ASSERT_EQ(world().events.size(), row.wantMail ? 1U : 2U);
    if (!row.wantMail) {
      EXPECT_EQ(world().events[1], (Event{0x80012, "%s\x01%s", {"deliver", "site"}, "MigLogger"}));
      EXPECT_THAT(callsOf({"VXMPopulate"}), IsEmpty());
    }
  }
}

TEST_F(DeliveryTest, TracesTheDomainOnlyWithBothBitsOfTheMask) {
  world().mainDomains = {{"d.example", "main.example"}};
  for (const unsigned int mask : {0U, 0x80000U, 8U, 0xfff7fff7U, 0x80008U, 0xffffffffU}) {
    world().global.debugMask = mask;
    world().calls.clear();
    Probe report;
    report.deliver();
    report.useDomainTemplate = true;
    report.deliver();
    const bool on = mask == 0x80008U || mask == 0xffffffffU;
    EXPECT_EQ(callsOf({"debug"}), on ? Texts({"debug(SpamreportGenerator,956,deliver,0,%s,domain=system)",
                                              "debug(SpamreportGenerator,953,deliver,0,%s,domain=main.example)"})
                                     : Texts())
        << mask;
  }
}

TEST_F(DeliveryTest, TheMailIsBoundUntilItIsGone) {
  world().templates[{"", "site"}].html = "{{TITLE_LOGO:x-img-cid=TITLE_LOGO}}{{TITLE_LOGO:x-img-cid=TITLE_LOGO}}";
  world().templates[{"", "site"}].text = "{{TITLE_LOGO:x-img-cid=ICON_DELALL}}";
  std::string afterwards;
  world().onMailDestroyed = [&] { afterwards = throughModifier("word", "TITLE_LOGO"); };
  Probe().deliver();
  EXPECT_EQ(afterwards, "word");
  ASSERT_EQ(world().queue.size(), 1U);
  EXPECT_EQ(world().queue.front().images.size(), 2U);

  failCall("send_queued_not_scanned", 1, Failure::Foreign);
  afterwards.clear();
  EXPECT_THROW(Probe().deliver(), int);
  EXPECT_EQ(afterwards, "word");
  EXPECT_EQ(world().queue.size(), 1U);
  EXPECT_EQ(callsOf({"~VXCustomized"}).size(), 2U);
  EXPECT_EQ(callsOf({"~VXMailbox"}).size(), 2U);
}

}  // namespace
}  // namespace Velmar
