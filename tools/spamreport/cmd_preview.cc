// spamreport preview: builds a report as a run would and writes it to files. Nothing is sent, and no list is repaired.

#include <filesystem>
#include <iostream>
#include <optional>

#include "host/host.h"
#include "platform/users_lists.h"
#include "tools/spamreport/commands.h"
#include "tools/spamreport/event_collector.h"
#include "tools/spamreport/files.h"
#include "tools/spamreport/inline_images.h"
#include "tools/spamreport/outcome.h"
#include "tools/spamreport/recipients.h"
#include "tools/spamreport/table.h"
#include "tools/spamreport/time_text.h"
#include "velmar/spamreport.h"

namespace Velmar::Tool {
namespace {

/// The names of one list, freed with the object.
class Names {
 public:
  Names(const std::string& owner, const char* list) { mail_list_get_names(owner.c_str(), list, &names_, 0, 0); }
  Names(const Names&) = delete;
  Names& operator=(const Names&) = delete;
  ~Names() { mail_list_free_names(&names_); }

  char** begin() const { return names_.names; }
  char** end() const { return names_.names + names_.count; }

 private:
  mail_list_names names_;
};

/// The addresses that the report stands for: those whose link both sides name. A run would remove the other links.
std::string confirmedNames(const std::string& address) {
  std::string confirmed;
  for (const char* name : Names(address, "primaryaddr")) {
    if (!mail_list_find(name, "secondaryaddr", address.c_str(), 0)) continue;
    confirmed += (confirmed.empty() ? "" : ",") + std::string(name);
  }
  return confirmed;
}

/// Keeps the mails that would be sent, during its life.
class MailCatcher {
 public:
  MailCatcher() {
    Host::setMailSink([this](const Host::QueuedMail& mail) { mail_ = mail; });
  }
  MailCatcher(const MailCatcher&) = delete;
  MailCatcher& operator=(const MailCatcher&) = delete;
  ~MailCatcher() { Host::setMailSink(nullptr); }

  const std::optional<Host::QueuedMail>& mail() const { return mail_; }

 private:
  std::optional<Host::QueuedMail> mail_;
};

void buildReport(const PreviewOptions& options, std::int64_t until) {
  Spamreport report(RefRecipientPolicy(false), options.address, confirmedNames(options.address), options.period, until);
  report.deliver();
}

void writeReport(const Host::QueuedMail& mail, const std::filesystem::path& directory) {
  std::filesystem::create_directories(directory);
  writeFile(directory / "report.eml", mail.content);
  writeFile(directory / "report.html", inlineImages(mail.html, mail.content));
  writeFile(directory / "report.txt", mail.text);
  std::cout << alignedTable({{(directory / "report.eml").string(), "the mail"},
                             {(directory / "report.html").string(), "its page, with the images in it"},
                             {(directory / "report.txt").string(), "its text"}});
}

}  // namespace

int preview(const PreviewOptions& options) {
  mailboxAddress(options.address);
  const std::int64_t until = parseUntil(options.until);
  EventCollector collector;
  MailCatcher catcher;
  buildReport(options, until);
  const Outcome outcome = outcomeOf(collector.take(), false, false);
  if (!catcher.mail()) {
    const std::string why = outcome.kind == OutcomeKind::kFailed ? "" : kindText(outcome.kind);
    const std::string blank = why.empty() || outcome.detail.empty() ? "" : " ";
    std::cerr << "spamreport: no report for " << Host::printable(options.address + ": " + why + blank + outcome.detail)
              << "\n";
    return kFailed;
  }
  std::cout << Host::printable(options.address + ": " + outcome.detail) << "\n";
  writeReport(*catcher.mail(), options.directory);
  return kGood;
}

}  // namespace Velmar::Tool
