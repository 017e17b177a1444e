// spamreport prefs: shows and changes the preferences of users.

#include <algorithm>
#include <array>
#include <iostream>

#include "host/host.h"
#include "platform/users_lists.h"
#include "tools/spamreport/commands.h"
#include "tools/spamreport/recipients.h"
#include "tools/spamreport/table.h"

namespace Velmar::Tool {
namespace {

constexpr std::size_t kShortestLanguage = 2;
constexpr std::size_t kLongestLanguage = 35;

/// A language tag by its shape, and one that makes a difference: with an unknown one dates would stay English.
void checkLanguage(const std::string& code) {
  const auto allowed = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
  };
  const bool shape = code.size() >= kShortestLanguage && code.size() <= kLongestLanguage &&
                     std::all_of(code.begin(), code.end(), allowed);
  if (!shape) throw WrongUse("language \"" + code + "\": not a code like de or pt-BR; none removes the preference");
  if (!Host::isKnownLanguage(code)) {
    throw WrongUse("language \"" + code + "\": dates cannot be written in it; take a code like de, fr, ja or pt-BR");
  }
}

}  // namespace

int showPreferences(const std::string& address) {
  mailboxAddress(address);
  const std::string chosen = Host::preferredLanguage(address);
  std::array<char, 255> other{"en"};
  if (chosen.empty()) get_user_pref_lang(address.c_str(), other.data(), static_cast<int>(other.size()));
  const std::string none = "none (reports use " + std::string(other.data()) + ", as their template)";
  std::cout << alignedTable({{"language", chosen.empty() ? none : chosen}});
  return kGood;
}

int setLanguage(const std::string& address, const std::string& language) {
  mailboxAddress(address);
  const bool none = language.empty() || language == "none";
  if (!none) checkLanguage(language);
  Host::setPreferredLanguage(address, none ? "" : language);
  return kGood;
}

}  // namespace Velmar::Tool
