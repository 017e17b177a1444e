// Builds the release, delete and preference links. Called for each report and each of its messages.
//
// No locale reaches these texts: numbers are written without streams, and the one stream there is has the classic one.

#include "spamreport/action_links.h"

#include <array>
#include <charconv>
#include <initializer_list>
#include <locale>
#include <string_view>

#include "platform/text_network.h"

namespace Velmar {
namespace {

constexpr int kAccessValueMax = 1023;
constexpr std::int32_t kSecondsPerHour = 3600;

/// The texts one after the other: a report makes six links a row.
std::string joined(std::initializer_list<std::string_view> texts) {
  std::size_t bytes = 0;
  for (const std::string_view text : texts) bytes += text.size();
  std::string all;
  all.reserve(bytes);
  for (const std::string_view text : texts) all += text;
  return all;
}

/// The key is widened with zero bits.
std::int64_t keyed(std::int64_t value) { return value ^ static_cast<std::int64_t>(kLinkKey); }

/// The access value that lets `owner` in until `expiry`; "" when the platform cannot make one.
std::string accessValue(const std::string& owner, std::int64_t expiry) {
  const std::string text = owner + ":" + hexOf(expiry);
  std::array<char, kAccessValueMax + 1> out{};
  const int length = vlml_encode_trusted_base64_data(text.data(), static_cast<int>(text.size()), kLinkKey, out.data(),
                                                     kAccessValueMax);
  if (length < 1 || length > kAccessValueMax) return "";
  return std::string(out.data(), static_cast<std::size_t>(length));
}

}  // namespace

UrlEscaper::UrlEscaper() {
  out_.imbue(std::locale::classic());
  out_.exceptions(std::ios::badbit);  // a text that could not be written whole would be another link
}

std::string UrlEscaper::operator()(const std::string& text) {
  out_.clear();
  out_.str({});
  vlm_url_escape_str(out_, text);
  return out_.str();
}

std::string hexOf(std::int64_t value) {
  std::array<char, 16> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), static_cast<std::uint64_t>(value), 16);
  return std::string(digits.data(), end.ptr);
}

std::string deleteAllToken(const std::string& owner, std::int64_t periodEnd, std::int64_t periodSeconds,
                           const std::string& accessHash) {
  return owner + ":" + hexOf(keyed(periodEnd)) + ":" + hexOf(keyed(periodSeconds)) + ":" + accessHash;
}

std::string webToken(const std::string& owner, const std::string& messageId, const std::string& accessHash) {
  return joined({":", owner, ":", messageId, ":", accessHash});
}

std::string mailToken(const std::string& owner, const std::string& messageId, UrlEscaper& escaped) {
  return joined({owner, ":", escaped(messageId)});
}

std::string releaseUrl(const std::string& baseUrl, const std::string& token) {
  return joined({baseUrl, "/releasecontrol?release=0", token});
}

std::string deleteUrl(const std::string& baseUrl, const std::string& token) {
  return joined({baseUrl, "/releasecontrol?release=1", token});
}

std::string deleteAllUrl(const std::string& baseUrl, const std::string& token) {
  return baseUrl + "/releasecontrol?release=3:" + token;
}

std::string mailAction(const std::string& address, const std::string& subject) {
  return joined({"mailto:", address, "?subject=", subject});
}

std::string deleteAllMailSubject(const std::string& token) { return "delete_all: " + token; }

std::string deleteAllTextSubject(const std::string& token) { return "delete_all:" + token; }

std::int64_t accessLinkExpiry(std::int64_t now, std::int32_t hours) {
  const auto seconds =
      static_cast<std::int32_t>(static_cast<std::uint32_t>(hours) * static_cast<std::uint32_t>(kSecondsPerHour));
  return now + seconds;
}

std::string preferenceUrl(const std::string& baseUrl, const std::string& owner, std::int32_t accessLinkHours,
                          std::int64_t now) {
  if (accessLinkHours > 0) {
    const std::string access = accessValue(owner, accessLinkExpiry(now, accessLinkHours));
    if (!access.empty()) return baseUrl + "/mail/logincheck/bypass?access=" + UrlEscaper()(access);
  }
  return baseUrl + "/mail";
}

}  // namespace Velmar
