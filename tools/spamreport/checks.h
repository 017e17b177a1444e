#pragma once

// What `spamreport check` looks at.

#include <functional>
#include <string>
#include <vector>

namespace Velmar::Tool {

struct Check {
  std::string subject;                ///< what is looked at, e.g. "template of example.org"
  std::function<std::string()> look;  ///< says what was found; throws when it is not good
  std::string remedy;                 ///< how to mend it
};

/// The configuration, without which nothing else can be looked at.
Check configurationCheck();

/// Everything else, as the configuration names it. Throws Exception when the configuration cannot be read.
std::vector<Check> installationChecks();

}  // namespace Velmar::Tool
