#pragma once

// Where a marker stands in a page's markup, and what the markup itself asks of mail programs.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Velmar::Host {

/// Follows the tags of a page through the pieces of text between its markers.
class HtmlPlace {
 public:
  void read(std::string_view piece) noexcept;

  /// The value of an attribute begins here, and no quote was opened for it.
  bool beginsUnquotedValue() const noexcept { return inTag_ && quote_ == '\0' && last_ == '='; }

  /// The value of an attribute begins here, behind a quote.
  bool beginsQuotedValue() const noexcept { return quote_ != '\0' && last_ == quote_; }

 private:
  bool inTag_ = false;
  char quote_ = '\0';  ///< the open one
  char last_ = '\0';
};

/// Something in the markup that a mail program will not show as a browser does.
struct MarkupRemark {
  std::size_t place = 0;  ///< of its "<"
  std::string text;
  bool fault = true;  ///< else some mail programs do show it
};

/// Scripts, and images that neither the mail carries nor a marker makes, in their order. Linear time.
std::vector<MarkupRemark> markupRemarks(std::string_view html);

}  // namespace Velmar::Host
