#pragma once

// The grammar of encoded words (RFC 2047 section 2, with the language of RFC 2231 section 5).

#include <cstddef>
#include <string>
#include <string_view>

namespace Velmar::Host {

/// One encoded word, its transfer encoding undone.
struct EncodedWord {
  std::string_view charset;  ///< as written, without the language; may be empty
  std::string bytes;         ///< text in that charset
  std::size_t end = 0;       ///< place behind the word's "?="
};

/// Reads the encoded word whose "=?" stands at `start`:
///
///   "=?" charset ["*" language] "?" ("B" | "Q") "?" encoded-text "?="
///
/// Taken as senders write it: of any length, next to other text, with blanks or "?" in Q, with missing, surplus or
/// early padding in B. Returns false for anything else, B text with foreign characters too.
/// Never looks beyond the next "=?", so that reading a text at all its "=?" takes linear time.
bool readEncodedWord(std::string_view text, std::size_t start, EncodedWord& word);

}  // namespace Velmar::Host
