#pragma once

// Long lines of a plain-text body.

#include <cstddef>
#include <string>
#include <string_view>

namespace Velmar::Host {

/// The lines, each of at most `columns` columns where that can be: broken at blanks, and between characters of scripts
/// that are written without blanks. Never broken is what holds neither, such as an address or a link; but a word of
/// letters and digits alone that is longer than a line is. An indented line goes on six columns deeper: no part of a
/// held text looks like a line of its own. East Asian wide characters take two columns.
///
/// text  valid UTF-8 with LF line ends
/// Throws Exception when ICU lacks its data. Any thread; linear time.
std::string wrapped(std::string_view text, std::size_t columns);

}  // namespace Velmar::Host
