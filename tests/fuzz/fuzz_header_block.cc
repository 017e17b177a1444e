// Fuzzes the scan of header blocks: any bytes, looked up under the names that a report asks for.
// What it found is compared with a slow second reading of the same rules, line by line.

#include <strings.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "host/mailbox/header_block.h"

namespace {

using Field = std::optional<std::string>;

// The length of the line end at `at`; 0 when there is none. CRs before a LF, or at the end of the text, are one.
std::size_t lineEndAt(std::string_view text, std::size_t at) {
  std::size_t end = at;
  while (end < text.size() && text[end] == '\r') ++end;
  if (end < text.size() && text[end] == '\n') return end + 1 - at;
  if (end == at) return 0;
  return end == text.size() ? end - at : 1;
}

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::string trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t");
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

bool hasName(const std::string& field, const std::string& name) {
  std::size_t colon = name.size();
  if (field.size() <= colon || strncasecmp(field.data(), name.data(), name.size()) != 0) return false;
  while (colon < field.size() && isBlank(field[colon])) ++colon;
  return colon < field.size() && field[colon] == ':';
}

Field slowFind(std::string_view text, const std::string& name) {
  std::string field;         // its lines so far, joined
  std::size_t nameLine = 0;  // bytes of the first one, which must hold name and colon
  std::size_t at = 0;
  while (true) {
    const bool over = at == text.size() || lineEndAt(text, at) > 0;
    if (over || !isBlank(text[at])) {
      if (hasName(field.substr(0, nameLine), name)) return trimmed(field.substr(field.find(':') + 1));
      if (over) return std::nullopt;
      field.clear();
      nameLine = 0;
    }
    const bool first = field.empty() && !isBlank(text[at]);
    while (at < text.size() && lineEndAt(text, at) == 0) field += text[at++];
    if (first) nameLine = field.size();
    at += at < text.size() ? lineEndAt(text, at) : 0;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Without a NUL behind it, so that reading too far is seen.
  const std::unique_ptr<char[]> bytes(new char[size]);
  std::copy(data, data + size, bytes.get());
  const std::string_view text(bytes.get(), size);
  const Velmar::Host::HeaderBlock block(text);
  for (const char* name : {"From", "Subject", "Message-Id", "X-VX-MESSAGE-ID", "a"}) {
    if (block.find(name) != slowFind(text, name)) std::abort();
  }
  return 0;
}
