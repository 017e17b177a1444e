#pragma once

// The time that a thread last put into words, for the name of its zone: a text of a date does not carry one.

#include <ctime>
#include <string>

namespace Velmar::Host {

/// Notes the time of a date that this thread makes a text of.
void setTimeInWords(std::time_t when) noexcept;

/// The zone of the host at the time noted last: "CET, UTC+1"; "UTC+5:30" where the zone has no name; "UTC".
std::string zoneOfTimeInWords();

}  // namespace Velmar::Host
