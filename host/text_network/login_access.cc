// The other end of login links: whom an access value lets in. Called by services that resolve such links.
//
// It only says what the value proves. An address comes out of a value that this installation made for a login link and
// out of no other bytes.

#include <charconv>
#include <cstdint>

#include "host/host.h"
#include "host/text_network/trusted_base64.h"

namespace Velmar::Host {
namespace {

constexpr std::uint32_t kLoginKey = 0x5d2a7c31;  // under which reports have their access values made

// A 64-bit two's complement in lower-case hexadecimal without padding; nothing for any other text.
std::optional<std::int64_t> timeOfHex(std::string_view digits) {
  if (digits.empty() || (digits.size() > 1 && digits.front() == '0')) return {};
  if (digits.find_first_not_of("0123456789abcdef") != std::string_view::npos) return {};
  std::uint64_t bits = 0;
  const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), bits, 16);
  if (error != std::errc()) return {};
  return static_cast<std::int64_t>(bits);
}

}  // namespace

LoginAccess checkLoginAccess(std::string_view value, long long now) {
  const std::optional<std::string> text = decodeTrusted(value, kLoginKey);
  if (!text) return {};
  const std::size_t colon = text->rfind(':');  // an address may have colons of its own
  if (colon == std::string::npos || colon == 0) return {};
  const std::optional<std::int64_t> expiry = timeOfHex(std::string_view(*text).substr(colon + 1));
  if (!expiry) return {};
  if (now >= *expiry) return {LoginAccess::State::kExpired, ""};
  return {LoginAccess::State::kGranted, text->substr(0, colon)};
}

}  // namespace Velmar::Host
