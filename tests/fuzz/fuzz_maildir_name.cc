// Fuzzes the reading of Maildir file names: any bytes.

#include "host/mailbox/maildir_name.h"
#include "tests/fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Velmar::Host;
  const std::string_view name(reinterpret_cast<const char*>(data), size);

  const std::string_view unique = uniquePart(name);
  require(name.starts_with(unique));
  if (unique.size() == name.size()) require(messageMarks(name) == 0);

  // A time in front of the name stays what it is when the message is flagged.
  if (const auto time = deliveryTime(name)) {
    require(*time >= 0);
    require(deliveryTime(std::string(name) + ":2,S") == time);
    require(deliveryTime("0" + std::string(name)) == time);
  }
  const std::string flagged = std::string(unique) + ":2,T";
  require(uniquePart(flagged) == unique);
  require(messageMarks(flagged) == messageMarks(":2,T"));
  return 0;
}
