// Dates in words for the texts of a report, by ICU, which brings its own locales.
//
// Formatters are dear to make and not to be shared: each thread keeps those of a few languages.

#include <unicode/datefmt.h>
#include <unicode/gregocal.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "host/common/current_time.h"
#include "host/common/languages.h"
#include "platform/text_network.h"

namespace Velmar {
namespace {

constexpr int kMediumDateShortTime = 2;
constexpr double kMaxMilliseconds = 1e17;  // years beyond some three millions: ICU would clamp them

/// A formatter that shows a time in GMT, and old dates in today's calendar as struct tm has them. Null on failure.
std::unique_ptr<icu::DateFormat> makeFormatter(const icu::Locale& locale) {
  std::unique_ptr<icu::DateFormat> formatter(
      icu::DateFormat::createDateTimeInstance(icu::DateFormat::kMedium, icu::DateFormat::kShort, locale));
  if (!formatter) return nullptr;
  std::unique_ptr<icu::Calendar> calendar(formatter->getCalendar()->clone());
  if (auto* gregorian = dynamic_cast<icu::GregorianCalendar*>(calendar.get())) {
    UErrorCode status = U_ZERO_ERROR;
    gregorian->setGregorianChange(-kMaxMilliseconds, status);
    if (U_FAILURE(status)) return nullptr;
  }
  calendar->setTimeZone(*icu::TimeZone::getGMT());
  formatter->adoptCalendar(calendar.release());
  return formatter;
}

/// This thread's formatter for a language; null when ICU cannot make one. Lives until the thread's next call.
const icu::DateFormat* formatterFor(std::string_view language) {
  thread_local Host::PerLanguage<icu::DateFormat> formatters(makeFormatter);
  return formatters.find(language);
}

/// The time in milliseconds since 1970 of which GMT shows these fields.
std::optional<double> millisecondsOf(std::tm fields) {
  errno = 0;
  const std::time_t seconds = timegm(&fields);
  if (seconds == -1 && errno != 0) return {};
  const double milliseconds = static_cast<double>(seconds) * 1000;
  if (std::abs(milliseconds) >= kMaxMilliseconds) return {};
  return milliseconds;
}

std::optional<std::string> dateInWords(const std::tm& when, std::string_view language) {
  const std::optional<double> milliseconds = millisecondsOf(when);
  const icu::DateFormat* formatter = formatterFor(language);
  if (!milliseconds || !formatter) return {};
  icu::UnicodeString text;
  formatter->format(*milliseconds, text);
  if (text.isBogus() || text.isEmpty()) return {};
  return Host::plainUtf8(text);
}

}  // namespace

int translate_datetime(const std::tm* when, int style, const char* language, char* out, std::size_t size) try {
  if (!out || size == 0) return -1;
  out[0] = '\0';
  if (!when || style != kMediumDateShortTime) return -1;
  const auto text = dateInWords(*when, language ? std::string_view(language) : std::string_view());
  if (!text || text->size() >= size) return -1;
  std::tm fields = *when;
  Host::setTimeInWords(timegm(&fields) - when->tm_gmtoff, language ? language : "");
  std::memcpy(out, text->c_str(), text->size() + 1);
  return 0;
} catch (const std::bad_alloc&) {
  return -1;
}

}  // namespace Velmar
