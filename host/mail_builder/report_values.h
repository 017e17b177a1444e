#pragma once

// The values and sections that a template is expanded with.

#include <ctemplate/template_dictionary_interface.h>

#include <array>
#include <memory_resource>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Velmar::Host {

/// What all levels of one report share: their memory, and a number for each name that any of them uses.
class ReportMemory {
 public:
  using Name = unsigned;
  static constexpr Name kUnknown = 0;

  /// The number of a name, given out on first use.
  Name nameOf(std::string_view name);

  /// The number of a name; kUnknown when none was given out.
  Name knownName(std::string_view name) const;

  /// The text, copied to where it lives as long as this.
  std::string_view keep(std::string_view text);

  /// Something trivial enough to be forgotten without its destructor; it lives as long as this.
  template <class Thing, class... Arguments>
  Thing* make(Arguments&&... arguments) {
    return new (pool_.allocate(sizeof(Thing), alignof(Thing))) Thing{std::forward<Arguments>(arguments)...};
  }

 private:
  struct NumberedName {
    std::string name;
    Name number;
  };
  static constexpr std::size_t kPlaces = 64;

  /// Where a name is found; few share a place.
  static std::size_t placeOf(std::string_view name) {
    return name.empty() ? 0 : (name.size() * 5 + static_cast<unsigned char>(name.back())) % kPlaces;
  }

  std::pmr::monotonic_buffer_resource pool_;
  std::array<std::vector<NumberedName>, kPlaces> names_;
  Name last_ = kUnknown;
};

/// What a template sees at one level: the whole report, one of its sections. A name that is not found here is looked
/// for in the level around it.
///
/// Levels refer to the memory of the report, which must outlive them. Used by one thread at a time; expanding changes
/// nothing.
class ReportValues final : public ctemplate::TemplateDictionaryInterface {
 public:
  /// The whole report.
  explicit ReportValues(ReportMemory& memory) : memory_(memory) {}

  /// A level within another.
  ReportValues(ReportMemory& memory, const ReportValues* around) : memory_(memory), around_(around) {}

  /// Sets a value, in place of an earlier one of that name.
  void set(std::string_view name, std::string_view value);

  /// Shows a section once more; the level that it is shown with lives as long as the report's memory.
  ReportValues& addSection(std::string_view name);

  /// Shows a section once, unless it is shown already.
  void showSection(std::string_view name);

 private:
  using Name = ReportMemory::Name;
  class LevelIterator;

  /// What is known by name at one level, a few entries side by side: they are searched again and again.
  template <class Entry, std::size_t kRoom>
  struct Entries {
    std::array<Name, kRoom> names;
    std::array<Entry, kRoom> entries;
    std::size_t count;
    Entries* next;  ///< earlier ones, all places taken
  };
  struct Section {
    ReportValues* first;
    ReportValues* last;
  };
  using Values = Entries<std::string_view, 10>;
  using Sections = Entries<Section, 6>;

  template <class Some>
  static auto find(Some* some, Name name) -> decltype(some->entries.data());

  template <class Some>
  auto add(Some*& some, Name name) -> decltype(some->entries.data());

  const Section* findSection(const ctemplate::TemplateString& name) const;

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

  ReportMemory& memory_;
  const ReportValues* around_ = nullptr;
  Values* values_ = nullptr;
  Sections* sections_ = nullptr;
  ReportValues* next_ = nullptr;  ///< the next level of the same section
};

}  // namespace Velmar::Host
