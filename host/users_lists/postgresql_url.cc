// Takes apart the URL of a PostgreSQL store, so that no message shows a password and no lost server is waited for
// without end. Called when a store is first used.

#include "host/users_lists/postgresql_url.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr std::string_view kScheme = "postgresql://";

// A server that no longer answers is given up after a minute, in seconds and (tcp_user_timeout) milliseconds.
constexpr std::array<std::pair<std::string_view, std::string_view>, 6> kOurParameters{{
    {"connect_timeout", "10"},
    {"keepalives_idle", "30"},
    {"keepalives_interval", "10"},
    {"keepalives_count", "3"},
    {"tcp_user_timeout", "60000"},
    {"fallback_application_name", "spamreport"},
}};

using Parameters = std::vector<std::pair<std::string_view, std::string_view>>;

Parameters parametersOf(std::string_view query) {
  Parameters parameters;
  while (!query.empty()) {
    const std::string_view one = query.substr(0, query.find('&'));
    const std::size_t equals = std::min(one.find('='), one.size());
    parameters.emplace_back(one.substr(0, equals), one.substr(std::min(equals + 1, one.size())));
    query.remove_prefix(std::min(one.size() + 1, query.size()));
  }
  return parameters;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

void addSecret(std::vector<std::string>& secrets, std::string_view written) {
  if (written.empty()) return;
  secrets.emplace_back(written);
  secrets.push_back(hexDecoded(written, '%'));
}

std::string withOurParameters(std::string_view url, const Parameters& given) {
  std::string connect(url);
  char separator = url.find('?') == std::string_view::npos ? '?' : '&';
  for (const auto& [key, value] : kOurParameters) {
    const auto isKey = [key = key](const auto& parameter) { return parameter.first == key; };
    if (std::any_of(given.begin(), given.end(), isKey)) continue;
    connect.append(1, separator).append(key).append("=").append(value);
    separator = '&';
  }
  return connect;
}

}  // namespace

std::string hexDecoded(std::string_view text, char mark) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool coded =
        text[i] == mark && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 && hexDigit(text[i + 2]) >= 0;
    decoded += coded ? static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2])) : text[i];
    if (coded) i += 2;
  }
  return decoded;
}

PostgresqlUrl parsePostgresqlUrl(std::string_view url) {
  const std::string_view rest = url.substr(kScheme.size());
  const std::size_t at = rest.find('@');
  if (rest.rfind('@') != at || (at != std::string_view::npos && rest.find_first_of("/?") < at)) {
    throw Exception(
        "StateException", 4, "StateStore", __LINE__,
        "state store postgresql://...: its URL has an \"@\" too many, or \"/\" or \"?\" in user or password: "
        "\"@\" is written %40, \"/\" %2F, \"?\" %3F");
  }
  const std::string_view user = rest.substr(0, at == std::string_view::npos ? 0 : at);
  const std::string_view place = at == std::string_view::npos ? rest : rest.substr(at + 1);
  const std::size_t query = std::min(place.find('?'), place.size());
  const Parameters parameters = parametersOf(place.substr(std::min(query + 1, place.size())));

  PostgresqlUrl parts;
  parts.connect = withOurParameters(url, parameters);
  parts.name = std::string(kScheme).append(place.substr(0, query));
  if (const std::size_t colon = user.find(':'); colon != std::string_view::npos) {
    addSecret(parts.secrets, user.substr(colon + 1));
  }
  for (const auto& [key, value] : parameters) {
    if (key.find("password") != std::string_view::npos) addSecret(parts.secrets, value);
  }
  return parts;
}

}  // namespace Velmar::Host
