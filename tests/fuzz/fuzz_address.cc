// Fuzzes the address parser with any bytes, as one mailbox and as a list, and checks what must hold for every result:
// no control characters, and an address that is read again as itself.

#include "platform/types.h"
#include "tests/fuzz/fuzz.h"

namespace {

using Velmar::EmailAddress;

void check(const EmailAddress& address, bool requireDomain) {
  if (address.isEmptyAddress()) return require(address.address().empty() && address.displayName().empty());
  require(!hasControl(address.address()) && !hasControl(address.displayName()));
  require(!requireDomain || !address.domain().empty());
  const EmailAddress again = EmailAddress::rfc5322Parse(address.address(), requireDomain);
  require(again.localPart() == address.localPart() && again.domain() == address.domain());
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
    require(one.isEmptyAddress() || (members.size() == 1 && *members.begin() == one));
  }
  return 0;
}
