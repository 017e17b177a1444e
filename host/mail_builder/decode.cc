// Raw header values to UTF-8. The search for held messages and the report template call this on hostile text.
//
// Decoded once, never again: what comes out of an encoded word is text, also when it looks like another word.
// Which charset a text is in: the one it names when every byte fits, else the first of the fallbacks that fits. The
// last fallback fits anything, so before it stands one question: did the named charset (UTF-8 where none is named) make
// sense of more characters than not? Then the text is damaged, cut in mid-character say, and not in another charset.

#include "host/mail_builder/decode.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/mail_builder/byte_run.h"
#include "host/mail_builder/charsets.h"
#include "host/mail_builder/encoded_words.h"
#include "host/mail_builder/utf8.h"
#include "platform/mail_builder.h"

namespace Velmar {
namespace {

using Host::appendAsUtf8;
using Host::Charset;
using Host::EncodedWord;
using Host::findCharset;
using Host::TextQuality;

bool isBlankText(std::string_view text) { return text.find_first_not_of(" \t\r\n") == std::string_view::npos; }

/// The value without the line ends of its folds (RFC 5322 section 2.2.3); the blanks behind them stay.
std::string unfolded(std::string_view raw) {
  std::string text;
  text.reserve(raw.size());
  std::size_t from = 0;
  for (std::size_t end = raw.find('\n'); end != std::string_view::npos; end = raw.find('\n', end + 1)) {
    const std::string_view next = raw.substr(end + 1, 1);
    if (next != " " && next != "\t") continue;
    std::string_view line = raw.substr(from, end - from);
    if (line.ends_with('\r')) line.remove_suffix(1);
    text += line;
    from = end + 1;
  }
  text += raw.substr(from);
  return text;
}

/// Collects decoded text. Words in one charset are held back until their run ends, since senders split characters.
class Decoder {
 public:
  explicit Decoder(const std::vector<std::string>& fallbacks) : fallbackNames_(fallbacks) {}

  void addText(std::string_view text) {
    endRun();
    static const Charset kUnnamed{"UTF-8"};
    if (!appendWhenSound(kUnnamed, text)) appendByFallbacks(kUnnamed, text);
  }

  void addWord(const EncodedWord& word) {
    if (words_.empty() || word.charset != runName_) {
      Charset charset = findCharset(word.charset);
      if (charset.name != runCharset_.name) endRun();
      runCharset_ = std::move(charset);
      runName_ = word.charset;
    }
    run_ += word.bytes;
    words_.push_back(run_.size());
    if (runCharset_.stateful) endRun();
  }

  /// After the last addText().
  std::string takeText() { return std::move(text_); }

 private:
  void endRun() {
    if (!words_.empty() && !appendWhenSound(runCharset_, run_)) appendWordByWord();
    run_.clear();
    words_.clear();
  }

  /// One wrong word must not spoil its neighbours, and a character split between two words is wrong in both: what is
  /// sound alone stands alone, and the words between such are taken together.
  void appendWordByWord() {
    std::size_t unsound = 0;  // start of the words that wait
    std::size_t from = 0;
    for (const std::size_t end : words_) {
      std::string text;
      if (soundlyAppended(runCharset_, runPart(from, end), text)) {
        appendUnsound(runPart(unsound, from));
        text_ += text;
        unsound = end;
      }
      from = end;
    }
    appendUnsound(runPart(unsound, from));
  }

  std::string_view runPart(std::size_t from, std::size_t end) const {
    return std::string_view(run_).substr(from, end - from);
  }

  void appendUnsound(std::string_view bytes) {
    if (!bytes.empty() && !appendWhenSound(runCharset_, bytes)) appendByFallbacks(runCharset_, bytes);
  }

  TextQuality quality(const Charset& charset, std::string_view bytes) const {
    std::string ignored;
    return charset.known() ? appendAsUtf8(charset, bytes, ignored) : TextQuality{};
  }

  static bool soundlyAppended(const Charset& charset, std::string_view bytes, std::string& text) {
    if (!charset.known()) return false;
    const std::size_t before = text.size();
    if (appendAsUtf8(charset, bytes, text).malformed == 0) return true;
    text.resize(before);
    return false;
  }

  bool appendWhenSound(const Charset& charset, std::string_view bytes) {
    return soundlyAppended(charset, bytes, text_);
  }

  void appendByFallbacks(const Charset& named, std::string_view bytes) {
    if (fallbacks_.empty()) lookUpFallbacks();
    for (const Charset& fallback : fallbacks_) {
      if (&fallback == &fallbacks_.back() && appendWhenMostlySound(named, bytes)) return;
      if (appendWhenSound(fallback, bytes)) return;
    }
    if (named.known()) {
      appendAsUtf8(named, bytes, text_);
    } else {
      text_ += bytes;
    }
  }

  /// On first need: most values fit the charset they name.
  void lookUpFallbacks() {
    for (const std::string& name : fallbackNames_) fallbacks_.push_back(findCharset(name));
  }

  bool appendWhenMostlySound(const Charset& charset, std::string_view bytes) {
    const TextQuality found = quality(charset, bytes);
    if (found.foreign <= found.malformed) return false;
    appendAsUtf8(charset, bytes, text_);
    return true;
  }

  const std::vector<std::string>& fallbackNames_;
  std::vector<Charset> fallbacks_;
  std::string text_;
  std::string run_;                 // bytes of the words held back
  std::vector<std::size_t> words_;  // where each of them ends in run_
  std::string runName_;
  Charset runCharset_;
};

std::string decode(std::string_view raw, const std::vector<std::string>& fallbacks) {
  Decoder decoder(fallbacks);
  EncodedWord word;
  bool afterWord = false;
  std::size_t plain = 0;  // start of what no word has taken yet
  std::size_t start = raw.find("=?");
  while (start != std::string_view::npos) {
    if (!Host::readEncodedWord(raw, start, word)) {
      start = raw.find("=?", start + 2);
      continue;
    }
    const std::string_view gap = raw.substr(plain, start - plain);
    if (!gap.empty() && !(afterWord && isBlankText(gap))) decoder.addText(gap);
    decoder.addWord(word);
    afterWord = true;
    plain = word.end;
    start = raw.find("=?", plain);
  }
  decoder.addText(raw.substr(plain));
  return decoder.takeText();
}

/// Whether the value reads as it is written: printable ASCII without encoded words.
bool isPlain(const std::string& raw) {
  return Host::runOf(raw, [](char c) { return (c >= 0x20) & (c < 0x7f); }) == raw.size() &&
         raw.find("=?") == std::string::npos;
}

}  // namespace

std::string Host::decodedHeader(const std::string& raw, const QRLStaticCharSetFallbacks* fallbacks) {
  if (isPlain(raw)) return raw;
  const RefQRLStaticCharSetFallbacks standard = RefQRLStaticCharSetFallbacks::instance();
  if (!fallbacks) fallbacks = standard.get();
  return oneLine(decode(unfolded(raw), fallbacks->charsets()));
}

void stringToUtf8(const std::string& raw, Buffer& out, const QRLStaticCharSetFallbacks* fallbacks) {
  out.assign(Host::decodedHeader(raw, fallbacks));
}

}  // namespace Velmar
