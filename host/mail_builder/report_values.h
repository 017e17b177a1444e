#pragma once

// The values and sections that a template is expanded with.

#include <ctemplate/template_dictionary_interface.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Velmar::Host {

/// What a template sees at one level: the whole report, one of its sections. A name that is not found here is looked
/// for in the level around it.
///
/// Owns the levels within. Used by one thread at a time; expanding changes nothing.
class ReportValues final : public ctemplate::TemplateDictionaryInterface {
 public:
  ReportValues() = default;
  ~ReportValues() override = default;

  /// Sets a value, in place of an earlier one of that name.
  void set(std::string_view name, std::string value);

  /// Shows a section once more; the level that it is shown with lives as long as this one.
  ReportValues& addSection(std::string_view name);

  /// Shows a section once, unless it is shown already.
  void showSection(std::string_view name);

 private:
  using Levels = std::vector<std::unique_ptr<ReportValues>>;
  class LevelIterator;

  explicit ReportValues(const ReportValues* around) : around_(around) {}

  const Levels* findSection(std::string_view name) const;

  // What ctemplate asks for.
  ctemplate::TemplateString GetValue(const ctemplate::TemplateString& variable) const override;
  bool IsHiddenSection(const ctemplate::TemplateString& name) const override;
  bool IsUnhiddenSection(const ctemplate::TemplateString& name) const override;
  Iterator* CreateSectionIterator(const ctemplate::TemplateString& name) const override;
  // Includes are refused when a template is parsed.
  bool IsHiddenTemplate(const ctemplate::TemplateString& name) const override;
  const char* GetIncludeTemplateName(const ctemplate::TemplateString& name, int index) const override;
  Iterator* CreateTemplateIterator(const ctemplate::TemplateString& name) const override;
  void DumpToString(std::string* out, int indent) const override;

  const ReportValues* around_ = nullptr;
  std::vector<std::pair<std::string, std::string>> values_;
  std::vector<std::pair<std::string, Levels>> sections_;
};

}  // namespace Velmar::Host
