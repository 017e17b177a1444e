// Keeps one time a thread. Set where a date becomes a text, read where a report names its time zone.

#include "host/common/current_time.h"

#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace Velmar::Host {
namespace {

thread_local std::time_t timeInWords = 0;

std::string offsetFromUtc(long seconds) {
  if (seconds == 0) return "UTC";
  const long minutes = std::abs(seconds) / 60;
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), minutes % 60 ? "UTC%c%ld:%02ld" : "UTC%c%ld", seconds < 0 ? '-' : '+',
                minutes / 60, minutes % 60);
  return text.data();
}

}  // namespace

void setTimeInWords(std::time_t when) noexcept { timeInWords = when; }

std::string zoneOfTimeInWords() {
  std::tm local{};
  if (!::localtime_r(&timeInWords, &local)) return "";
  const std::string offset = offsetFromUtc(local.tm_gmtoff);
  const std::string name = local.tm_zone ? local.tm_zone : "";
  const bool hasName = !name.empty() && std::isalpha(static_cast<unsigned char>(name[0])) && name != offset;
  return hasName ? name + ", " + offset : offset;
}

}  // namespace Velmar::Host
