// Any bytes as a raw header value: one line of valid UTF-8 comes out, and encoding it again loses nothing.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "host/mail_builder/header_encoding.h"
#include "host/mail_builder/utf8.h"
#include "platform/mail_builder.h"
#include "platform/types.h"

namespace {

std::string decoded(const std::string& raw) {
  Velmar::Buffer out;
  Velmar::stringToUtf8(raw, out, nullptr);
  return std::string(out.data() ? out.data() : "", out.length());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = decoded(std::string(reinterpret_cast<const char*>(data), size));
  if (Velmar::Host::oneLine(text) != text) std::abort();
  if (decoded(Velmar::Host::encodeUnstructured(text)) != text) std::abort();
  return 0;
}
