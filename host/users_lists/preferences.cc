// Preferences of users: today the language of their reports. Read when a report is built, set by the administrator's
// command. A site that names a template in another language has chosen that for all who have no preference.

#include <algorithm>
#include <cstring>
#include <string_view>

#include "host/common/host_config.h"
#include "host/common/preview.h"
#include "host/host.h"
#include "host/users_lists/state_store.h"
#include "platform/users_lists.h"

namespace Velmar {
namespace {

using namespace Host;

constexpr char kEnglish[] = "en";         // in which reports are written where nothing else is chosen
constexpr std::size_t kMaxLanguage = 35;  // as long as a language tag that RFC 5646 (4.4.1) asks everyone to take

Exception preferenceError(int line, int level, const std::string& text) {
  return Exception("StateException", level, "Preferences", line, text);
}

bool isLanguageByte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

void checkLanguage(const std::string& language) {
  if (language.size() <= kMaxLanguage && std::all_of(language.begin(), language.end(), isLanguageByte)) return;
  throw preferenceError(__LINE__, 4,
                        "\"" + language + "\" is no language code: at most " + std::to_string(kMaxLanguage) +
                            " letters, digits, \"-\" and \"_\"");
}

// The language that the site has chosen for a mailbox by naming a template.
std::string siteLanguage(std::string_view address) {
  const HostConfig& config = hostConfig();
  const auto preview = previewChoice();
  if (!preview->templateName.empty()) return templateLanguage(preview->templateName, preview->templateDomain);
  const DomainConfig* domain = config.findDomain(address.substr(address.rfind('@') + 1));
  if (!domain || !domain->record->useOwnTemplate) return templateLanguage(config.spamReport.templateName, "");
  return templateLanguage(domain->record->templateName, domain->mainDomain.empty() ? domain->name : domain->mainDomain);
}

// What the report's language is; "" when nobody has chosen one.
std::string languageOf(const char* address) {
  std::string previewed = previewChoice()->language;
  if (!previewed.empty()) return previewed;
  std::string preferred = preferredLanguage(address);
  if (!preferred.empty()) return preferred;
  const std::string site = siteLanguage(address);
  return site == kEnglish ? std::string() : site;
}

}  // namespace

int get_user_pref_lang(const char* address, char* buffer, int size) {
  if (!address || !buffer) throw preferenceError(__LINE__, 1, "address or place for the language is null");
  const std::string language = languageOf(address);
  if (language.empty()) return 1;
  if (size < 0 || language.size() >= static_cast<std::size_t>(size)) {
    throw preferenceError(__LINE__, 4,
                          "preferred language \"" + language + "\" of " + address + " does not fit into " +
                              std::to_string(size) + " bytes");
  }
  std::memcpy(buffer, language.c_str(), language.size() + 1);
  return 0;
}

namespace Host {

std::string preferredLanguage(const std::string& address) {
  return withState([&](StateSession& state) {
    const auto found =
        state.rows<std::string>("SELECT language FROM preference WHERE address_key = :a", {addressKey(address)});
    return found.empty() ? std::string() : std::get<0>(found.front());
  });
}

void setPreferredLanguage(const std::string& address, const std::string& language) {
  checkLanguage(language);
  if (address.empty()) throw preferenceError(__LINE__, 4, "address of a language preference is empty");
  const std::string key = addressKey(address);
  withState([&](StateSession& state) {
    StateChange change(state);
    state.run("DELETE FROM preference WHERE address_key = :k", {key});
    if (!language.empty()) {
      state.run("INSERT INTO preference (address_key, address, language) VALUES (:k, :a, :l)",
                {key, address, language});
    }
    change.commit();
  });
}

}  // namespace Host
}  // namespace Velmar
