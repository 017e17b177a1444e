#pragma once

// A configuration that the tests of the log decide: it stands in for the real one at link time.

#include <atomic>

#include "host/common/host_config.h"

namespace Velmar::Host {

struct ConfigDouble {
  std::atomic<int> loads{0};
  std::atomic<bool> fails{false};
  HostConfig config;
};

/// What hostConfig() answers in this test program.
ConfigDouble& configDouble();

}  // namespace Velmar::Host
