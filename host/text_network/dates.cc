// Dates in words for the texts of a report, by ICU, which brings its own locales.
//
// The language comes from a user's preference and may be anything. ICU answers an unknown one with the locale of the
// process, so it is looked up first. Formatters are dear to make and not to be shared: each thread keeps a few.

#include <unicode/datefmt.h>
#include <unicode/gregocal.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>
#include <unicode/uloc.h>
#include <unicode/unistr.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "host/common/current_time.h"
#include "host/host.h"
#include "platform/text_network.h"

namespace Velmar {
namespace {

constexpr int kMediumDateShortTime = 2;
constexpr std::size_t kMaxLanguage = 64;    // longer than any language code; also bounds the keys of the cache
constexpr std::size_t kMaxFormatters = 32;  // for each thread
constexpr double kMaxMilliseconds = 1e17;   // years beyond some three millions: ICU would clamp them

constexpr char kEnglish[] = "en";

/// The languages for which ICU has texts, old codes such as "iw" included.
std::set<std::string, std::less<>> readLanguages() {
  std::set<std::string, std::less<>> languages;
  UErrorCode status = U_ZERO_ERROR;
  UEnumeration* names = uloc_openAvailableByType(ULOC_AVAILABLE_WITH_LEGACY_ALIASES, &status);
  const std::unique_ptr<UEnumeration, decltype(&uenum_close)> owner(names, &uenum_close);
  while (const char* name = uenum_next(names, nullptr, &status)) languages.insert(icu::Locale(name).getLanguage());
  return languages;
}

bool isKnown(const icu::Locale& locale) {
  static const auto languages = readLanguages();
  return !locale.isBogus() && languages.count(std::string_view(locale.getLanguage())) > 0;
}

/// The locale of a language code, known or not. An encoding ("de_DE.UTF-8") is passed over.
icu::Locale rawLocaleOf(const std::string& language) {
  return icu::Locale(language.substr(0, language.find_first_of(".@")).c_str());
}

/// The same, English for one that is unknown.
icu::Locale localeOf(const std::string& language) {
  const icu::Locale locale = rawLocaleOf(language);
  return isKnown(locale) ? locale : icu::Locale(kEnglish);
}

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
  thread_local std::map<std::string, std::unique_ptr<icu::DateFormat>, std::less<>> formatters;
  if (language.empty() || language.size() > kMaxLanguage) language = kEnglish;
  if (const auto known = formatters.find(language); known != formatters.end()) return known->second.get();
  const std::string key(language);
  std::unique_ptr<icu::DateFormat> formatter = makeFormatter(localeOf(key));
  if (!formatter) return nullptr;
  if (formatters.size() >= kMaxFormatters) formatters.clear();
  return (formatters[key] = std::move(formatter)).get();
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

/// The text in UTF-8. No-break spaces become blanks: old mail programs show them as boxes.
std::string plainUtf8(icu::UnicodeString text) {
  text.findAndReplace(icu::UnicodeString(u'\u202f'), icu::UnicodeString(u' '));
  text.findAndReplace(icu::UnicodeString(u'\u00a0'), icu::UnicodeString(u' '));
  std::string utf8;
  return text.toUTF8String(utf8);
}

std::optional<std::string> dateInWords(const std::tm& when, std::string_view language) {
  const std::optional<double> milliseconds = millisecondsOf(when);
  const icu::DateFormat* formatter = formatterFor(language);
  if (!milliseconds || !formatter) return {};
  icu::UnicodeString text;
  formatter->format(*milliseconds, text);
  if (text.isBogus() || text.isEmpty()) return {};
  return plainUtf8(text);
}

}  // namespace

int translate_datetime(const std::tm* when, int style, const char* language, char* out, std::size_t size) try {
  if (!out || size == 0) return -1;
  out[0] = '\0';
  if (!when || style != kMediumDateShortTime) return -1;
  const auto text = dateInWords(*when, language ? std::string_view(language) : std::string_view());
  if (!text || text->size() >= size) return -1;
  std::tm fields = *when;
  Host::setTimeInWords(timegm(&fields) - when->tm_gmtoff);
  std::memcpy(out, text->c_str(), text->size() + 1);
  return 0;
} catch (const std::bad_alloc&) {
  return -1;
}

bool Host::isKnownLanguage(const std::string& code) {
  return !code.empty() && code.size() <= kMaxLanguage && isKnown(rawLocaleOf(code));
}

std::string Host::languageName(const std::string& code) {
  if (!isKnownLanguage(code)) return code;
  const icu::Locale locale = rawLocaleOf(code);
  icu::UnicodeString english;
  icu::UnicodeString own;
  std::string name;
  locale.getDisplayName(icu::Locale::getEnglish(), english);
  locale.getDisplayName(locale, own);
  english.toUTF8String(name);
  if (own != english) own.toUTF8String(name += ", ");
  return name;
}

}  // namespace Velmar
