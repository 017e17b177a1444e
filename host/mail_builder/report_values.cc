// Holds what a report is made of until its texts are expanded. A report fills one level a row and section.
//
// Our own in place of ctemplate's dictionary: that one enters each name of each value into a table of the process,
// under a lock, which was a sixth of the whole time of a large report. A level has few names, so they are searched in
// order.

#include "host/mail_builder/report_values.h"

#include <algorithm>

namespace Velmar::Host {
namespace {

std::string_view viewOf(const ctemplate::TemplateString& text) { return {text.data(), text.size()}; }

template <class Entries>
auto entryOf(Entries& entries, std::string_view name) -> decltype(&entries.front().second) {
  const auto found = std::find_if(entries.begin(), entries.end(), [name](const auto& e) { return e.first == name; });
  return found == entries.end() ? nullptr : &found->second;
}

}  // namespace

class ReportValues::LevelIterator final : public Iterator {
 public:
  explicit LevelIterator(const Levels* levels) : levels_(levels) {}
  bool HasNext() const override { return levels_ && next_ < levels_->size(); }
  const TemplateDictionaryInterface& Next() override { return *(*levels_)[next_++]; }

 private:
  const Levels* levels_;
  std::size_t next_ = 0;
};

void ReportValues::set(std::string_view name, std::string value) {
  if (std::string* const known = entryOf(values_, name)) {
    *known = std::move(value);
  } else {
    values_.emplace_back(name, std::move(value));
  }
}

ReportValues& ReportValues::addSection(std::string_view name) {
  Levels* levels = entryOf(sections_, name);
  if (!levels) levels = &sections_.emplace_back(name, Levels()).second;
  levels->push_back(std::unique_ptr<ReportValues>(new ReportValues(this)));
  return *levels->back();
}

void ReportValues::showSection(std::string_view name) {
  if (!entryOf(sections_, name)) addSection(name);
}

const ReportValues::Levels* ReportValues::findSection(std::string_view name) const {
  for (const ReportValues* level = this; level; level = level->around_) {
    if (const Levels* const found = entryOf(level->sections_, name)) return found;
  }
  return nullptr;
}

ctemplate::TemplateString ReportValues::GetValue(const ctemplate::TemplateString& variable) const {
  for (const ReportValues* level = this; level; level = level->around_) {
    if (const std::string* const found = entryOf(level->values_, viewOf(variable))) return *found;
  }
  return "";
}

bool ReportValues::IsHiddenSection(const ctemplate::TemplateString& name) const { return !findSection(viewOf(name)); }

bool ReportValues::IsUnhiddenSection(const ctemplate::TemplateString& name) const { return findSection(viewOf(name)); }

ReportValues::Iterator* ReportValues::CreateSectionIterator(const ctemplate::TemplateString& name) const {
  return new LevelIterator(findSection(viewOf(name)));
}

bool ReportValues::IsHiddenTemplate(const ctemplate::TemplateString&) const { return true; }

const char* ReportValues::GetIncludeTemplateName(const ctemplate::TemplateString&, int) const { return ""; }

ReportValues::Iterator* ReportValues::CreateTemplateIterator(const ctemplate::TemplateString&) const {
  return new LevelIterator(nullptr);
}

void ReportValues::DumpToString(std::string* out, int) const {
  for (const auto& [name, value] : values_) out->append(name).append(": ").append(value).append("\n");
}

}  // namespace Velmar::Host
