// A clock whose pauses take no time: whoever sleeps finds it later afterwards.

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "tests/faults/faults.h"

namespace {

std::atomic<long long> skipped{0};  // nanoseconds
constexpr long long kSecond = 1'000'000'000;

}  // namespace

extern "C" {
int clock_gettime(clockid_t clock, timespec* now) noexcept {
  if (::syscall(SYS_clock_gettime, clock, now) != 0) return -1;
  if (clock != CLOCK_MONOTONIC) return 0;
  const long long nanoseconds = now->tv_nsec + skipped;
  now->tv_sec += nanoseconds / kSecond;
  now->tv_nsec = nanoseconds % kSecond;
  return 0;
}
int nanosleep(const timespec* length, timespec* /*rest*/) {
  skipped += length->tv_sec * kSecond + length->tv_nsec;
  return 0;
}
int usleep(useconds_t length) {
  skipped += length * 1000LL;
  return 0;
}
int clock_nanosleep(clockid_t /*clock*/, int /*flags*/, const timespec* length, timespec* rest) {
  return nanosleep(length, rest);
}
}

namespace Velmar::Testing {

void waitAMinute() { skipped += 60 * kSecond; }

}  // namespace Velmar::Testing
