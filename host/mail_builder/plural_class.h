#pragma once

// The words that a language has for a number of things.

#include <cstdint>
#include <memory>
#include <string>

namespace Velmar::Host {

/// The plural rules of one language (Unicode CLDR). Does not change: any thread may ask.
class PluralClasses {
 public:
  /// language  BCP 47 tag such as "de" or "zh-Hans"; one that is unknown has the class "OTHER" only
  /// Throws Exception when ICU lacks its data.
  explicit PluralClasses(const std::string& language);
  PluralClasses(const PluralClasses&) = delete;
  PluralClasses& operator=(const PluralClasses&) = delete;
  ~PluralClasses();

  /// "ZERO", "ONE", "TWO", "FEW", "MANY" or "OTHER".
  std::string of(std::int32_t count) const;

  /// Whether the language is known at all.
  bool known() const noexcept;

 private:
  struct Rules;
  std::unique_ptr<Rules> rules_;
};

}  // namespace Velmar::Host
