// Fuzzes the scan of header blocks: any bytes, looked up under the names that a report asks for. A value is one line
// without blanks at its ends, and nothing behind the end of the header changes it.

#include "host/mailbox/header_block.h"
#include "tests/fuzz/fuzz.h"

namespace {

bool isUnfolded(const std::string& value) {
  const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
  if (value.find_first_of("\r\n") != std::string::npos) return false;
  return value.empty() || (!isBlank(value.front()) && !isBlank(value.back()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using Velmar::Host::HeaderBlock;
  // Neither has a NUL behind it that would hide a read too far: a view of the input, and a text that ends in a field.
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::string more = std::string(text) + "\nFrom: f\nSubject: s\nMessage-Id: m\nX-VX-MESSAGE-ID: x\na: a";
  const HeaderBlock block(text), longer(more);
  for (const char* name : {"From", "Subject", "Message-Id", "X-VX-MESSAGE-ID", "a"}) {
    const auto found = block.find(name);
    require(!found || isUnfolded(*found));
    require(!block.complete() || longer.find(name) == found);
  }
  return 0;
}
