// Texts that only this installation can have made, for links that grant access.
//
// The encoding is base64url (RFC 4648 section 5) without padding of
//
//   version   1 byte, 1
//   text      as given, any bytes
//   code      32 bytes: HMAC-SHA-256, keyed with the installation's secret, over
//             version | key as 4 bytes, lowest first | text
//
// The text is readable to everyone; the code protects it from change and from use under another key. What expires must
// say so in the text. Decoding takes the one canonical form only, so no two encodings mean the same.

#include "host/text_network/trusted_base64.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <array>

#include "host/text_network/installation_secret.h"
#include "platform/logging.h"
#include "platform/text_network.h"
#include "platform/types.h"

namespace Velmar {
namespace {

constexpr unsigned int kLinkNotSigned = 0x90020;
constexpr char kVersion = 1;
constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

using Code = std::array<unsigned char, 32>;

constexpr std::size_t kFrame = 1 + std::tuple_size_v<Code>;

/// The number of digits for so many bytes.
constexpr std::size_t encodedLength(std::size_t bytes) { return bytes / 3 * 4 + (bytes % 3 ? bytes % 3 + 1 : 0); }

std::string encode(std::string_view bytes) {
  std::string digits;
  digits.reserve(encodedLength(bytes.size()));
  std::uint32_t pending = 0;
  int bits = 0;
  for (const char c : bytes) {
    pending = pending << 8 | static_cast<unsigned char>(c);
    for (bits += 8; bits >= 6; bits -= 6) digits += kDigits[pending >> (bits - 6) & 63];
  }
  if (bits > 0) digits += kDigits[pending << (6 - bits) & 63];
  return digits;
}

/// The bytes of which encode() makes exactly these digits.
std::optional<std::string> decode(std::string_view digits) {
  std::string bytes;
  bytes.reserve(digits.size() / 4 * 3 + 2);
  std::uint32_t pending = 0;
  int bits = 0;
  for (const char c : digits) {
    const std::size_t value = std::string_view(kDigits).find(c);
    if (value == std::string_view::npos) return {};
    pending = pending << 6 | static_cast<std::uint32_t>(value);
    bits += 6;
    if (bits < 8) continue;
    bits -= 8;
    bytes += static_cast<char>(pending >> bits & 255);
  }
  const bool wholeBytes = bits < 6;
  const bool restIsZero = (pending & ((1U << bits) - 1)) == 0;
  if (!wholeBytes || !restIsZero) return {};
  return bytes;
}

Code authenticationCode(const Host::Secret& secret, std::uint32_t key, std::string_view text) {
  std::string message(1, kVersion);
  for (int shift = 0; shift < 32; shift += 8) message += static_cast<char>(key >> shift & 255);
  message += text;
  Code code{};
  if (!HMAC(EVP_sha256(), secret.data(), static_cast<int>(secret.size()),
            reinterpret_cast<const unsigned char*>(message.data()), message.size(), code.data(), nullptr)) {
    throw Exception("DigestException", 4, "TrustedBase64", __LINE__, "OpenSSL cannot compute HMAC-SHA-256");
  }
  return code;
}

std::string encodeTrusted(std::string_view text, std::uint32_t key) {
  const Code code = authenticationCode(Host::installationSecret(true), key, text);
  std::string frame(1, kVersion);
  frame += text;
  frame.append(code.begin(), code.end());
  return encode(frame);
}

}  // namespace

std::optional<std::string> Host::decodeTrusted(std::string_view encoded, std::uint32_t key) {
  const Secret secret = installationSecret(false);
  const std::optional<std::string> frame = decode(encoded);
  if (!frame || frame->size() < kFrame || frame->front() != kVersion) return {};
  const std::string_view text(frame->data() + 1, frame->size() - kFrame);
  const Code code = authenticationCode(secret, key, text);
  if (CRYPTO_memcmp(code.data(), text.data() + text.size(), code.size()) != 0) return {};
  return std::string(text);
}

int vlml_encode_trusted_base64_data(const char* text, int length, std::uint32_t key, char* out, int size) try {
  if (length < 0 || size < 0 || !out || (!text && length > 0)) return -1;
  const auto bytes = static_cast<std::size_t>(length);
  if (encodedLength(bytes + kFrame) > static_cast<std::size_t>(size)) return -1;
  const std::string encoded = encodeTrusted(std::string_view(bytes ? text : "", bytes), key);
  std::copy(encoded.begin(), encoded.end(), out);  // no NUL: the caller has the length
  return static_cast<int>(encoded.size());
} catch (const std::exception& e) {
  // No secret, no memory: the caller can only make a link without login.
  Logger::instance(false).log(kLinkNotSigned, 0, "%s", e.what());
  return -1;
}

}  // namespace Velmar
