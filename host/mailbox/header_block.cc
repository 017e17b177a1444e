// Scans a header block once for the starts of its fields and answers look-ups from them. Called for each held message
// of a window, so the scan is by memchr and copies nothing but the block itself. It must not interpret values: they
// are hostile and are decoded once, where they are shown.

#include "host/mailbox/header_block.h"

#include <algorithm>

namespace Velmar::Host {
namespace {

constexpr std::size_t kUsualFields = 64;

bool isBlank(char c) noexcept { return c == ' ' || c == '\t'; }
bool isLineEnd(char c) noexcept { return c == '\n' || c == '\r'; }
char lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return lower(x) == lower(y); });
}

// Finds line ends from left to right. Each byte is searched at most once for each of the two characters, also when
// one of them never occurs.
class LineEnds {
 public:
  explicit LineEnds(std::string_view text) : text_(text) {}

  // The start of the line after the one that `from` lies in.
  std::size_t nextLine(std::size_t from) {
    if (lineFeed_ == kUnknown || lineFeed_ < from) lineFeed_ = position('\n', from);
    if (carriageReturn_ == kUnknown || carriageReturn_ < from) carriageReturn_ = position('\r', from);
    if (lineFeed_ <= carriageReturn_) return std::min(lineFeed_ + 1, text_.size());
    return afterCarriageReturn(carriageReturn_);
  }

 private:
  static constexpr std::size_t kUnknown = static_cast<std::size_t>(-1);

  std::size_t position(char c, std::size_t from) const { return std::min(text_.find(c, from), text_.size()); }

  // CR CR LF is one line end, as relays that add a CR make it. So are CRs at the very end: a LF may follow in text that
  // is not read yet.
  std::size_t afterCarriageReturn(std::size_t at) const {
    const std::size_t other = std::min(text_.find_first_not_of('\r', at), text_.size());
    if (other == text_.size()) return other;
    return text_[other] == '\n' ? other + 1 : at + 1;
  }

  std::string_view text_;
  std::size_t lineFeed_ = kUnknown;
  std::size_t carriageReturn_ = kUnknown;
};

std::string_view trimmed(std::string_view text) noexcept {
  const auto drop = [](char c) { return isBlank(c) || isLineEnd(c); };
  while (!text.empty() && drop(text.front())) text.remove_prefix(1);
  while (!text.empty() && drop(text.back())) text.remove_suffix(1);
  return text;
}

std::string unfolded(std::string_view text) {
  std::string value(trimmed(text));
  std::erase_if(value, isLineEnd);
  return value;
}

// The body of `field` when it has this name.
std::optional<std::string_view> bodyOf(std::string_view field, std::string_view name) noexcept {
  if (!equalsIgnoringCase(field.substr(0, name.size()), name)) return std::nullopt;
  field.remove_prefix(name.size());
  while (!field.empty() && isBlank(field.front())) field.remove_prefix(1);
  if (field.empty() || field.front() != ':') return std::nullopt;
  return field.substr(1);
}

}  // namespace

HeaderBlock::HeaderBlock(std::string_view text) {
  starts_.reserve(kUsualFields);
  LineEnds lines(text);
  std::size_t line = 0;
  while (line < text.size() && !isLineEnd(text[line])) {
    if (!isBlank(text[line])) starts_.push_back(static_cast<std::uint32_t>(line));
    line = lines.nextLine(line);
  }
  complete_ = line < text.size();
  text_.assign(text.substr(0, line));
}

std::string_view HeaderBlock::field(std::size_t index) const noexcept {
  const std::size_t start = starts_[index];
  const std::size_t end = index + 1 < starts_.size() ? starts_[index + 1] : text_.size();
  return std::string_view(text_).substr(start, end - start);
}

std::optional<std::string> HeaderBlock::find(std::string_view name) const {
  if (name.empty()) return std::nullopt;
  for (std::size_t i = 0; i < starts_.size(); ++i) {
    if (lower(text_[starts_[i]]) != lower(name.front())) continue;
    if (const auto body = bodyOf(field(i), name)) return unfolded(*body);
  }
  return std::nullopt;
}

}  // namespace Velmar::Host
