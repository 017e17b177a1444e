// Finds ICU's locale for the language of a user, which comes from a preference and may be anything. ICU answers an
// unknown one with the locale of the process, so it is looked up first. Called where dates and zones become words.

#include "host/common/languages.h"

#include <unicode/uenum.h>
#include <unicode/uloc.h>

#include <set>

#include "host/host.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kMaxLanguage = 64;  // longer than any language code
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
icu::Locale rawLocaleOf(std::string_view language) {
  return icu::Locale(std::string(language.substr(0, language.find_first_of(".@"))).c_str());
}

}  // namespace

icu::Locale localeOf(std::string_view language) {
  return isKnownLanguage(std::string(language)) ? rawLocaleOf(language) : icu::Locale(kEnglish);
}

bool isKnownLanguage(const std::string& code) {
  return !code.empty() && code.size() <= kMaxLanguage && isKnown(rawLocaleOf(code));
}

std::string languageName(const std::string& code) {
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

std::string plainUtf8(icu::UnicodeString text) {
  text.findAndReplace(icu::UnicodeString(u'\u202f'), icu::UnicodeString(u' '));
  text.findAndReplace(icu::UnicodeString(u'\u00a0'), icu::UnicodeString(u' '));
  std::string utf8;
  return text.toUTF8String(utf8);
}

}  // namespace Velmar::Host
