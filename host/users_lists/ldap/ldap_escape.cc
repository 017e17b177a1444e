// Builds the filters of the directory's searches. Pure; called for each search of a look-up. Addresses and names come
// from outside: none may reach a filter unescaped, since a lone "*" would find everybody.

#include "host/users_lists/ldap/ldap_escape.h"

namespace Velmar::Host {
namespace {

constexpr std::string_view kPlaceOfAddress = "{address}";

bool standsForItself(unsigned char c) { return c >= 0x20 && c < 0x7f && c != '*' && c != '(' && c != ')' && c != '\\'; }

}  // namespace

std::string escapedFilterValue(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string value;
  value.reserve(bytes.size());
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (standsForItself(byte)) {
      value += c;
    } else {
      value += {'\\', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return value;
}

std::string userFilter(std::string_view pattern, std::string_view address) {
  const std::string value = escapedFilterValue(address);
  std::string filter;
  std::size_t begin = 0;
  for (std::size_t place; (place = pattern.find(kPlaceOfAddress, begin)) != std::string_view::npos;) {
    filter += pattern.substr(begin, place - begin);
    filter += value;
    begin = place + kPlaceOfAddress.size();
  }
  filter += pattern.substr(begin);
  return filter;
}

std::string memberFilter(std::string_view groupFilter, std::string_view memberAttribute,
                         std::span<const std::string> members) {
  std::string filter("(&");
  filter += groupFilter;
  filter += "(|";
  for (const std::string& member : members) {
    filter += '(';
    filter += memberAttribute;
    filter += '=';
    filter += escapedFilterValue(member);
    filter += ')';
  }
  filter += "))";
  return filter;
}

}  // namespace Velmar::Host
