#pragma once

// One value of the configuration file on its way into a record. Whatever does not fit is refused here, with its place.

#include <toml++/toml.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include "host/common/config_checks.h"

namespace Velmar::Host {

/// A text as it may stand in a message of one line: control characters escaped, of a long one the start.
std::string onOneLine(std::string_view text);

/// Throws the Exception of one fault: "FILE:LINE: KEY: VALUE: REASON". Line 0 (an absent table) reads as 1.
/// KEY and REASON go through oneLine.
[[noreturn]] void refuseConfig(const std::string& file, std::size_t line, std::string_view key, std::string_view value,
                               std::string_view reason);

/// A value and its place. It refers to the file name and to the node, which must outlive it.
/// Every reading operation throws Exception when the value is not what the key wants.
class ConfigValue {
 public:
  enum class Empty { kRefused, kAllowed };

  ConfigValue(const std::string& file, std::string key, const toml::node& node);

  [[noreturn]] void refuse(std::string_view reason) const;
  std::size_t line() const;
  /// An element of this value, under the same key.
  ConfigValue item(const toml::node& node) const { return {*file_, key_, node}; }

  const toml::table& table() const;
  const toml::array& list(std::string_view reason) const;
  bool boolean() const;

  /// A whole number within both bounds; without them whatever the field can hold.
  template <class Int>
  void number(Int& field, std::int64_t least = std::numeric_limits<Int>::min(),
              std::int64_t most = std::numeric_limits<Int>::max()) const {
    field = static_cast<Int>(integer(least, most));
  }

  /// One of these words, as the value that stands beside it.
  template <class Choice>
  Choice choice(std::initializer_list<std::pair<std::string_view, Choice>> words) const {
    const std::string word = text(kLongestWord, nullptr);
    std::string known;
    for (const auto& [name, meaning] : words) {
      if (name == word) return meaning;
      known.append(known.empty() ? "\"" : ", \"").append(name).append("\"");
    }
    refuse("must be one of " + known);
  }

  /// A text of at most `most` bytes without control characters that passes `check` (null passes all).
  std::string text(std::size_t most, TextCheck check, Empty empty = Empty::kRefused) const;

  /// The same into an array, with its final NUL.
  template <std::size_t size>
  void text(char (&field)[size], TextCheck check, Empty empty = Empty::kRefused) const {
    const std::string value = text(size - 1, check, empty);
    field[value.copy(field, size - 1)] = '\0';
  }

 private:
  static constexpr std::size_t kLongestWord = 64;

  std::int64_t integer(std::int64_t least, std::int64_t most) const;

  const std::string* file_;
  std::string key_;
  const toml::node* node_;
};

}  // namespace Velmar::Host
