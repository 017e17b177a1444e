// spamreport check: reads what a run would read, and says of each thing whether it is good and how to mend it.

#include <iostream>

#include "platform/types.h"
#include "tools/spamreport/checks.h"
#include "tools/spamreport/commands.h"
#include "tools/spamreport/table.h"

namespace Velmar::Tool {
namespace {

using Level = Finding::Level;

std::vector<Finding> lookAt(const Check& check) try { return check.look(); } catch (const Exception& e) {
  return bad(e.text());
} catch (const std::exception& e) {
  return bad(e.what());
}

const char* levelText(Level level) {
  if (level == Level::kGood) return "good";
  return level == Level::kNote ? "note" : "BAD";
}

/// What the checks found, as it will be printed.
class Report {
 public:
  /// Returns whether there was no fault.
  bool add(const Check& check) {
    const std::vector<Finding> findings = lookAt(check);
    int faults = 0;
    bool remedy = false;
    for (const Finding& finding : findings) {
      rows_.push_back({levelText(finding.level), check.subject, finding.text});
      faults += finding.level == Level::kBad;
      remedy = remedy || finding.level != Level::kGood;
    }
    if (remedy) rows_.push_back({"", "", "to mend it: " + check.remedy});
    faults_ += faults;
    return faults == 0;
  }

  ExitCode print() const {
    std::cout << alignedTable(rows_);
    if (faults_ > 0) std::cout << faults_ << (faults_ == 1 ? " fault\n" : " faults\n");
    return faults_ > 0 ? kFailed : kGood;
  }

 private:
  std::vector<std::vector<std::string>> rows_;
  int faults_ = 0;
};

Checks chosenChecks(const CheckOptions& options) {
  Checks checks;
  if (!options.templatesOnly) addScheduleCheck(checks);
  addTemplateChecks(checks);
  if (options.templatesOnly) addUnusedTemplateChecks(checks);
  addImageChecks(checks);
  if (options.templatesOnly) return checks;
  addFileChecks(checks);
  addServerChecks(checks);
  addMailboxChecks(checks);
  return checks;
}

}  // namespace

int check(const CheckOptions& options) {
  if (options.mailbox && options.templatesOnly) throw WrongUse("--mailbox and --templates cannot be used together");
  if (options.mailbox) return explainMailbox(*options.mailbox);
  Report report;
  if (!report.add(configurationCheck())) {
    report.print();
    std::cout << "Nothing else can be looked at before the configuration is good.\n";
    return kFailed;
  }
  for (const Check& check : chosenChecks(options)) report.add(check);
  return report.print();
}

}  // namespace Velmar::Tool
