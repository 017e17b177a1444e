// Text, address and digest helpers that show in their results what they were given.

#include "platform/text_network.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "tests/fake/fake.h"

namespace Velmar {

using Fake::call;
using Fake::join;

int translate_datetime(const std::tm* when, int style, const char* language, char* out, std::size_t size) {
  Fake::note("translate_datetime", join({std::to_string(style), language, std::to_string(size)}));
  char date[64];
  std::strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", when);
  std::snprintf(out, size, "%s %s", language, date);
  return 0;
}

char* trim_left(char* text) {
  while (std::isspace(static_cast<unsigned char>(*text))) ++text;
  return text;
}

int vlm_ip_to_string(const vlm_ip_address& address, char* buffer, int size, int bracketed_never) {
  call("vlm_ip_to_string", join({std::to_string(size), std::to_string(bracketed_never)}));
  const int family = address.family == 10 ? AF_INET6 : AF_INET;
  return ::inet_ntop(family, address.bytes, buffer, static_cast<socklen_t>(size)) ? 0 : -1;
}

int vlm_string_to_ip(const std::string& text, vlm_ip_address* address) {
  call("vlm_string_to_ip", text);
  for (const int family : {AF_INET, AF_INET6}) {
    if (::inet_pton(family, text.c_str(), address->bytes) == 1) {
      address->family = static_cast<std::uint32_t>(family);
      return 1;
    }
  }
  return 0;
}

int vlm_build_http_url(const std::string& host, std::uint32_t port, int secure, char* buffer, int size) {
  call("vlm_build_http_url", join({host, std::to_string(port), std::to_string(secure), std::to_string(size)}));
  if (port == 0) return -1;
  return std::snprintf(buffer, static_cast<std::size_t>(size), "https://%s:%u", host.c_str(), port);
}

void vlm_url_escape_str(std::ostringstream& out, const std::string& text) {
  call("vlm_url_escape_str", text);
  std::string escaped;
  for (const char c : text) {
    char hex[4];
    std::snprintf(hex, sizeof hex, "%%%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
    escaped += std::isalnum(static_cast<unsigned char>(c)) || std::strchr("-._~", c) ? std::string(1, c) : hex;
  }
  out.write(escaped.data(), static_cast<std::streamsize>(escaped.size()));
}

std::string vlm_html_encode(const std::string& text) {
  call("vlm_html_encode", text);
  std::string encoded;
  for (const char c : text) {
    if (c == '<') {
      encoded += "&lt;";
    } else {
      encoded += c;
    }
  }
  return encoded;
}

int vlml_encode_trusted_base64_data(const char* text, int length, std::uint32_t key, char* out, int size) {
  char hex[16];
  std::snprintf(hex, sizeof hex, "%x", key);
  const std::string plain(text, static_cast<std::size_t>(length));
  Fake::note("vlml_encode_trusted_base64_data", join({plain, hex, std::to_string(size)}));
  if (Fake::world().encodedLength) {
    std::memset(out, 'x', static_cast<std::size_t>(size));
    return *Fake::world().encodedLength;
  }
  std::memcpy(out, plain.data(), plain.size());
  return length;
}

struct Md5Hasher::Context {
  std::string bytes;
};

Md5Hasher::Md5Hasher() : context_(std::make_unique<Context>()) { call("Md5Hasher"); }
Md5Hasher::~Md5Hasher() = default;

void Md5Hasher::update(const void* data, std::size_t length) {
  context_->bytes.append(static_cast<const char*>(data), length);
}

void Md5Hasher::finalize() {
  digest_ = {};
  final_ = true;
}

void Md5Hasher::xorDigest(std::uint32_t key) {
  if (!final_) throw Exception("DigestException", 1, "Fake", 1, "not finalised");
  for (std::size_t i = 0; i < 4; ++i) digest_[i] = static_cast<unsigned char>(key >> (8 * (3 - i)));
}

std::string Md5Hasher::digestAsHexString() const {
  char key[9];
  std::snprintf(key, sizeof key, "%02x%02x%02x%02x", digest_[0], digest_[1], digest_[2], digest_[3]);
  return "md5(" + context_->bytes + ")^" + key;
}

}  // namespace Velmar
