#pragma once

// Text, address and digest helpers.

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <sstream>
#include <string>

#include "platform/config_store.h"
#include "platform/export.h"

namespace Velmar {

// Every operation here may be called from any thread. None depends on the locale of the process.

/// Writes a date in words, NUL-terminated.
///
/// when      broken-down local time; fields out of range are normalised
/// style     2 = medium date with hours and minutes, the only one used
/// language  code like "de", "pt-BR" or "zh_TW"; null, "" or unknown = English
/// out       `size` bytes, UTF-8; on failure holds "" (when size is not 0). A text that does not fit is a failure
/// Returns 0, or -1 on failure. Does not throw.
VLM_EXPORT int translate_datetime(const std::tm* when, int style, const char* language, char* out, std::size_t size);

/// The first character of `text` that is no white space (space, \t, \n, \v, \f, \r), within the same text.
VLM_EXPORT char* trim_left(char* text);

/// Writes an address as text. bracketed_never is 1: no brackets around IPv6.
/// Returns 0; -1 for an unknown family or when it does not fit: then buffer[0] is NUL.
VLM_EXPORT int vlm_ip_to_string(const vlm_ip_address& address, char* buffer, int size, int bracketed_never);

/// Parses an IPv4 (dotted quad) or IPv6 address, without brackets or zone. Returns 1 and fills `address`,
/// or 0 for anything else and leaves it alone.
VLM_EXPORT int vlm_string_to_ip(const std::string& text, vlm_ip_address* address);

/// Writes "https://HOST[:PORT]" (no slash at the end), NUL-terminated; the scheme's own port is left out.
///
/// host    as it shall stand in the URL; an IPv6 address already in brackets; "" gives an empty host
/// port    1 to 65535
/// secure  1 = https, 0 = http
/// Returns the length, or -1 when it does not fit or the port is out of range: then buffer[0] is NUL.
VLM_EXPORT int vlm_build_http_url(const std::string& host, std::uint32_t port, int secure, char* buffer, int size);

/// Appends `text` with every byte but RFC 3986 unreserved ones (letters, digits, "-", ".", "_", "~") as %XX.
/// Upper-case hexadecimal; immune to the stream's format flags and locale.
VLM_EXPORT void vlm_url_escape_str(std::ostringstream& out, const std::string& text);

/// `text` with & < > " ' as entities; all else unchanged.
VLM_EXPORT std::string vlm_html_encode(const std::string& text);

/// Encodes a text so that only this installation can have made it: URL-safe base64 of the text and an authentication
/// code over it (HMAC-SHA-256 with the installation's secret, `key` as context).
///
/// text, length  the bytes; length 0 or more
/// out, size     receives the encoding, not NUL-terminated; never more than `size` bytes are written
/// Returns the number of bytes written; -1 when it does not fit, for a negative length, or when there is no secret.
/// Does not throw.
VLM_EXPORT int vlml_encode_trusted_base64_data(const char* text, int length, std::uint32_t key, char* out, int size);

/// The MD5 digest (RFC 1321) of what it is fed. Used by one thread.
class VLM_EXPORT Md5Hasher {
 public:
  /// Throws Exception when the digest is not available on this host.
  Md5Hasher();
  Md5Hasher(const Md5Hasher&) = delete;
  Md5Hasher& operator=(const Md5Hasher&) = delete;
  ~Md5Hasher();

  /// Adds bytes. Throws Exception after finalize().
  void update(const void* data, std::size_t length);
  /// Completes the digest; needed before the operations below, which throw Exception without it.
  void finalize();
  /// Replaces each of the digest's four 32-bit words, read as little-endian, by its exclusive or with `key`.
  void xorDigest(std::uint32_t key);
  /// 32 lower-case hexadecimal digits.
  std::string digestAsHexString() const;

 private:
  struct Context;
  std::unique_ptr<Context> context_;
  std::array<unsigned char, 16> digest_{};
  bool final_ = false;
};

}  // namespace Velmar
