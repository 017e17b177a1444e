// Fuzzes the address parser with any bytes, as one mailbox and as a list, and checks what must hold for every result:
// no control characters, and an address that is read again as itself.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/types.h"

namespace {

using Velmar::EmailAddress;

bool hasControl(const std::string& text) {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) return true;
  }
  return false;
}

void check(const EmailAddress& address, bool requireDomain) {
  if (address.isEmptyAddress()) {
    if (!address.address().empty() || !address.displayName().empty()) std::abort();
    return;
  }
  if (hasControl(address.address()) || hasControl(address.displayName())) std::abort();
  if (requireDomain && address.domain().empty()) std::abort();
  const EmailAddress again = EmailAddress::rfc5322Parse(address.address(), requireDomain);
  if (again.localPart() != address.localPart() || again.domain() != address.domain()) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  for (const bool requireDomain : {true, false}) {
    const EmailAddress one = EmailAddress::rfc5322Parse(text, requireDomain);
    check(one, requireDomain);
    const auto members = EmailAddress::rfc5322ParseSet(text, requireDomain, false);
    for (const EmailAddress& member : members) check(member, requireDomain);
    // one mailbox is a list of one
    if (!one.isEmptyAddress() && (members.size() != 1 || !(*members.begin() == one))) std::abort();
  }
  return 0;
}
