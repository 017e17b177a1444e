#pragma once

// Languages of users, for what ICU words in them: dates, names of time zones.

#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace Velmar::Host {

/// The locale of a language code; English for one that is empty, overlong or not known to ICU. Any thread.
icu::Locale localeOf(std::string_view language);

/// The text in UTF-8. No-break spaces become blanks: old mail programs show them as boxes.
std::string plainUtf8(icu::UnicodeString text);

/// Something of ICU that is dear to make and not to be shared, for a few languages. Used by one thread.
template <class Thing>
class PerLanguage {
 public:
  using Make = std::function<std::unique_ptr<Thing>(const icu::Locale&)>;
  explicit PerLanguage(Make make) : make_(std::move(make)) {}

  /// That of a language; null when it cannot be made. Lives until the next call.
  Thing* find(std::string_view language) {
    language = language.substr(0, kMaxKey);
    if (const auto known = things_.find(language); known != things_.end()) return known->second.get();
    std::unique_ptr<Thing> thing = make_(localeOf(language));
    if (!thing) return nullptr;
    if (things_.size() >= kMaxThings) things_.clear();
    return (things_[std::string(language)] = std::move(thing)).get();
  }

 private:
  static constexpr std::size_t kMaxKey = 65;  // one more than a language code may have, so that a longer one stays so
  static constexpr std::size_t kMaxThings = 32;

  Make make_;
  std::map<std::string, std::unique_ptr<Thing>, std::less<>> things_;
};

}  // namespace Velmar::Host
