// Wraps the plain-text body of a report, once it is expanded, for templates that ask for it.

#include "host/mail_builder/text_wrap.h"

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <memory>
#include <string>

#include "platform/types.h"

namespace Velmar::Host {
namespace {

/// Deeper than any line of a template begins, so that no part of a held text can pass for one.
constexpr char16_t kDeeper[] = u"      ";

icu::BreakIterator& lineBreaker() {
  thread_local const std::unique_ptr<icu::BreakIterator> kBreaker = [] {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> made(icu::BreakIterator::createLineInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status) || !made) {
      throw Exception("TemplateException", 4, "TextWrap", __LINE__,
                      std::string("cannot find where lines may end: ") + u_errorName(status));
    }
    return made;
  }();
  return *kBreaker;
}

std::size_t columnsOf(UChar32 c) {
  if ((U_GET_GC_MASK(c) & (U_GC_MN_MASK | U_GC_ME_MASK | U_GC_CF_MASK)) != 0) return 0;
  const int width = u_getIntPropertyValue(c, UCHAR_EAST_ASIAN_WIDTH);
  return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

std::size_t columnsOf(const icu::UnicodeString& text) {
  std::size_t columns = 0;
  for (int32_t i = 0; i < text.length(); i = text.moveIndex32(i, 1)) columns += columnsOf(text.char32At(i));
  return columns;
}

/// Whether a line may end before `place`, where ICU says that it may: not within words of ASCII, such as links.
bool mayBreak(const icu::UnicodeString& text, int32_t place) {
  return text[place - 1] == u' ' || text[place - 1] >= 0x80 || text[place] >= 0x80;
}

/// A word that means the same in pieces: letters, digits and marks only, perhaps cut off by an ellipsis.
bool isPlainWord(const icu::UnicodeString& word) {
  for (int32_t i = 0; i < word.length(); i = word.moveIndex32(i, 1)) {
    const UChar32 c = word.char32At(i);
    if (!u_isalnum(c) && (U_GET_GC_MASK(c) & U_GC_M_MASK) == 0 && c != 0x2026) return false;
  }
  return true;
}

/// Builds the lines that one line becomes.
class Wrapping {
 public:
  Wrapping(const icu::UnicodeString& line, std::size_t columns) : columns_(columns) {
    int32_t blanks = 0;
    while (blanks < line.length() && line[blanks] == u' ') ++blanks;
    indent_ = icu::UnicodeString(line, 0, blanks);
    if (blanks > 0) indent_.append(kDeeper);
  }

  /// The piece between two places where a line may end, with the blanks at its end.
  void add(const icu::UnicodeString& piece) {
    icu::UnicodeString bare(piece);
    while (bare.endsWith(u" ")) bare.truncate(bare.length() - 1);
    if (begun_ && column_ + columnsOf(bare) > columns_) newLine();
    if (column_ + columnsOf(bare) > columns_ && isPlainWord(bare)) return addInPieces(piece);
    out_.append(piece);
    column_ += columnsOf(piece);
    begun_ = begun_ || !bare.isEmpty();
  }

  const icu::UnicodeString& text() {
    trimEnd();
    return out_;
  }

 private:
  void newLine() {
    trimEnd();
    out_.append(u'\n').append(indent_);
    column_ = columnsOf(indent_);
  }

  void addInPieces(const icu::UnicodeString& word) {
    for (int32_t i = 0; i < word.length(); i = word.moveIndex32(i, 1)) {
      const UChar32 c = word.char32At(i);
      if (column_ + columnsOf(c) > columns_) newLine();
      out_.append(c);
      column_ += columnsOf(c);
    }
    begun_ = true;
  }

  void trimEnd() {
    while (out_.endsWith(u" ")) out_.truncate(out_.length() - 1);
  }

  std::size_t columns_;
  icu::UnicodeString indent_;
  icu::UnicodeString out_;
  std::size_t column_ = 0;
  bool begun_ = false;
};

icu::UnicodeString wrappedLine(const icu::UnicodeString& line, std::size_t columns) {
  if (columnsOf(line) <= columns) return line;
  icu::BreakIterator& breaker = lineBreaker();
  breaker.setText(line);
  Wrapping wrapping(line, columns);
  int32_t from = 0;
  for (int32_t to = breaker.next(); to != icu::BreakIterator::DONE; to = breaker.next()) {
    if (to < line.length() && !mayBreak(line, to)) continue;
    wrapping.add(icu::UnicodeString(line, from, to - from));
    from = to;
  }
  return wrapping.text();
}

}  // namespace

std::string wrapped(std::string_view text, std::size_t columns) {
  std::string lines;
  for (std::size_t from = 0; from <= text.size();) {
    const std::size_t end = std::min(text.find('\n', from), text.size());
    const std::string_view line = text.substr(from, end - from);
    wrappedLine(icu::UnicodeString::fromUTF8({line.data(), static_cast<int32_t>(line.size())}), columns)
        .toUTF8String(lines);
    if (end < text.size()) lines += '\n';
    from = end + 1;
  }
  return lines;
}

}  // namespace Velmar::Host
