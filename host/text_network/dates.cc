// Dates in words for the texts of a report, by ICU, which brings its own locales.
//
// Formatters are dear to make, dear to use and not to be shared: each thread keeps those of a few languages, and words
// that they made.

#include <unicode/datefmt.h>
#include <unicode/gregocal.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

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

enum class Fields { kOfDay, kOfMinute, kOther };

Fields fieldsOf(char16_t letter) {
  if (std::u16string_view(u"GyYuUrQqMLwWdDFEecg").find(letter) != std::u16string_view::npos) return Fields::kOfDay;
  if (std::u16string_view(u"abBhHkKm").find(letter) != std::u16string_view::npos) return Fields::kOfMinute;
  return Fields::kOther;
}

bool isFieldLetter(char16_t c) { return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'); }

/// Where the second half of a pattern begins whose halves show the day and the minute of the day, in either order.
std::optional<std::int32_t> middleOf(const icu::UnicodeString& pattern) {
  std::optional<std::int32_t> middle;
  std::optional<Fields> current;
  bool quoted = false;
  for (std::int32_t i = 0; i < pattern.length(); ++i) {
    const char16_t c = pattern.charAt(i);
    if (c == u'\'') quoted = !quoted;
    if (quoted || !isFieldLetter(c)) continue;
    const Fields fields = fieldsOf(c);
    if (fields == Fields::kOther || (middle && fields != current)) return {};
    if (current && fields != current) middle = i;
    current = fields;
  }
  return middle;
}

/// The dates of one language in words. The day and the minute are worded apart and kept, because ICU takes longer for a
/// date than the rest of a row takes, and reports have few days. Used by one thread.
class DateWords {
 public:
  explicit DateWords(std::unique_ptr<icu::DateFormat> whole) : whole_(std::move(whole)) {
    const auto* simple = dynamic_cast<const icu::SimpleDateFormat*>(whole_.get());
    if (!simple) return;
    icu::UnicodeString pattern;
    simple->toPattern(pattern);
    const auto middle = middleOf(pattern);
    if (!middle) return;
    halves_[0] = half(*simple, pattern.tempSubString(0, *middle));
    halves_[1] = half(*simple, pattern.tempSubString(*middle));
    if (!halves_[0] || !halves_[1]) return;
    dayFirst_ = fieldsOf(pattern.charAt(*middle)) == Fields::kOfMinute;
    minutes_.resize(kSecondsPerDay / kSecondsPerMinute);
  }

  /// `seconds` since 1970; "" when ICU fails.
  std::string at(std::int64_t seconds) {
    if (minutes_.empty()) return worded(*whole_, seconds);
    const std::int64_t day = (seconds - (seconds % kSecondsPerDay + kSecondsPerDay) % kSecondsPerDay) / kSecondsPerDay;
    Day& kept = days_[static_cast<std::uint64_t>(day) % days_.size()];
    if (kept.number != day || kept.text.empty()) kept = {day, worded(*halves_[dayFirst_ ? 0 : 1], seconds)};
    std::string& minute = minutes_[static_cast<std::size_t>((seconds - day * kSecondsPerDay) / kSecondsPerMinute)];
    if (minute.empty()) minute = worded(*halves_[dayFirst_ ? 1 : 0], seconds);
    if (kept.text.empty() || minute.empty()) return {};
    return dayFirst_ ? kept.text + minute : minute + kept.text;
  }

 private:
  static constexpr std::int64_t kSecondsPerDay = 86400;
  static constexpr std::int64_t kSecondsPerMinute = 60;

  struct Day {
    std::int64_t number = 0;  ///< since 1970
    std::string text;         ///< "" = not worded yet
  };

  static std::unique_ptr<icu::DateFormat> half(const icu::SimpleDateFormat& whole, const icu::UnicodeString& pattern) {
    std::unique_ptr<icu::SimpleDateFormat> made(whole.clone());
    if (made) made->applyPattern(pattern);
    return made;
  }

  static std::string worded(const icu::DateFormat& formatter, std::int64_t seconds) {
    icu::UnicodeString text;
    formatter.format(static_cast<UDate>(seconds) * 1000, text);
    return text.isBogus() ? "" : Host::plainUtf8(text);
  }

  std::unique_ptr<icu::DateFormat> whole_;
  std::array<std::unique_ptr<icu::DateFormat>, 2> halves_;  ///< null when the pattern has none
  bool dayFirst_ = false;
  std::array<Day, 8> days_;           ///< a week, in places of their own, and the day after
  std::vector<std::string> minutes_;  ///< of a day, "" = not worded yet; empty when there are no halves
};

/// This thread's words for a language; null when ICU has none. Lives until the thread's next call.
DateWords* wordsFor(std::string_view language) {
  thread_local Host::PerLanguage<DateWords> words([](const icu::Locale& locale) {
    std::unique_ptr<icu::DateFormat> formatter = makeFormatter(locale);
    return formatter ? std::make_unique<DateWords>(std::move(formatter)) : nullptr;
  });
  return words.find(language);
}

/// The seconds since 1970 at which GMT shows these fields.
std::optional<std::int64_t> secondsOf(std::tm fields) {
  errno = 0;
  const std::time_t seconds = timegm(&fields);
  if (seconds == -1 && errno != 0) return {};
  if (std::abs(static_cast<double>(seconds) * 1000) >= kMaxMilliseconds) return {};
  return seconds;
}

}  // namespace

int translate_datetime(const std::tm* when, int style, const char* language, char* out, std::size_t size) try {
  if (!out || size == 0) return -1;
  out[0] = '\0';
  if (!when || style != kMediumDateShortTime) return -1;
  const std::string_view wanted = language ? language : "";
  const auto seconds = secondsOf(*when);
  DateWords* const words = wordsFor(wanted);
  if (!seconds || !words) return -1;
  const std::string text = words->at(*seconds);
  if (text.empty() || text.size() >= size) return -1;
  Host::setTimeInWords(*seconds - when->tm_gmtoff, wanted);
  std::memcpy(out, text.c_str(), text.size() + 1);
  return 0;
} catch (const std::bad_alloc&) {
  return -1;
}

}  // namespace Velmar
