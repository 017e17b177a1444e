#pragma once

// Times of files and directories, for comparing.

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <limits>

namespace Velmar::Host {

/// A moment of a file system's clock, in nanoseconds since the epoch. Whoever may write to a file can give it any time:
/// those from the year 2262 on are all one, as are those before 1677.
inline std::int64_t nanoseconds(const timespec& moment) noexcept {
  constexpr std::int64_t kSecond = 1'000'000'000;
  constexpr std::int64_t kFarthest = std::numeric_limits<std::int64_t>::max() / kSecond - 1;
  return std::clamp<std::int64_t>(moment.tv_sec, -kFarthest, kFarthest) * kSecond + moment.tv_nsec;
}

/// The present, as file systems tell it.
inline std::int64_t nanosecondsNow() noexcept {
  timespec moment{};
  ::clock_gettime(CLOCK_REALTIME, &moment);
  return nanoseconds(moment);
}

}  // namespace Velmar::Host
