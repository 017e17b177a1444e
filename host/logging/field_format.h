#pragma once

// The texts of an event out of its format and arguments.

#include <cstdarg>
#include <string>
#include <vector>

namespace Velmar::Host {

/// Fills a format of %s, %d, %u, %zd, %zu and %%, and splits it at the bytes 0x01 of the format itself; a 0x01 in a
/// text stays where it is. A null text becomes "(null)". From any other conversion on, the rest stands as it is written
/// and takes no argument. Never empty: a format without 0x01 gives one field. A null format counts as "".
/// arguments  where the first conversion takes its argument; afterwards the caller ends it
std::vector<std::string> formatFields(const char* format, std::va_list& arguments);

}  // namespace Velmar::Host
