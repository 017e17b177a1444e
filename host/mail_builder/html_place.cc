// A look at markup that is enough for the lint: it trusts the template's author, so it is no sanitizer. The template
// parser keeps its own books about escaping.

#include "host/mail_builder/html_place.h"

#include <algorithm>

namespace Velmar::Host {
namespace {

constexpr std::string_view kBlanks = " \t\n";
constexpr std::string_view kSource = "src";
constexpr std::string_view kCommentStart = "<!--";
constexpr std::string_view kCommentEnd = "-->";

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

std::string lowered(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return lower;
}

std::string_view withoutBlanks(std::string_view text) {
  return text.substr(std::min(text.find_first_not_of(kBlanks), text.size()));
}

/// The value of "src" in a tag, which begins with its name; empty when it has none.
std::string_view sourceOf(std::string_view tag) {
  std::size_t name = tag.find(kSource);
  std::string_view value;
  for (; name != std::string_view::npos && !value.starts_with('='); name = tag.find(kSource, name + 1)) {
    const bool whole = kBlanks.find(tag[name - 1]) != kBlanks.npos;
    value = whole ? withoutBlanks(tag.substr(name + kSource.size())) : std::string_view();
  }
  if (!value.starts_with('=')) return {};
  value = withoutBlanks(value.substr(1));
  const bool quoted = value.starts_with('"') || value.starts_with('\'');
  const std::string_view end = quoted ? value.substr(0, 1) : std::string_view(" \t\n>");
  if (quoted) value.remove_prefix(1);
  return value.substr(0, value.find_first_of(end));
}

/// The name of the attribute whose value begins behind `tag`.
std::string_view nameBefore(std::string_view tag) noexcept {
  tag = tag.substr(0, tag.find_last_not_of(" \t\n=") + 1);
  return tag.substr(tag.find_last_of(" \t\n\"'") + 1);
}

/// Attributes that make something happen.
bool isActiveName(std::string_view name) noexcept {
  constexpr std::string_view kNames[] = {"href", "src", "action", "background", "style", "on"};
  return std::any_of(std::begin(kNames), std::end(kNames), [name](std::string_view active) {
    return name.size() >= active.size() &&
           std::equal(active.begin(), active.end(), name.begin(), [](char a, char n) { return a == (n | 0x20); });
  });
}

bool isElsewhere(std::string_view source) {
  constexpr std::string_view kSchemes[] = {"http:", "https:", "//", "data:"};
  return std::any_of(std::begin(kSchemes), std::end(kSchemes), [source](auto s) { return source.starts_with(s); });
}

constexpr std::size_t kLongestTag = 4096;  // keeps the work linear where a ">" is missing
constexpr char kByMarker[] = ": show an image by {{TITLE_LOGO:h:x-img-cid=TITLE_LOGO:none}}";

}  // namespace

/// `i` moves to the end of the comment, which is text as well as not. "<!-->" is a whole one.
void HtmlPlace::readComment(std::string_view piece, std::size_t& i) noexcept {
  const std::size_t end = piece.find(kCommentEnd, i);
  inComment_ = end == std::string_view::npos;
  i = std::min(end, piece.size());
}

void HtmlPlace::readTag(std::string_view piece, std::size_t i) noexcept {
  const char c = piece[i];
  if (quote_ != '\0') {
    if (c == quote_) quote_ = '\0';
  } else if (c == '"' || c == '\'') {
    quote_ = c;
    activeValue_ = isActiveName(nameBefore(piece.substr(0, i)));
  } else {
    inTag_ = c != '>';
  }
}

void HtmlPlace::read(std::string_view piece) noexcept {
  for (std::size_t i = 0; i < piece.size(); ++i) {
    if (inComment_) {
      readComment(piece, i);
    } else if (inTag_) {
      readTag(piece, i);
    } else if (piece.substr(i).starts_with(kCommentStart)) {
      inComment_ = true;
    } else {
      inTag_ = piece[i] == '<' && i + 1 < piece.size() && isLetter(piece[i + 1]);
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
