#pragma once

// The subcommands: what each needs, and the call that does it.
//
// Each returns the exit code of the command. Wrong use that only the subcommand can see is thrown as WrongUse; every
// other exception means that the work failed.

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace Velmar::Tool {

enum ExitCode : int {
  kGood = 0,
  kFailed = 1,    ///< something of the work could not be done
  kWrongUse = 2,  ///< nothing was done
};

/// An argument that cannot be used.
class WrongUse : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

struct RunOptions {
  bool all = false;        ///< every mailbox of every domain
  bool scheduled = false;  ///< what the schedule makes due; then nothing else names mailboxes or a period
  std::string domain;      ///< "" = none named
  std::optional<std::string> recipients;  ///< separated by commas; none = every mailbox of the domain, "" is wrong
  int jobs = 1;                           ///< threads
  std::int32_t period = 0;
  std::string until = "0";
  std::string now = "0";  ///< the time that a scheduled run acts for
  bool afresh = false;    ///< a scheduled run forgets how far mailboxes were reported
  bool json = false;
  bool verbose = false;  ///< log events go to stderr
};
int run(const RunOptions& options);

struct PreviewOptions {
  std::string address;
  std::int32_t period = 0;
  std::string until = "0";
  std::string directory = ".";
  std::string language;       ///< "" = what the user prefers
  std::string templateName;   ///< NAME, or DOMAIN/NAME of a domain's own; "" = what the configuration says
  bool allLanguages = false;  ///< every shipped template in its language, and an index of them
  bool open = false;          ///< show the page in a browser
};
int preview(const PreviewOptions& options);

struct CheckOptions {
  bool templatesOnly = false;
  std::optional<std::string> mailbox;  ///< explain this one instead of checking the installation
};
int check(const CheckOptions& options);
/// Says step by step whether a mailbox gets a report, as a run decides it. Changes nothing.
int explainMailbox(const std::string& address);

struct ListEntryOptions {
  std::string owner;
  std::string list;
  std::string entry;
};
int showLists(const std::string& owner);
int addToList(const ListEntryOptions& options);
int removeFromList(const ListEntryOptions& options);

int showPreferences(const std::string& address);
int setLanguage(const std::string& address, const std::string& language);

int listQueue();
int showQueued(const std::string& id);
int retryQueue(const std::string& id, bool all);
int dropFromQueue(const std::string& id);
int flushQueue(bool evenIfNotDue);

int demo(const std::string& directory);

int printEvents();

}  // namespace Velmar::Tool
