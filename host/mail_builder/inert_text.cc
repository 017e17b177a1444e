// Makes sender and subject of a held message harmless to look at. The modifiers "x-inert=" and "x-inert-text=" call
// this while a report is expanded. Markup is not its business: values are escaped where they land.

#include "host/mail_builder/inert_text.h"

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <memory>

#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr int kMaxMarks = 4;          // the most that a living script puts on one letter
constexpr std::size_t kMaxBytes = 2;  // a character, on average
constexpr std::size_t kEllipsisBytes = 3;
constexpr int kLongWord = 30;
constexpr UChar32 kNonJoiner = 0x200C;
constexpr UChar32 kJoiner = 0x200D;
constexpr UChar32 kZeroWidthSpace = 0x200B;
constexpr UChar32 kEllipsis = 0x2026;

bool isMark(UChar32 c) { return (U_GET_GC_MASK(c) & U_GC_M_MASK) != 0; }
bool isVariation(UChar32 c) { return c >= 0xFE00 && c <= 0xFE0F; }

/// Whether a joiner after `before` changes how the text is read: in emoji, after Indic and in Arabic letters.
bool takesJoiner(UChar32 before) {
  return u_hasBinaryProperty(before, UCHAR_EXTENDED_PICTOGRAPHIC) ||
         u_hasBinaryProperty(before, UCHAR_EMOJI_MODIFIER) || before == 0xFE0F ||
         u_getCombiningClass(before) == 9 ||  // virama
         u_getIntPropertyValue(before, UCHAR_JOINING_TYPE) == U_JT_DUAL_JOINING;
}

/// Takes over one code point after another, those that hide or pile up excepted.
class VisibleText {
 public:
  void add(UChar32 c) {
    if (!isKept(c)) return;
    marks_ = isMark(c) ? marks_ + 1 : 0;
    last_ = c;
    text_.append(c);
  }
  const icu::UnicodeString& text() const { return text_; }

 private:
  bool isKept(UChar32 c) const {
    if (c == kJoiner || c == kNonJoiner) return takesJoiner(last_);
    if (isVariation(c)) return last_ != 0 && !isMark(last_);
    if (u_hasBinaryProperty(c, UCHAR_DEFAULT_IGNORABLE_CODE_POINT) || u_charType(c) == U_FORMAT_CHAR) return false;
    return !isMark(c) || (last_ != 0 && marks_ < kMaxMarks);
  }

  icu::UnicodeString text_;
  UChar32 last_ = 0;
  int marks_ = 0;
};

/// This thread's breaker between what readers see as characters.
icu::BreakIterator& characterBreaker() {
  thread_local const std::unique_ptr<icu::BreakIterator> kBreaker = [] {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> made(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status) || !made) {
      throw Exception("TemplateException", 4, "InertText", __LINE__,
                      std::string("cannot find characters: ") + u_errorName(status));
    }
    return made;
  }();
  return *kBreaker;
}

/// The bytes that a code point takes in UTF-8; on a page those of its escape.
std::size_t bytesOf(UChar32 c, LinkBreak links) {
  if (links == LinkBreak::kHidden) {
    if (c == '<' || c == '>') return 4;
    if (c == '&' || c == '\'') return 5;
    if (c == '"') return 6;
  }
  return static_cast<std::size_t>(U8_LENGTH(c));
}

/// Takes over a text bit by bit and breaks what would become a link: a dot within a name, an "@" before one, "://". On
/// a page very long words too.
class LinkBreaker {
 public:
  LinkBreaker(const icu::UnicodeString& text, LinkBreak links) : text_(text), links_(links) {}

  void add(int32_t from, int32_t to) {
    for (int32_t i = from; i < to; i = text_.moveIndex32(i, 1)) add(i);
  }

  /// What was taken over, and how long that is on the page or in the text.
  icu::UnicodeString& text() { return out_; }
  std::size_t bytes() const { return bytes_; }

 private:
  /// Ideographic full stops stand for dots in a link too, but end sentences: they are not broken where it shows.
  bool isDot(UChar32 c) const {
    return c == '.' || c == 0xFF0E || (links_ == LinkBreak::kHidden && (c == 0x3002 || c == 0xFF61));
  }

  bool isWordAt(int32_t i) const { return i >= 0 && i < text_.length() && u_isalnum(text_.char32At(i)); }

  /// A dot between two words; in plain text one before two letters at least, so that "2.0" stays as it is.
  bool isDotOfName(int32_t i) const {
    if (i == 0 || !isWordAt(text_.moveIndex32(i, -1)) || !isWordAt(i + 1)) return false;
    return links_ == LinkBreak::kHidden || (u_isalpha(text_.char32At(i + 1)) && isWordAt(text_.moveIndex32(i + 1, 1)));
  }

  bool isScheme(int32_t i) const { return text_.compare(i, 3, u"://") == 0; }

  void put(UChar32 c) {
    out_.append(c);
    bytes_ += bytesOf(c, links_);
  }

  void add(int32_t i) {
    const UChar32 c = text_.char32At(i);
    const bool hidden = links_ == LinkBreak::kHidden;
    run_ = u_isalnum(c) ? run_ + 1 : 0;
    if (hidden && (c == '@' || run_ > kLongWord)) {
      put(kZeroWidthSpace);
      run_ = 1;
    }
    const bool broken = (isDot(c) && isDotOfName(i)) || isScheme(i);
    if (broken && !hidden) put('[');
    put(c);
    if (broken) put(hidden ? kZeroWidthSpace : ']');
  }

  const icu::UnicodeString& text_;
  LinkBreak links_;
  icu::UnicodeString out_;
  std::size_t bytes_ = 0;
  int run_ = 0;  ///< letters without a place for a break
};

/// The text with its links broken, as far as its characters and their bytes are within bounds.
icu::UnicodeString shown(const icu::UnicodeString& text, std::size_t characters, LinkBreak links) {
  const std::size_t bytes = characters * kMaxBytes;
  icu::BreakIterator& breaker = characterBreaker();
  breaker.setText(text);
  LinkBreaker taken(text, links);
  int32_t kept = 0;  // of the text taken over, with room for an ellipsis
  std::size_t seen = 0;
  for (int32_t from = 0, to = 0; (to = breaker.next()) != icu::BreakIterator::DONE; from = to) {
    taken.add(from, to);
    if (++seen > characters || taken.bytes() > bytes) {
      taken.text().truncate(kept);
      return taken.text().append(kEllipsis);
    }
    if (seen < characters && taken.bytes() + kEllipsisBytes <= bytes) kept = taken.text().length();
  }
  return taken.text();
}

}  // namespace

std::string inertText(std::string_view text, std::size_t characters, LinkBreak links) {
  VisibleText visible;
  const auto all = icu::UnicodeString::fromUTF8({text.data(), static_cast<int32_t>(text.size())});
  for (int32_t i = 0; i < all.length(); i = all.moveIndex32(i, 1)) visible.add(all.char32At(i));
  std::string utf8;
  return shown(visible.text(), std::max<std::size_t>(characters, 1), links).toUTF8String(utf8);
}

}  // namespace Velmar::Host
