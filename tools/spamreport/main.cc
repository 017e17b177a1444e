// The command for administrators: reads the command line and calls one subcommand. The only source that knows the
// command-line library, which takes long to compile. It decides nothing about reports.

#include <malloc.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>

#include "host/host.h"
#include "platform/types.h"
#include "tools/spamreport/commands.h"

namespace Velmar::Tool {
namespace {

/// The options of every subcommand.
struct Common {
  std::string root;
  bool verbose = false;
};

/// The command line as it was read, and what it asks for.
struct Request {
  Common common;
  RunOptions run;
  PreviewOptions preview;
  CheckOptions check;
  ListEntryOptions list;
  std::string address;
  std::string key;
  std::string value;
  std::string id;
  bool all = false;
  bool evenIfNotDue = false;
  std::string directory;
  std::function<int()> action;
  bool logAsConfigured = false;  ///< else events reach stderr only when asked for: the command says what matters itself
};

/// A check that does not show in the help.
CLI::Validator unnamed(CLI::Validator check) { return check.description(""); }

/// Decimal digits alone: the command-line library reads "010" as octal.
CLI::Validator numberFrom(std::int32_t least, std::int32_t most) {
  const auto check = [least, most](std::string& text) -> std::string {
    std::int32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool sound = error == std::errc() && end == text.data() + text.size() && number >= least && number <= most;
    if (!sound) return "\"" + text + "\": not a number from " + std::to_string(least) + " to " + std::to_string(most);
    text = std::to_string(number);
    return "";
  };
  return {check, ""};
}

/// For what names a directory that may have to be made.
std::string refuseEmpty(const std::string& text) { return text.empty() ? "is empty" : ""; }

CLI::App* addCommand(CLI::App& parent, Request& request, const std::string& name, const std::string& description,
                     std::function<int()> action) {
  CLI::App* command = parent.add_subcommand(name, description);
  command->callback([&request, action = std::move(action)] { request.action = action; });
  return command;
}

/// What --root is checked for holds for the root of the environment as well: below a directory that is not there all
/// would look empty.
void checkEnvironment(const Common& common) {
  const char* root = std::getenv("VELMAR_ROOT");
  if (!common.root.empty() || !root || !*root) return;
  const std::string fault = CLI::ExistingDirectory(root);
  if (!fault.empty()) throw CLI::ValidationError("VELMAR_ROOT", fault);
}

void addCommon(CLI::App& command, Common& common) {
  command.parse_complete_callback([&common] { checkEnvironment(common); });
  command
      .add_option("--root", common.root,
                  "Directory that stands for / (default: the one in the\nenvironment variable VELMAR_ROOT, else /)")
      ->type_name("DIR")
      ->check(unnamed(CLI::ExistingDirectory));
  command.add_flag("-v,--verbose", common.verbose, "Write the log events to stderr, whatever the\nconfiguration says");
}

void addPeriod(CLI::App& command, std::int32_t& period, std::string& until) {
  command.add_option("--period", period, "Length of the report period; 0 = since the last\nscheduled hour (default)")
      ->type_name("SECONDS")
      ->transform(numberFrom(0, 2147483647));
  command
      .add_option("--until", until,
                  "End of the period: seconds since the epoch, or a time\nlike 2026-11-22T08:00[:00][Z|+01:00], "
                  "without a zone\nlocal time; 0 = now (default)")
      ->type_name("TIME");
}

void addScheduled(CLI::App& run, RunOptions& options) {
  run.add_option("--now", options.now, "With --scheduled: act as if it were TIME, which has\npassed; 0 = now (default)")
      ->type_name("TIME");
  run.add_flag("--afresh", options.afresh,
               "With --scheduled: forget how far mailboxes were\nreported; only the last period is");
}

void addRun(CLI::App& app, Request& request) {
  CLI::App* run = addCommand(app, request, "run", "Build and send the reports of some or all mailboxes", [&request] {
    request.run.verbose = request.common.verbose;
    return Tool::run(request.run);
  });
  run->preparse_callback([&request](std::size_t) { request.logAsConfigured = true; });
  run->add_option("--domain", request.run.domain, "Domain of the mailboxes, as configured")->type_name("DOMAIN");
  run->add_option("--recipients", request.run.recipients,
                  "Addresses of the mailboxes, separated by commas\n(default: all of the domain)")
      ->type_name("LIST");
  run->add_flag("--all", request.run.all, "All mailboxes of all configured domains");
  run->add_flag("--scheduled", request.run.scheduled,
                "What the schedule makes due and was not reported yet;\nfor a timer, every few minutes");
  run->add_option("--jobs", request.run.jobs, "Reports that are made at once, 1 to 256 (default: 1)")
      ->type_name("N")
      ->transform(numberFrom(1, 256));
  addPeriod(*run, request.run.period, request.run.until);
  addScheduled(*run, request.run);
  run->add_flag("--json", request.run.json, "Write what came of each mailbox as JSON");
  addCommon(*run, request.common);
}

void addPreview(CLI::App& app, Request& request) {
  CLI::App* preview = addCommand(app, request, "preview", "Build the report of one mailbox without sending it",
                                 [&request] { return Tool::preview(request.preview); });
  preview->add_option("ADDRESS", request.preview.address, "Address of the mailbox")->required();
  addPeriod(*preview, request.preview.period, request.preview.until);
  CLI::Option* all = preview->add_flag("--all-languages", request.preview.allLanguages,
                                       "Every shipped template in its language, with an\nindex.html of all");
  preview
      ->add_option("--output", request.preview.directory,
                   "Where report.eml, report.html and report.txt are\nwritten (default: here)")
      ->type_name("DIR")
      ->check(refuseEmpty);
  preview->add_option("--language", request.preview.language, "Language of the dates, instead of the user's")
      ->type_name("CODE")
      ->excludes(all);
  preview
      ->add_option("--template", request.preview.templateName,
                   "Template, instead of the configured one: NAME, or\nDOMAIN/NAME for a domain's own")
      ->type_name("NAME")
      ->excludes(all);
  preview->add_flag("--open", request.preview.open, "Show the page in a browser");
  addCommon(*preview, request.common);
}

void addCheck(CLI::App& app, Request& request) {
  CLI::App* check = addCommand(app, request, "check", "Say what is wrong with this installation",
                               [&request] { return Tool::check(request.check); });
  check->add_flag("--templates", request.check.templatesOnly, "Look at the templates and their images only");
  check->add_option("--mailbox", request.check.mailbox, "Explain instead whether and why this mailbox gets\na report")
      ->type_name("ADDRESS");
  addCommon(*check, request.common);
}

void addLists(CLI::App& app, Request& request) {
  CLI::App* lists = app.add_subcommand("lists", "Show and change the address lists of users");
  CLI::App* show = addCommand(*lists, request, "show", "Show all lists of a user",
                              [&request] { return showLists(request.list.owner); });
  CLI::App* add =
      addCommand(*lists, request, "add", "Add an entry to a list", [&request] { return addToList(request.list); });
  CLI::App* remove = addCommand(*lists, request, "remove", "Remove an entry from a list",
                                [&request] { return removeFromList(request.list); });
  for (CLI::App* command : {show, add, remove}) {
    command->add_option("OWNER", request.list.owner, "Address of the user")->required();
  }
  for (CLI::App* command : {add, remove}) {
    command->add_option("LIST", request.list.list, "Name of the list, e.g. primaryaddr")->required();
    command->add_option("ENTRY", request.list.entry, "The entry, e.g. an address")->required();
  }
  for (CLI::App* command : {show, add, remove}) addCommon(*command, request.common);
}

void addPrefs(CLI::App& app, Request& request) {
  CLI::App* prefs = app.add_subcommand("prefs", "Show and change the preferences of users");
  CLI::App* show = addCommand(*prefs, request, "show", "Show the preferences of a user",
                              [&request] { return showPreferences(request.address); });
  show->add_option("ADDRESS", request.address, "Address of the user")->required();
  addCommon(*show, request.common);
  CLI::App* set = addCommand(*prefs, request, "set", "Set a preference of a user",
                             [&request] { return setLanguage(request.address, request.value); });
  set->add_option("ADDRESS", request.address, "Address of the user")->required();
  set->add_option("KEY", request.key, "The preference: language")
      ->required()
      ->check(unnamed(CLI::IsMember({"language"})));
  set->add_option("VALUE", request.value, "Language code like de or pt-BR; none removes it")->required();
  addCommon(*set, request.common);
}

void addQueue(CLI::App& app, Request& request) {
  CLI::App* queue = app.add_subcommand("queue", "Show and hand on the mails that wait in the spool");
  CLI::App* list = addCommand(*queue, request, "list", "List what waits and what has failed, oldest first",
                              [] { return listQueue(); });
  CLI::App* show = addCommand(*queue, request, "show", "Write a whole mail to standard output",
                              [&request] { return showQueued(request.id); });
  CLI::App* retry = addCommand(*queue, request, "retry", "Make a failed or waiting mail due at once",
                               [&request] { return retryQueue(request.id, request.all); });
  CLI::App* drop = addCommand(*queue, request, "drop", "Remove a mail for good, without asking",
                              [&request] { return dropFromQueue(request.id); });
  CLI::App* flush = addCommand(*queue, request, "flush", "Hand on what is due to the mail server",
                               [&request] { return flushQueue(request.evenIfNotDue); });
  for (CLI::App* command : {show, retry, drop}) {
    command->add_option("ID", request.id, "Queue id, as queue list shows it")->required(command != retry);
  }
  retry->add_flag("--all", request.all, "All mails, the failed and the waiting ones");
  flush->add_flag("--now", request.evenIfNotDue, "Also what is not due yet, even if the server was\nunusable just now");
  for (CLI::App* command : {list, show, retry, drop, flush}) addCommon(*command, request.common);
}

void addDemo(CLI::App& app, Request& request) {
  CLI::App* demo = addCommand(app, request, "demo", "Lay out an example host in a directory",
                              [&request] { return Tool::demo(request.directory); });
  demo->add_option("DIR", request.directory, "New or empty directory, or one that demo laid out before")
      ->required()
      ->check(refuseEmpty);
}

void addEvents(CLI::App& app, Request& request) {
  addCommand(app, request, "events", "List the log events", [] { return printEvents(); });
}

void build(CLI::App& app, Request& request) {
  app.description("Builds, sends and previews quarantine reports: digest mails about messages held as spam.");
  app.footer(
      "Exit status: 0 good, 1 something failed, 2 wrong use.\n\"spamreport COMMAND --help\" explains a command.");
  app.set_version_flag("--version", std::string("spamreport ") + Host::version());
  app.get_formatter()->column_width(24);
  app.get_formatter()->label("SUBCOMMAND", "COMMAND");
  app.get_formatter()->label("Subcommands", "Commands");
  addRun(app, request);
  addPreview(app, request);
  addCheck(app, request);
  addLists(app, request);
  addPrefs(app, request);
  addQueue(app, request);
  addDemo(app, request);
  addEvents(app, request);
}

/// Everything else reads the root from the environment, so it is set before anything else is done.
void applyCommon(const Request& request) {
  const Common& common = request.common;
  if (!common.root.empty()) {
    ::setenv("VELMAR_ROOT", std::filesystem::absolute(common.root).lexically_normal().c_str(), 1);
  }
  if (common.verbose || !request.logAsConfigured) Host::setLogToStderr(common.verbose);
}

/// A limit of file sizes ends a process by default: the reports to come would be lost without a word.
void takeFileSizeLimitsAsErrors() { std::signal(SIGXFSZ, SIG_IGN); }

constexpr char kNoOutput[] = "standard output cannot be written";
constexpr char kSeeHelp[] = " (see spamreport --help)";

int complain(const std::string& text, int exitCode) {
  std::cout.flush();
  std::cerr << "spamreport: " << Host::printable(text) << "\n";
  return exitCode;
}

int perform(const Request& request) try {
  applyCommon(request);
  const int exitCode = request.action();
  if (!std::cout.flush()) return complain(kNoOutput, kFailed);
  return exitCode;
} catch (const WrongUse& e) {
  return complain(e.what(), kWrongUse);
} catch (const Exception& e) {
  return complain(e.text(), kFailed);
} catch (const std::exception& e) {
  return complain(e.what(), kFailed);
}

int runCommandLine(int argc, char** argv) {
  if (!Host::occupyStandardStreams()) return kFailed;  // there is nobody to tell
  takeFileSizeLimitsAsErrors();
  CLI::App app{"", "spamreport"};
  Request request;
  build(app, request);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() != 0) return complain(std::string(e.what()) + kSeeHelp, kWrongUse);
    app.exit(e);  // --help and --version
    return std::cout.flush() ? kGood : complain(kNoOutput, kFailed);
  }
  return request.action ? perform(request) : complain(std::string("no command was given") + kSeeHelp, kWrongUse);
}

}  // namespace
}  // namespace Velmar::Tool

int main(int argc, char** argv) try {
  // A run makes one mail after the other: what is given back after each would be asked for again at once.
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
  mallopt(M_TRIM_THRESHOLD, 128 << 20);
  return Velmar::Tool::runCommandLine(argc, argv);
} catch (...) {
  std::fputs("spamreport: out of memory\n", stderr);
  return Velmar::Tool::kFailed;
}
