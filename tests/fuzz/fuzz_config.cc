// Fuzz target of the configuration file: any bytes are accepted or refused by one Exception of one line.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "host/common/host_config.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  try {
    Velmar::Host::parseHostConfig(text, "host.toml");
  } catch (const Velmar::Exception& exception) {
    const std::string& fault = exception.text();
    const auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7f; };
    if (fault.rfind("host.toml:", 0) != 0 || std::any_of(fault.begin(), fault.end(), isControl)) std::abort();
  }
  return 0;
}
