// Stands in for the configuration: counts how often it is asked for, and fails on demand.

#include "tests/host/logging/config_double.h"

namespace Velmar::Host {

ConfigDouble& configDouble() {
  static ConfigDouble& instance = *new ConfigDouble;
  return instance;
}

const HostConfig& hostConfig() {
  ConfigDouble& config = configDouble();
  ++config.loads;
  if (config.fails) throw Exception("ConfigException", 4, "Test", __LINE__, "host.toml:1: no such file");
  return config.config;
}

}  // namespace Velmar::Host
