// A look at markup that is enough for the lint: it trusts the template's author, so it is no sanitizer. The template
// parser keeps its own books about escaping.

#include "host/mail_builder/html_place.h"

#include <algorithm>

namespace Velmar::Host {
namespace {

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

std::string lowered(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return lower;
}

/// The value of "src" in the rest of a tag; empty when it has none.
std::string_view sourceOf(std::string_view tag) {
  const std::size_t name = tag.find("src=");
  if (name == std::string_view::npos) return {};
  std::string_view value = tag.substr(name + 4);
  const bool quoted = value.starts_with('"') || value.starts_with('\'');
  const std::string_view end = quoted ? value.substr(0, 1) : std::string_view(" \t\n>");
  if (quoted) value.remove_prefix(1);
  return value.substr(0, value.find_first_of(end));
}

bool isElsewhere(std::string_view source) {
  constexpr std::string_view kSchemes[] = {"http:", "https:", "//", "data:"};
  return std::any_of(std::begin(kSchemes), std::end(kSchemes), [source](auto s) { return source.starts_with(s); });
}

constexpr std::size_t kLongestTag = 4096;  // keeps the work linear where a ">" is missing
constexpr char kByMarker[] = ": show an image by {{TITLE_LOGO:h:x-img-cid=TITLE_LOGO:none}}";

}  // namespace

void HtmlPlace::read(std::string_view piece) noexcept {
  for (std::size_t i = 0; i < piece.size(); ++i) {
    const char c = piece[i];
    if (!inTag_) {
      inTag_ = c == '<' && i + 1 < piece.size() && isLetter(piece[i + 1]);
    } else if (quote_ != '\0') {
      if (c == quote_) quote_ = '\0';
    } else if (c == '"' || c == '\'') {
      quote_ = c;
    } else {
      inTag_ = c != '>';
    }
  }
  last_ = piece.empty() ? '\0' : piece.back();
}

std::vector<MarkupRemark> markupRemarks(std::string_view html) {
  const std::string lower = lowered(html);
  std::vector<MarkupRemark> remarks;
  for (std::size_t at = lower.find('<'); at != std::string::npos; at = lower.find('<', at + 1)) {
    const std::string_view rest = std::string_view(lower).substr(at + 1);
    if (rest.starts_with("script")) remarks.push_back({at, "no mail program runs a script: remove it"});
    if (!rest.starts_with("img")) continue;
    const std::string_view tag = rest.substr(0, kLongestTag);
    const std::string_view source = sourceOf(tag.substr(0, tag.find('>')));
    if (source.empty() || source.find("{{") != std::string_view::npos) continue;
    const std::string image = "the image \"" + std::string(source.substr(0, 60)) + "\" ";
    const bool elsewhere = isElsewhere(source);
    remarks.push_back({at,
                       image +
                           (elsewhere ? "is not in the mail, and many mail programs do not load it"
                                      : "does not exist for the mail's reader") +
                           kByMarker,
                       !elsewhere});
  }
  return remarks;
}

}  // namespace Velmar::Host
