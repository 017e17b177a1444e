// The base URL of web links, and the escaping of what is put behind it.
//
// Bytes are appended as they are, never through formatted output: a stream may carry a locale, a width or flags.

#include <cstring>

#include "platform/text_network.h"

namespace Velmar {
namespace {

bool isUnreserved(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
         c == '_' || c == '~';
}

}  // namespace

void vlm_url_escape_str(std::ostringstream& out, const std::string& text) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string escaped;
  escaped.reserve(text.size());
  for (const char c : text) {
    if (isUnreserved(c)) {
      escaped += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    escaped += '%';
    escaped += kDigits[byte >> 4];
    escaped += kDigits[byte & 15];
  }
  out.write(escaped.data(), static_cast<std::streamsize>(escaped.size()));
}

int vlm_build_http_url(const std::string& host, std::uint32_t port, int secure, char* buffer, int size) {
  if (!buffer || size <= 0) return -1;
  buffer[0] = '\0';
  if (port < 1 || port > 65535) return -1;
  std::string url = (secure ? "https://" : "http://") + host;
  if (port != (secure ? 443U : 80U)) url += ":" + std::to_string(port);
  if (url.size() >= static_cast<std::size_t>(size)) return -1;
  std::memcpy(buffer, url.c_str(), url.size() + 1);
  return static_cast<int>(url.size());
}

}  // namespace Velmar
