#pragma once

// The host part of a report's web links.

#include <cstdint>
#include <string>

namespace Velmar {

/// What decides whether the system may name a web host at all.
struct AvailabilityState {
  std::uint32_t haMode;
  std::uint32_t haSyncFlag;
  std::uint32_t storageMode;
};

/// True when the state of high availability leaves reports without a web host.
bool leavesWebHostEmpty(const AvailabilityState& state);

/// The web host by configuration, ready for a URL (IPv6 in brackets); "" with a log event when the state of high
/// availability leaves it empty.
/// configured  host name of the report settings; "" = none
/// Throws Exception when the configuration cannot be read.
std::string chooseWebHost(const std::string& configured);

}  // namespace Velmar
