#pragma once

// The time that a thread last put into words, for the name of its zone: a text of a date does not carry one.

#include <ctime>
#include <string>
#include <string_view>

namespace Velmar::Host {

/// Notes the time of a date that this thread makes a text of, and the language of that text.
void setTimeInWords(std::time_t when, std::string_view language);

/// The zone of the host at the time noted last, named in the language of its text: "Central European Standard Time,
/// UTC+1". Where ICU has no name for it there, as the system has it: "CET, UTC+1", "UTC+5:30", "UTC".
std::string zoneOfTimeInWords();

}  // namespace Velmar::Host
