#pragma once

// A bound on how deep the tables of a TOML text nest, tested before the text is parsed.

#include <cstddef>
#include <string_view>

namespace Velmar::Host {

/// The first line (from 1) that has more than `most` dots outside texts and comments; 0 when there is none.
/// As far as a parser would accept it, the text is read as TOML; from the first fault on the answer means nothing.
std::size_t lineWithDeepKey(std::string_view toml, std::size_t most);

}  // namespace Velmar::Host
