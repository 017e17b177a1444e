// The tables of what a report fills where. Only the lint reads them: a report fills what it has, asked or not.

#include "host/mail_builder/template_names.h"

#include <algorithm>

namespace Velmar::Host {
namespace {

constexpr std::string_view kRows = "QUARANTINE_MESSAGES_TABLE";
constexpr std::string_view kRowWeb = "QUARANTINE_MESSAGES_TABLE/SPAM_WEB_ACTION";
constexpr std::string_view kRowMail = "QUARANTINE_MESSAGES_TABLE/SPAM_EMAIL_ACTION";
constexpr std::string_view kWeb = "SPAM_WEB_ACTION";
constexpr std::string_view kMail = "SPAM_EMAIL_ACTION";
constexpr std::string_view kOther = "SPAM_OTHER_ACTION";

constexpr TemplateName kVariables[] = {
    {"", "QUARANTINE_MESSAGES_COUNT"},
    {"", "QUARANTINE_PERIOD_FROM"},
    {"", "QUARANTINE_PERIOD_TO"},
    {"", "TITLE_LOGO"},
    {"", "RELEASE_CONTROL_USER"},
    {"", "DELETE_CONTROL_USER"},
    {"", "DELETE_ALL_SUBJECT"},
    {"", "RELEASE_SUBJECT"},
    {"", "DELETE_SUBJECT"},
    {"", "MAILBOX_ADDRESS"},
    {"", "SITE_NAME"},
    {"", "TIME_ZONE"},
    {kRows, "ROW_NUMBER"},
    {kRows, "SENDER_NAME"},
    {kRows, "SENDER_ADDRESS"},
    {kRows, "ORIG_DATE"},
    {kRows, "ORIG_FROM"},
    {kRows, "ORIG_SUBJECT"},
    {kRows, "EMAIL_ID"},
    {kRows, "ICON_RELEASE"},
    {kRows, "ICON_DELETE"},
    {kRowWeb, "RELEASE_URL"},
    {kRowWeb, "DELETE_URL"},
    {kRowMail, "RELEASE_EMAIL_ADDR"},
    {kRowMail, "DELETE_EMAIL_ADDR"},
    {kWeb, "DELETE_ALL_URL"},
    {kWeb, "ICON_DELALL"},
    {kWeb, "ICON_RELEASE"},
    {kWeb, "ICON_DELETE"},
    {kMail, "DELETE_ALL_EMAIL_ADDR"},
    {kMail, "ICON_DELALL"},
    {kMail, "ICON_RELEASE"},
    {kMail, "ICON_DELETE"},
    {kOther, "PREFERENCE_URL"},
};

constexpr TemplateName kSections[] = {
    {"", "TABLE_HEADER"},
    {"", kRows},
    {"", kWeb},
    {"", kMail},
    {"", kOther},
    {"TABLE_HEADER", kWeb},
    {"TABLE_HEADER", kMail},
    {"", "COUNT_ZERO"},
    {"", "COUNT_ONE"},
    {"", "COUNT_TWO"},
    {"", "COUNT_FEW"},
    {"", "COUNT_MANY"},
    {"", "COUNT_OTHER"},
    {kRows, "NO_SENDER"},
    {kRows, "WITH_SENDER_NAME"},
    {kRows, "WITH_SENDER_ADDRESS"},
    {kRows, "NO_SUBJECT"},
    {kRows, "ODD_ROW"},
    {kRows, "EVEN_ROW"},
    {kRows, kWeb},
    {kRows, kMail},
};

/// The place above; of the top there is none.
std::string_view above(std::string_view place) {
  const std::size_t slash = place.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : place.substr(0, slash);
}

}  // namespace

std::span<const TemplateName> templateVariables() noexcept { return kVariables; }
std::span<const TemplateName> templateSections() noexcept { return kSections; }

bool isNamed(std::span<const TemplateName> names, std::string_view name) {
  return std::any_of(names.begin(), names.end(), [&](const TemplateName& row) { return row.name == name; });
}

const TemplateName* visibleName(std::span<const TemplateName> names, std::string_view place, std::string_view name) {
  for (;; place = above(place)) {
    for (const TemplateName& row : names) {
      if (row.name == name && row.place == place) return &row;
    }
    if (place.empty()) return nullptr;
  }
}

std::string placesOfName(std::span<const TemplateName> names, std::string_view name) {
  std::string text;
  for (const TemplateName& row : names) {
    if (row.name != name) continue;
    text += (text.empty() ? "" : " or ") + (row.place.empty() ? "the top" : std::string(row.place));
  }
  return text;
}

}  // namespace Velmar::Host
