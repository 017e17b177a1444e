#pragma once

// What `spamreport check` looks at.

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Velmar::Tool {

struct Finding {
  enum class Level {
    kGood,
    kNote,  ///< worth a look, no fault
    kBad,
  };
  Level level = Level::kGood;
  std::string text;
};

struct Check {
  std::string subject;                         ///< what is looked at, e.g. "template of example.org"
  std::function<std::vector<Finding>()> look;  ///< says what was found; an exception is one bad finding
  std::string remedy;                          ///< how to mend what is not good
};

using Checks = std::vector<Check>;

inline std::vector<Finding> good(std::string text) { return {{Finding::Level::kGood, std::move(text)}}; }
inline std::vector<Finding> note(std::string text) { return {{Finding::Level::kNote, std::move(text)}}; }
inline std::vector<Finding> bad(std::string text) { return {{Finding::Level::kBad, std::move(text)}}; }

/// "1 mail", "2 mails".
std::string counted(std::size_t count, const std::string& one, const std::string& many);

/// The configuration, without which nothing else can be looked at.
Check configurationCheck();

// Everything else, as the configuration names it. Each throws Exception when the configuration cannot be read.

void addScheduleCheck(Checks& checks);
/// The templates that the configuration names.
void addTemplateChecks(Checks& checks);
/// All others that exist: the system's own, the domains' own, and those that came with the software.
void addUnusedTemplateChecks(Checks& checks);
void addImageChecks(Checks& checks);
/// State store, spool, secret, log file, and the other files that the configuration names.
void addFileChecks(Checks& checks);
/// The mail server that takes the reports, and the directory servers.
void addServerChecks(Checks& checks);
/// The domains' directories, some of their mailboxes, and how many of these take part.
void addMailboxChecks(Checks& checks);

/// Loads a template, expands each of its parts, and says all that is odd about it. Throws when it cannot be used.
/// domain  "" = a template of the system
std::vector<Finding> lookAtTemplate(const std::string& name, const std::string& domain);

/// The domain under which the templates of a domain are kept: its main domain where it has one.
std::string templateDomain(const std::string& domain);

}  // namespace Velmar::Tool
