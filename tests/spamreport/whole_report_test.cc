// One report from the exported function to the queue: every call of the platform, in order and with its arguments, as
// whole_report.calls has them.

#include <fstream>
#include <iterator>
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
  const std::regex left("(cmf_query_create|cmf_shm_read|nCfg_debug).*");  // at any time
  for (const std::string& call : world().calls) got += std::regex_match(call, left) ? "" : call + "\n";
  got = std::regex_replace(got, std::regex("3b77616a73e8d819c744cb1105be817e"), "HASH");  // MD5 of the address, keyed
  // Blanks and line breaks between the calls are layout.
  std::ifstream file(WHOLE_REPORT_CALLS);
  const std::string want{std::istreambuf_iterator<char>(file), {}};
  EXPECT_EQ(got, std::regex_replace(want, std::regex("\\)\\s+"), ")\n"));
}

}  // namespace
}  // namespace Velmar
