// Holds what a report is made of until its texts are expanded. A report fills one level a row and section.
//
// Our own in place of ctemplate's dictionary: that one enters each name of each value into a table of the process,
// under a lock, which was a sixth of the whole time of a large report. Here names are numbers, a level has few, and
// all that a report needs lies in one pool, which is given back as a whole.

#include "host/mail_builder/report_values.h"

#include <algorithm>

namespace Velmar::Host {
namespace {

std::string_view viewOf(const ctemplate::TemplateString& text) { return {text.data(), text.size()}; }

}  // namespace

ReportMemory::Name ReportMemory::nameOf(std::string_view name) {
  if (const Name known = knownName(name); known != kUnknown) return known;
  names_[placeOf(name)].push_back({std::string(name), ++last_});
  return last_;
}

ReportMemory::Name ReportMemory::knownName(std::string_view name) const {
  for (const NumberedName& known : names_[placeOf(name)]) {
    if (known.name == name) return known.number;
  }
  return kUnknown;
}

std::string_view ReportMemory::keep(std::string_view text) {
  if (text.empty()) return "";
  char* const place = static_cast<char*>(pool_.allocate(text.size(), 1));
  std::copy(text.begin(), text.end(), place);
  return {place, text.size()};
}

class ReportValues::LevelIterator final : public Iterator {
 public:
  explicit LevelIterator(const ReportValues* first) : next_(first) {}
  bool HasNext() const override { return next_; }
  const TemplateDictionaryInterface& Next() override {
    const ReportValues& level = *next_;
    next_ = level.next_;
    return level;
  }

 private:
  const ReportValues* next_;
};

/// Null when there is none of that name.
template <class Some>
auto ReportValues::find(Some* some, Name name) -> decltype(some->entries.data()) {
  for (; some; some = some->next) {
    for (std::size_t i = 0; i < some->count; ++i) {
      if (some->names[i] == name) return &some->entries[i];
    }
  }
  return nullptr;
}

template <class Some>
auto ReportValues::add(Some*& some, Name name) -> decltype(some->entries.data()) {
  if (!some || some->count == some->names.size()) {
    auto* const fresh = memory_.make<Some>();
    fresh->next = some;
    some = fresh;
  }
  some->names[some->count] = name;
  return &some->entries[some->count++];
}

void ReportValues::set(std::string_view name, std::string_view value) {
  const Name number = memory_.nameOf(name);
  std::string_view* known = find(values_, number);
  if (!known) known = add(values_, number);
  if (*known != value) *known = memory_.keep(value);
}

ReportValues& ReportValues::addSection(std::string_view name) {
  const Name number = memory_.nameOf(name);
  auto* const level = memory_.make<ReportValues>(memory_, this);
  if (Section* const known = find(sections_, number)) {
    known->last = known->last->next_ = level;
  } else {
    *add(sections_, number) = {level, level};
  }
  return *level;
}

void ReportValues::showSection(std::string_view name) {
  if (!find(sections_, memory_.nameOf(name))) addSection(name);
}

const ReportValues::Section* ReportValues::findSection(const ctemplate::TemplateString& name) const {
  const Name number = memory_.knownName(viewOf(name));
  for (const ReportValues* level = this; level && number != ReportMemory::kUnknown; level = level->around_) {
    if (const Section* const found = find(level->sections_, number)) return found;
  }
  return nullptr;
}

ctemplate::TemplateString ReportValues::GetValue(const ctemplate::TemplateString& variable) const {
  const Name number = memory_.knownName(viewOf(variable));
  for (const ReportValues* level = this; level && number != ReportMemory::kUnknown; level = level->around_) {
    if (const auto* const found = find(level->values_, number)) return {found->data(), found->size()};
  }
  return "";
}

bool ReportValues::IsHiddenSection(const ctemplate::TemplateString& name) const { return !findSection(name); }

bool ReportValues::IsUnhiddenSection(const ctemplate::TemplateString& name) const { return findSection(name); }

ReportValues::Iterator* ReportValues::CreateSectionIterator(const ctemplate::TemplateString& name) const {
  const Section* const section = findSection(name);
  return new LevelIterator(section ? section->first : nullptr);
}

bool ReportValues::IsHiddenTemplate(const ctemplate::TemplateString&) const { return true; }

const char* ReportValues::GetIncludeTemplateName(const ctemplate::TemplateString&, int) const { return ""; }

ReportValues::Iterator* ReportValues::CreateTemplateIterator(const ctemplate::TemplateString&) const {
  return new LevelIterator(nullptr);
}

void ReportValues::DumpToString(std::string* out, int) const {
  for (const Values* values = values_; values; values = values->next) {
    for (std::size_t i = 0; i < values->count; ++i) out->append(values->entries[i]).append("\n");
  }
}

}  // namespace Velmar::Host
