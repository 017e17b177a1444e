#pragma once

// Held texts made harmless to look at: what could disguise them, swell them or be clicked is taken out or broken.

#include <cstddef>
#include <string>
#include <string_view>

namespace Velmar::Host {

/// How a dot or an "@" that would make a link is broken.
enum class LinkBreak {
  kHidden,   ///< by a zero-width space behind or before it, for a page
  kVisible,  ///< in brackets, for plain text: "example[.]org"
};

/// The text as a report shows it.
///
/// text        valid UTF-8, one line
/// characters  how many a reader sees at most, and half of the bytes that they take at most where they land (a page's
///             escapes and the breaks included), so that nobody swells a report; what is cut off leaves an ellipsis
///
/// Characters without an appearance (bidirectional controls, zero-width ones, tags) are left out, but for joiners in
/// scripts and emoji that are written with them. A letter keeps four marks at most.
/// A page may break words of more than 30 letters, so that none widens it where styles are taken away. Any thread;
/// linear time.
std::string inertText(std::string_view text, std::size_t characters, LinkBreak links);

}  // namespace Velmar::Host
