// IP addresses as text and back. Only what the C library's strict pair takes: no short forms, no names, no zones.

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>

#include "platform/text_network.h"

namespace Velmar {
namespace {

constexpr std::uint32_t kIpv4 = 2;
constexpr std::uint32_t kIpv6 = 10;
static_assert(kIpv4 == AF_INET && kIpv6 == AF_INET6);

}  // namespace

int vlm_ip_to_string(const vlm_ip_address& address, char* buffer, int size, int /*bracketed_never*/) {
  if (!buffer || size <= 0) return -1;
  buffer[0] = '\0';
  if (address.family != kIpv4 && address.family != kIpv6) return -1;
  if (inet_ntop(static_cast<int>(address.family), address.bytes, buffer, static_cast<socklen_t>(size))) return 0;
  buffer[0] = '\0';
  return -1;
}

int vlm_string_to_ip(const std::string& text, vlm_ip_address* address) {
  if (text.find('\0') != std::string::npos) return 0;
  for (const std::uint32_t family : {kIpv4, kIpv6}) {
    vlm_ip_address parsed{family, {}};
    if (inet_pton(static_cast<int>(family), text.c_str(), parsed.bytes) != 1) continue;
    *address = parsed;
    return 1;
  }
  return 0;
}

}  // namespace Velmar
