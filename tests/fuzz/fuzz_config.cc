// Fuzz target of the configuration file: any bytes are accepted or refused by one Exception of one line.

#include "host/common/host_config.h"
#include "tests/fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  try {
    Velmar::Host::parseHostConfig(text, "host.toml");
  } catch (const Velmar::Exception& exception) {
    require(exception.text().starts_with("host.toml:") && !hasControl(exception.text()));
  }
  return 0;
}
