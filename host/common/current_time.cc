// Keeps one time a thread. Set where a date becomes a text, read where a report names its time zone. Names of zones are
// ICU's, and only where its zone agrees with the C library about the clock, which makes the dates.

#include "host/common/current_time.h"

#include <unicode/timezone.h>
#include <unicode/tznames.h>

#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "host/common/languages.h"

namespace Velmar::Host {
namespace {

struct TimeInWords {
  std::time_t when = 0;
  std::string language;
};

thread_local TimeInWords timeInWords;

std::string offsetFromUtc(long seconds) {
  if (seconds == 0) return "UTC";
  const long minutes = std::abs(seconds) / 60;
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), minutes % 60 ? "UTC%c%ld:%02ld" : "UTC%c%ld", seconds < 0 ? '-' : '+',
                minutes / 60, minutes % 60);
  return text.data();
}

/// The zone's name as the system has it; "" when that is a number only.
std::string systemName(const std::tm& local) {
  const std::string name = local.tm_zone ? local.tm_zone : "";
  return !name.empty() && std::isalpha(static_cast<unsigned char>(name[0])) ? name : "";
}

/// This thread's names of zones in a language; null when ICU has none.
const icu::TimeZoneNames* zoneNames(const std::string& language) {
  thread_local PerLanguage<icu::TimeZoneNames> names([](const icu::Locale& locale) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::TimeZoneNames> made(icu::TimeZoneNames::createInstance(locale, status));
    return U_SUCCESS(status) ? std::move(made) : nullptr;
  });
  return names.find(language);
}

/// The zone's name in words; "" when ICU has none in that language, or means another zone.
std::string nameInWords(const TimeInWords& time, const std::tm& local) {
  const std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::createDefault());
  const icu::TimeZoneNames* names = zoneNames(time.language);
  if (!zone || !names) return "";
  const UDate date = static_cast<UDate>(time.when) * 1000;
  int32_t standard = 0;
  int32_t summer = 0;
  UErrorCode status = U_ZERO_ERROR;
  zone->getOffset(date, false, standard, summer, status);
  icu::UnicodeString id;
  icu::UnicodeString canonical;
  icu::TimeZone::getCanonicalID(zone->getID(id), canonical, status);
  if (U_FAILURE(status) || standard + summer != local.tm_gmtoff * 1000) return "";
  icu::UnicodeString name;
  names->getDisplayName(canonical, summer ? UTZNM_LONG_DAYLIGHT : UTZNM_LONG_STANDARD, date, name);
  return name.isBogus() ? "" : plainUtf8(name);
}

}  // namespace

void setTimeInWords(std::time_t when, std::string_view language) {
  timeInWords.when = when;
  timeInWords.language = language;
}

std::string zoneOfTimeInWords() {
  std::tm local{};
  if (!::localtime_r(&timeInWords.when, &local)) return "";
  std::string offset = offsetFromUtc(local.tm_gmtoff);
  std::string name = systemName(local);
  if (name == offset) return offset;
  if (const std::string words = nameInWords(timeInWords, local); !words.empty()) name = words;
  return name.empty() ? offset : name + ", " + offset;
}

}  // namespace Velmar::Host
