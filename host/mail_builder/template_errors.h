#pragma once

// What ctemplate says about a text that it cannot parse.

#include <mutex>
#include <streambuf>
#include <string>

namespace Velmar::Host {

/// While this lives, what its own thread writes to std::cerr is kept here: ctemplate reports faults nowhere else.
/// Other threads' output passes. Only one at a time exists in the process; others wait.
class TemplateErrors {
 public:
  TemplateErrors();
  TemplateErrors(const TemplateErrors&) = delete;
  TemplateErrors& operator=(const TemplateErrors&) = delete;
  ~TemplateErrors();

  /// The faults without ctemplate's own prefixes, joined by "; ".
  std::string text() const;

 private:
  std::string captured_;
  std::unique_lock<std::mutex> lock_;
  std::streambuf* before_;
};

}  // namespace Velmar::Host
