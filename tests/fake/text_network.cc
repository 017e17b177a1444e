// The text helpers that depend on more than their arguments; the others are the host's.

#include "platform/text_network.h"

#include <cstdio>
#include <cstring>

#include "tests/fake/fake.h"

namespace Velmar {

using Fake::join;

int translate_datetime(const std::tm* when, int style, const char* language, char* out, std::size_t size) {
  Fake::note("translate_datetime", join({std::to_string(style), language, std::to_string(size)}));
  char date[64];
  std::strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", when);
  std::snprintf(out, size, "%s %s", language, date);
  return 0;
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

}  // namespace Velmar
