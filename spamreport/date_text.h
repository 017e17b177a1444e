#pragma once

// Dates of a report in the reader's language.

#include <ctime>
#include <string>

namespace Velmar {

/// `when` as local date and time in `language`; "" for a time that has no local date.
std::string dateText(std::time_t when, const std::string& language);

}  // namespace Velmar
