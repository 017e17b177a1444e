// Reads encoded words. Only the decoder calls this; it knows nothing of charsets.

#include "host/mail_builder/encoded_words.h"

#include <array>
#include <cstdint>

namespace Velmar::Host {
namespace {

constexpr std::size_t kMaxCharset = 128;  // with its language
constexpr std::size_t npos = std::string_view::npos;

/// The value of each base64 digit (RFC 4648 section 4); -1 for other bytes.
constexpr std::array<std::int8_t, 256> makeDigitValues() {
  constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::array<std::int8_t, 256> values{};
  values.fill(-1);
  for (std::size_t i = 0; i < digits.size(); ++i) {
    values[static_cast<unsigned char>(digits[i])] = static_cast<std::int8_t>(i);
  }
  return values;
}
constexpr auto kDigitValues = makeDigitValues();

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

/// Each padding ends a run of digits and the next one starts afresh: some senders join padded words without decoding
/// them. A lone digit at the end is less than a byte and is dropped behind other text.
bool decodeBase64(std::string_view text, std::string& bytes) {
  bool complete = true;
  unsigned bits = 0;
  int have = 0;  // bits in hand
  for (const char c : text) {
    const int value{kDigitValues[static_cast<unsigned char>(c)]};  // -1 = no digit
    if (value >= 0) {
      bits = bits << 6 | static_cast<unsigned>(value);
      have += 6;
      if (have >= 8) {
        have -= 8;
        bytes += static_cast<char>(bits >> have & 0xff);
      }
      complete = have != 6;
    } else if (c == '=') {
      have = 0;
    } else if (!isBlank(c)) {
      return false;
    }
  }
  return complete || !bytes.empty();
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

/// An "=" that introduces no byte stands for itself.
void decodeQ(std::string_view text, std::string& bytes) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int high = text[i] == '=' && i + 2 < text.size() ? hexValue(text[i + 1]) : -1;
    const int low = high >= 0 ? hexValue(text[i + 2]) : -1;
    if (low >= 0) {
      bytes += static_cast<char>(high << 4 | low);
      i += 2;
    } else {
      bytes += text[i] == '_' ? ' ' : text[i];
    }
  }
}

/// The place of the "?=" that ends an encoded text; npos when another "?" that may not stand in it comes first.
std::size_t textEnd(std::string_view text, std::size_t from, bool questionMarks) {
  for (std::size_t at = text.find('?', from); at != npos; at = text.find('?', at + 1)) {
    if (at + 1 < text.size() && text[at + 1] == '=') return at;
    const bool nextWord = text[at - 1] == '=';  // before `from` stands a "?"
    if (nextWord || !questionMarks) return npos;
  }
  return npos;
}

}  // namespace

bool readEncodedWord(std::string_view text, std::size_t start, EncodedWord& word) {
  const std::size_t name = start + 2;
  const std::size_t nameEnd = text.substr(0, name + kMaxCharset + 1).find('?', name);
  if (nameEnd == npos || nameEnd + 2 >= text.size() || text[nameEnd + 2] != '?') return false;
  const bool base64 = text[nameEnd + 1] == 'B' || text[nameEnd + 1] == 'b';
  const bool quoted = text[nameEnd + 1] == 'Q' || text[nameEnd + 1] == 'q';
  if (!base64 && !quoted) return false;

  const std::string_view charset = text.substr(name, nameEnd - name);
  word.charset = charset.substr(0, charset.find('*'));
  if (word.charset.find_first_of(" \t\r\n") != npos) return false;

  const std::size_t from = nameEnd + 3;
  const std::size_t end = textEnd(text, from, quoted);
  if (end == npos) return false;
  word.end = end + 2;
  word.bytes.clear();
  if (base64) return decodeBase64(text.substr(from, end - from), word.bytes);
  decodeQ(text.substr(from, end - from), word.bytes);
  return true;
}

}  // namespace Velmar::Host
