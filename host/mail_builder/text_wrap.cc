// Wraps the plain-text body of a report, once it is expanded, for templates that ask for it.

#include "host/mail_builder/text_wrap.h"

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <memory>
#include <string>

#include "host/mail_builder/byte_run.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

/// Deeper than any line of a template begins, so that no part of a held text can pass for one.
constexpr std::string_view kDeeper = "      ";

bool isAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }

/// One character of UTF-8 and the bytes that it takes; negative where they are malformed.
struct Character {
  UChar32 point;
  std::size_t bytes;
};

Character characterAt(std::string_view text, std::size_t place) {
  if (isAscii(text[place])) return {text[place], 1};
  const auto left = static_cast<std::int32_t>(std::min<std::size_t>(text.size() - place, U8_MAX_LENGTH));
  std::int32_t bytes = 0;
  UChar32 point = 0;
  U8_NEXT(reinterpret_cast<const std::uint8_t*>(text.data()) + place, bytes, left, point);
  return {point, static_cast<std::size_t>(bytes)};
}

std::size_t columnsOf(UChar32 c) {
  if (c < 0x80) return 1;
  if ((U_GET_GC_MASK(c) & (U_GC_MN_MASK | U_GC_ME_MASK | U_GC_CF_MASK)) != 0) return 0;
  const int width = u_getIntPropertyValue(c, UCHAR_EAST_ASIAN_WIDTH);
  return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

bool isAscii(std::string_view text) {
  return runOf(text, [](char c) { return (c & 0x80) == 0; }) == text.size();
}

/// Never more than the text has bytes.
std::size_t columnsOf(std::string_view text) {
  if (isAscii(text)) return text.size();
  std::size_t columns = 0;
  for (std::size_t i = 0; i < text.size();) {
    const Character c = characterAt(text, i);
    columns += columnsOf(c.point);
    i += c.bytes;
  }
  return columns;
}

std::string_view withoutBlanksAtEnd(std::string_view text) { return text.substr(0, text.find_last_not_of(' ') + 1); }

/// A word that means the same in pieces: neither an address nor a link.
bool isPlainWord(std::string_view word) {
  return word.find('@') == std::string_view::npos && word.find("://") == std::string_view::npos;
}

/// Appends to `out` the lines that one line becomes.
class Wrapping {
 public:
  Wrapping(std::string_view line, std::size_t columns, std::string& out) : columns_(columns), out_(out) {
    const std::size_t blanks = std::min(line.find_first_not_of(' '), line.size());
    indent_ = line.substr(0, std::min(blanks, columns / 2));
    if (blanks > 0) indent_ += kDeeper;
  }

  /// The piece between two places where a line may end, with the blanks at its end.
  void add(std::string_view piece) {
    const std::string_view bare = withoutBlanksAtEnd(piece);
    const std::size_t width = columnsOf(bare);
    if (begun_ && column_ + width > columns_) newLine();
    if (column_ + width > columns_ && isPlainWord(bare)) {
      addInPieces(bare);
    } else {
      out_ += bare;
      column_ += width;
    }
    // Blanks never begin a line, however many there are: it would be an empty one.
    out_ += piece.substr(bare.size());
    column_ += piece.size() - bare.size();
    begun_ = begun_ || !bare.empty();
  }

  void end() { out_.resize(withoutBlanksAtEnd(out_).size()); }

 private:
  void newLine() {
    end();
    out_ += '\n';
    out_ += indent_;
    column_ = indent_.size();
  }

  /// Of a word that has blanks in it, because nothing may end a line behind an opening bracket, none begins a line.
  void addInPieces(std::string_view word) {
    bool fresh = false;
    for (std::size_t i = 0; i < word.size();) {
      const Character c = characterAt(word, i);
      const std::string_view bytes = word.substr(i, c.bytes);
      i += c.bytes;
      if (fresh && c.point == ' ') continue;
      fresh = column_ + columnsOf(c.point) > columns_;
      if (fresh) newLine();
      if (fresh && c.point == ' ') continue;
      out_ += bytes;
      column_ += columnsOf(c.point);
    }
  }

  std::size_t columns_;
  std::string& out_;
  std::string indent_;
  std::size_t column_ = 0;
  bool begun_ = false;
};

/// A line of ASCII may end after blanks only: words of ASCII, such as links, stay whole.
void wrapAscii(std::string_view line, Wrapping& wrapping) {
  for (std::size_t from = 0; from < line.size();) {
    const std::size_t blank = line.find(' ', from);
    const std::size_t to = std::min(line.find_first_not_of(' ', blank), line.size());
    wrapping.add(line.substr(from, to - from));
    from = to;
  }
}

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

/// Whether a line may end before `place`, where ICU says that it may: not within words of ASCII.
bool mayBreak(std::string_view text, std::size_t place) {
  return place == text.size() || text[place - 1] == ' ' || !isAscii(text[place - 1]) || !isAscii(text[place]);
}

void wrapByIcu(std::string_view line, Wrapping& wrapping) {
  UErrorCode status = U_ZERO_ERROR;
  UText text = UTEXT_INITIALIZER;
  utext_openUTF8(&text, line.data(), static_cast<std::int64_t>(line.size()), &status);
  icu::BreakIterator& breaker = lineBreaker();
  breaker.setText(&text, status);
  utext_close(&text);  // the breaker has a copy that reads the same bytes
  if (U_FAILURE(status)) {
    throw Exception("TemplateException", 4, "TextWrap", __LINE__,
                    std::string("cannot find where a line may end: ") + u_errorName(status));
  }
  std::size_t from = 0;
  for (std::int32_t next = breaker.next(); next != icu::BreakIterator::DONE; next = breaker.next()) {
    const auto to = static_cast<std::size_t>(next);
    if (!mayBreak(line, to)) continue;
    wrapping.add(line.substr(from, to - from));
    from = to;
  }
}

void wrapLine(std::string_view line, std::size_t columns, std::string& out) {
  if (line.size() <= columns || columnsOf(line) <= columns) {
    out += line;
    return;
  }
  Wrapping wrapping(line, columns, out);
  isAscii(line) ? wrapAscii(line, wrapping) : wrapByIcu(line, wrapping);
  wrapping.end();
}

}  // namespace

std::string wrapped(std::string_view text, std::size_t columns) {
  std::string lines;
  lines.reserve(text.size() + text.size() / 16);
  for (std::size_t from = 0; from <= text.size();) {
    const std::size_t end = std::min(text.find('\n', from), text.size());
    wrapLine(text.substr(from, end - from), columns, lines);
    if (end < text.size()) lines += '\n';
    from = end + 1;
  }
  return lines;
}

}  // namespace Velmar::Host
