// Any bytes as a raw header value: one line of valid UTF-8 comes out, and encoding it again loses nothing.

#include "host/mail_builder/header_encoding.h"
#include "host/mail_builder/utf8.h"
#include "platform/mail_builder.h"
#include "platform/types.h"
#include "tests/fuzz/fuzz.h"

namespace {

std::string decoded(const std::string& raw) {
  Velmar::Buffer out;
  Velmar::stringToUtf8(raw, out, nullptr);
  return std::string(out.data() ? out.data() : "", out.length());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = decoded(std::string(reinterpret_cast<const char*>(data), size));
  require(Velmar::Host::utf8Quality(text).malformed == 0 && Velmar::Host::oneLine(text) == text);
  // What a header begins or ends with must be no blank.
  const std::string inside = "x" + text + "x",
                    field = Velmar::Host::foldedField("A", Velmar::Host::encodeUnstructured(inside));
  require(decoded(field.substr(3, field.size() - 5)) == inside);
  return 0;
}
