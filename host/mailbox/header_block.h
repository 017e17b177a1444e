#pragma once

// The header block of a message, as bytes.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Velmar::Host {

/// The fields of one message's header, looked up by name and copied only then.
///
/// Lines end in LF, CR LF (any number of CR before the LF) or a lone CR. The header ends before the first empty line,
/// else with the text. A line that begins with blank or tab continues the one before it. Lines without a colon, an
/// mbox "From " line among them, are no fields and end nothing. Time and memory are linear in the text.
/// Constant after construction, so any thread may look up.
class HeaderBlock {
 public:
  /// text  the beginning of a message, less than 4 GiB; only its header is copied
  explicit HeaderBlock(std::string_view text);

  /// Whether the end of the header was seen. When not, more text may bring more fields.
  bool complete() const noexcept { return complete_; }

  /// The body of the first field of this name (ASCII case does not matter; blanks before the colon are allowed):
  /// unfolded by dropping line ends, without blanks and tabs at both ends, otherwise the raw bytes, NUL included.
  /// Nothing when there is no such field.
  std::optional<std::string> find(std::string_view name) const;

 private:
  std::string_view field(std::size_t index) const noexcept;

  std::string text_;
  std::vector<std::uint32_t> starts_;  // of each line that continues no other
  bool complete_ = false;
};

}  // namespace Velmar::Host
