// spamreport preview: builds a report as a run would and writes it to files. Nothing is sent, and no list is repaired.

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "host/host.h"
#include "platform/text_network.h"
#include "tools/spamreport/commands.h"
#include "tools/spamreport/event_collector.h"
#include "tools/spamreport/files.h"
#include "tools/spamreport/inline_images.h"
#include "tools/spamreport/mailbox_facts.h"
#include "tools/spamreport/names.h"
#include "tools/spamreport/open_page.h"
#include "tools/spamreport/outcome.h"
#include "tools/spamreport/recipients.h"
#include "tools/spamreport/table.h"
#include "tools/spamreport/time_text.h"
#include "velmar/spamreport.h"

namespace Velmar::Tool {
namespace {

constexpr std::string_view kDefault = "default";

/// A template that cannot be used is refused: a report would quietly take the default in its place.
/// given  as it was asked for
void checkTemplate(const std::string& given, const Host::PreviewChoice& choice) {
  const std::string fault = Host::templateFault(choice.templateName, choice.templateDomain);
  if (!fault.empty()) throw WrongUse("--template: \"" + given + "\": " + fault);
  for (const Host::TemplateRemark& remark : Host::templateRemarks(choice.templateName, choice.templateDomain)) {
    std::cerr << "spamreport: template "
              << Host::printable(choice.templateName + ": " + remark.place + ": " + remark.text) << "\n";
  }
}

/// Sets what the preview looks at instead of what is configured.
void choose(const PreviewOptions& options) {
  if (!options.language.empty() && !Host::isKnownLanguage(options.language)) {
    throw WrongUse("--language: \"" + options.language + "\": dates cannot be written in it");
  }
  Host::PreviewChoice choice{options.language, options.templateName, ""};
  if (const std::size_t slash = choice.templateName.find('/'); slash != std::string::npos) {
    choice.templateDomain = choice.templateName.substr(0, slash);
    choice.templateName.erase(0, slash + 1);
  }
  if (!options.templateName.empty()) checkTemplate(options.templateName, choice);
  Host::setPreview(std::move(choice));
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

/// Goes the way of a run but for the repair of links.
Outcome buildReport(const std::string& address, std::int32_t period, std::int64_t until) {
  if (isDeletedUser(address)) return {OutcomeKind::kDeletedUser, ""};
  if (!Host::mailboxExists(address)) return {OutcomeKind::kFailed, directoryOf(address) + " does not exist"};
  EventCollector collector;
  Spamreport report(RefRecipientPolicy(false), address, joined(linksOf(address).confirmed, ","), period, until);
  report.deliver();
  return outcomeOf(collector.take(), false, false);
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

void complainOf(const std::string& address, const Outcome& outcome) {
  const std::string why = outcome.kind == OutcomeKind::kFailed ? "" : kindText(outcome.kind);
  const std::string blank = why.empty() || outcome.detail.empty() ? "" : " ";
  std::cerr << "spamreport: no report for " << Host::printable(address + ": " + why + blank + outcome.detail)
            << " (spamreport check --mailbox says more)\n";
}

/// "default-pt-BR" is in "pt_BR", "default" in English.
std::string languageOf(const std::string& templateName) {
  std::string language = templateName.substr(std::min(kDefault.size() + 1, templateName.size()));
  std::replace(language.begin(), language.end(), '-', '_');
  return language.empty() ? "en" : language;
}

constexpr char kIndexHead[] = R"(<!DOCTYPE html>
<html lang="en">
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Report templates</title>
<style>
body { margin: 16px; font-family: sans-serif; color: #1d2b36; background: #eff3f6; }
main { display: grid; grid-template-columns: repeat(auto-fill, minmax(390px, 1fr)); gap: 24px 16px; }
h2 { margin: 0; font-size: 17px; }
p { margin: 2px 0 8px; font-size: 14px; }
iframe { width: 100%; height: 780px; border: 1px solid #c3ced6; box-sizing: border-box; background: #ffffff; }
</style>
)";

/// A page with every set in a frame somewhat wider than a phone.
std::string indexPage(const std::vector<std::string>& names, const std::string& address) {
  std::string page = kIndexHead;
  page += "<h1>" + vlm_html_encode(address) + " in " + std::to_string(names.size()) + " templates</h1>\n<main>\n";
  for (const std::string& name : names) {
    page += "<section><h2 dir=\"auto\">" + vlm_html_encode(Host::languageName(languageOf(name))) + "</h2>\n<p>" + name +
            ": <a href=\"" + name + ".html\">page</a>, <a href=\"" + name + ".txt\">text</a></p>\n" +
            "<iframe loading=\"lazy\" title=\"" + name + "\" src=\"" + name + ".html\"></iframe></section>\n";
  }
  return page + "</main>\n</html>\n";
}

int previewAll(const PreviewOptions& options, const std::string& address, std::int64_t until) {
  const std::filesystem::path directory = options.directory;
  const std::vector<std::string> names = Host::shippedTemplates();
  for (const std::string& name : names) {
    Host::setPreview({languageOf(name), name, ""});
    MailCatcher catcher;
    const Outcome outcome = buildReport(address, options.period, until);
    if (!catcher.mail()) {
      complainOf(address, outcome);
      return kFailed;
    }
    std::filesystem::create_directories(directory);
    writeFile(directory / (name + ".html"), inlineImages(catcher.mail()->html, catcher.mail()->content));
    writeFile(directory / (name + ".txt"), catcher.mail()->text);
  }
  writeFile(directory / "index.html", indexPage(names, address));
  std::cout << alignedTable({{(directory / "index.html").string(), std::to_string(names.size()) + " templates"}});
  if (options.open) openPage(directory / "index.html");
  return kGood;
}

}  // namespace

int preview(const PreviewOptions& options) {
  const std::string address = configuredAddress(options.address);
  const std::int64_t until = parseUntil(options.until);
  if (options.allLanguages) return previewAll(options, address, until);
  choose(options);
  MailCatcher catcher;
  const Outcome outcome = buildReport(address, options.period, until);
  if (!catcher.mail()) {
    complainOf(address, outcome);
    return kFailed;
  }
  std::cout << Host::printable(address + ": " + outcome.detail) << "\n";
  writeReport(*catcher.mail(), options.directory);
  if (options.open) openPage(std::filesystem::path(options.directory) / "report.html");
  return kGood;
}

}  // namespace Velmar::Tool
