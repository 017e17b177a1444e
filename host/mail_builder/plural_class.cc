// Plural classes by ICU. The parsed template holds one object for its language.

#include "host/mail_builder/plural_class.h"

#include <unicode/locid.h>
#include <unicode/plurrule.h>
#include <unicode/unistr.h>

#include "platform/types.h"

namespace Velmar::Host {

struct PluralClasses::Rules {
  std::unique_ptr<icu::PluralRules> icu;
  bool known = false;
};

PluralClasses::PluralClasses(const std::string& language) : rules_(std::make_unique<Rules>()) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Locale locale = icu::Locale::forLanguageTag(language, status);
  if (U_SUCCESS(status)) rules_->icu.reset(icu::PluralRules::forLocale(locale, status));
  if (U_FAILURE(status) || !rules_->icu) {
    throw Exception("TemplateException", 4, "PluralClasses", __LINE__,
                    "no plural rules of language \"" + language + "\": " + u_errorName(status));
  }
  rules_->known = *locale.getISO3Language() != '\0';
}

PluralClasses::~PluralClasses() = default;

std::string PluralClasses::of(std::int32_t count) const {
  std::string name;
  rules_->icu->select(count).toUpper(icu::Locale::getRoot()).toUTF8String(name);
  return name;
}

bool PluralClasses::known() const noexcept { return rules_->known; }

}  // namespace Velmar::Host
