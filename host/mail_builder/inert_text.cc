// Makes sender and subject of a held message harmless to look at. The modifiers "x-inert=" and "x-inert-text=" call
// this while a report is expanded. Markup is not its business: values are escaped where they land.

#include "host/mail_builder/inert_text.h"

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>

#include "host/mail_builder/byte_run.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr int kMaxMarks = 4;          // the most that a living script puts on one letter
constexpr std::size_t kMaxBytes = 2;  // a character, on average
constexpr std::string_view kEllipsis = "\xE2\x80\xA6";
constexpr int kLongWord = 30;
constexpr UChar32 kNonJoiner = 0x200C;
constexpr UChar32 kJoiner = 0x200D;
constexpr UChar32 kZeroWidthSpace = 0x200B;

bool isAscii(UChar32 c) { return c < 0x80; }
bool isLetterOrDigit(UChar32 c) {
  if (!isAscii(c)) return u_isalnum(c);
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
bool isMark(UChar32 c) { return !isAscii(c) && (U_GET_GC_MASK(c) & U_GC_M_MASK) != 0; }
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
  explicit VisibleText(std::size_t bytes) { text_.reserve(bytes); }

  void add(UChar32 c) {
    if (!isAscii(c) && !isKept(c)) return;
    marks_ = isMark(c) ? marks_ + 1 : 0;
    last_ = c;
    if (U_IS_SUPPLEMENTARY(c)) text_ += static_cast<char16_t>(U16_LEAD(c));
    text_ += static_cast<char16_t>(U_IS_SUPPLEMENTARY(c) ? U16_TRAIL(c) : c);
  }
  const std::u16string& text() const { return text_; }

 private:
  bool isKept(UChar32 c) const {
    if (c == kJoiner || c == kNonJoiner) return takesJoiner(last_);
    if (isVariation(c)) return last_ != 0 && !isMark(last_);
    if (u_hasBinaryProperty(c, UCHAR_DEFAULT_IGNORABLE_CODE_POINT) || u_charType(c) == U_FORMAT_CHAR) return false;
    return !isMark(c) || (last_ != 0 && marks_ < kMaxMarks);
  }

  std::u16string text_;
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

/// Where what readers see as characters end: in ASCII, behind each byte.
class AsciiCharacters {
 public:
  explicit AsciiCharacters(std::string_view) {}
  static std::size_t endOf(std::size_t from) { return from + 1; }
};

/// Where what readers see as characters end.
class Characters {
 public:
  explicit Characters(std::u16string_view text)
      : text_(text), alias_(false, text.data(), static_cast<std::int32_t>(text.size())) {}

  /// The end of the one that begins at `from`.
  std::size_t endOf(std::size_t from) {
    const std::size_t next = from + 1;
    if (next == text_.size() || (isAscii(text_[from]) && isAscii(text_[next]))) return next;
    if (!begun_) characterBreaker().setText(alias_);
    begun_ = true;
    return static_cast<std::size_t>(characterBreaker().following(static_cast<std::int32_t>(from)));
  }

 private:
  std::u16string_view text_;
  icu::UnicodeString alias_;
  bool begun_ = false;
};

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
/// a page very long words too. Char: char for a text of nothing but ASCII, else char16_t.
template <class Char>
class LinkBreaker {
 public:
  LinkBreaker(std::basic_string_view<Char> text, LinkBreak links) : text_(text), links_(links) {
    out_.reserve(text.size() + text.size() / 4);
  }

  void add(std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to; i = next(i)) add(i);
  }

  /// What was taken over, in UTF-8, and how long that is where it lands.
  std::string& text() { return out_; }
  std::size_t bytes() const { return bytes_; }

 private:
  /// Ideographic full stops stand for dots in a link too, but end sentences: they are not broken where it shows.
  bool isDot(UChar32 c) const {
    return c == '.' || c == 0xFF0E || (links_ == LinkBreak::kHidden && (c == 0x3002 || c == 0xFF61));
  }

  /// The code point that the unit at `i` is a part of.
  UChar32 at(std::size_t i) const {
    if constexpr (sizeof(Char) == 1) return text_[i];
    UChar32 c = 0;
    U16_GET(text_.data(), std::size_t{0}, i, text_.size(), c);
    return c;
  }

  std::size_t next(std::size_t i) const {
    if constexpr (sizeof(Char) == 1) return i + 1;
    U16_FWD_1(text_.data(), i, text_.size());
    return i;
  }

  bool isWordAt(std::size_t i) const { return i < text_.size() && isLetterOrDigit(at(i)); }

  /// A dot between two words; in plain text one before two letters at least, so that "2.0" stays as it is.
  bool isDotOfName(std::size_t i) const {
    if (i == 0 || !isWordAt(i - 1) || !isWordAt(i + 1)) return false;
    return links_ == LinkBreak::kHidden || (u_isalpha(at(i + 1)) && isWordAt(next(i + 1)));
  }

  bool isScheme(std::size_t i) const {
    return text_[i] == ':' && i + 2 < text_.size() && text_[i + 1] == '/' && text_[i + 2] == '/';
  }

  void put(UChar32 c) {
    if (isAscii(c)) {
      out_ += static_cast<char>(c);
      bytes_ += bytesOf(c, links_);
      return;
    }
    char utf8[U8_MAX_LENGTH];
    std::size_t length = 0;
    U8_APPEND_UNSAFE(utf8, length, c);
    out_.append(utf8, length);
    bytes_ += bytesOf(c, links_);
  }

  void add(std::size_t i) {
    const UChar32 c = at(i);
    const bool hidden = links_ == LinkBreak::kHidden;
    run_ = isLetterOrDigit(c) ? run_ + 1 : 0;
    if (hidden && (c == '@' || run_ > kLongWord)) {
      put(kZeroWidthSpace);
      run_ = 1;
    }
    const bool broken = (isDot(c) && isDotOfName(i)) || isScheme(i);
    if (broken && !hidden) put('[');
    put(c);
    if (broken) put(hidden ? kZeroWidthSpace : ']');
  }

  std::basic_string_view<Char> text_;
  LinkBreak links_;
  std::string out_;
  std::size_t bytes_ = 0;
  int run_ = 0;  ///< letters without a place for a break
};

/// The text with its links broken, as far as its characters and their bytes are within bounds.
template <class Readers, class Char>
std::string shown(std::basic_string_view<Char> text, std::size_t characters, LinkBreak links) {
  const std::size_t bytes = characters * kMaxBytes;
  Readers readers(text);
  LinkBreaker<Char> taken(text, links);
  std::size_t kept = 0;  // of the text taken over, with room for an ellipsis
  std::size_t seen = 0;
  for (std::size_t from = 0, to = 0; from < text.size(); from = to) {
    to = readers.endOf(from);
    taken.add(from, to);
    if (++seen > characters || taken.bytes() > bytes) {
      taken.text().resize(kept);
      return taken.text().append(kEllipsis);
    }
    if (seen < characters && taken.bytes() + kEllipsis.size() <= bytes) kept = taken.text().size();
  }
  return std::move(taken.text());
}

VisibleText visibleText(std::string_view text) {
  VisibleText visible(text.size());
  const auto* utf8 = reinterpret_cast<const std::uint8_t*>(text.data());
  for (std::size_t i = 0; i < text.size();) {
    UChar32 c = 0;
    U8_NEXT_OR_FFFD(utf8, i, text.size(), c);
    visible.add(c);
  }
  return visible;
}

}  // namespace

bool showsNothing(std::string_view text) {
  constexpr char16_t kBrailleBlank = 0x2800;
  if (std::any_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 0x7f; })) return false;  // nearly always
  const VisibleText visible = visibleText(text);
  return std::all_of(visible.text().begin(), visible.text().end(),
                     [](char16_t c) { return u_isUWhiteSpace(c) || c == kBrailleBlank; });
}

std::string inertText(std::string_view text, std::size_t characters, LinkBreak links) {
  if (runOf(text, [](char c) { return (c & 0x80) == 0; }) == text.size())
    return shown<AsciiCharacters>(text, characters, links);
  const VisibleText visible = visibleText(text);
  return shown<Characters>(std::u16string_view(visible.text()), characters, links);
}

}  // namespace Velmar::Host
