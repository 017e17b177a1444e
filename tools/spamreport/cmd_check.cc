// spamreport check: reads what a run would read, and says of each thing whether it is good and how to mend it.

#include <iostream>

#include "platform/types.h"
#include "tools/spamreport/checks.h"
#include "tools/spamreport/commands.h"
#include "tools/spamreport/table.h"

namespace Velmar::Tool {
namespace {

struct Finding {
  bool good = false;
  std::string text;
};

Finding lookAt(const Check& check) try { return {true, check.look()}; } catch (const Exception& e) {
  return {false, e.text()};
} catch (const std::exception& e) {
  return {false, e.what()};
}

using Rows = std::vector<std::vector<std::string>>;

bool addRows(const Check& check, Rows& rows) {
  const Finding finding = lookAt(check);
  rows.push_back({finding.good ? "good" : "BAD", check.subject, finding.text});
  if (!finding.good) rows.push_back({"", "", "to mend it: " + check.remedy});
  return finding.good;
}

}  // namespace

int check() {
  Rows rows;
  if (!addRows(configurationCheck(), rows)) {
    std::cout << alignedTable(rows) << "Nothing else can be looked at before the configuration is good.\n";
    return kFailed;
  }
  int faults = 0;
  for (const Check& check : installationChecks()) faults += !addRows(check, rows);
  std::cout << alignedTable(rows);
  if (faults > 0) std::cout << faults << (faults == 1 ? " fault\n" : " faults\n");
  return faults > 0 ? kFailed : kGood;
}

}  // namespace Velmar::Tool
