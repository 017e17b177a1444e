// time() and sleep() of the test program: the clock stands still, and a pause is recorded and moves it on.
//
// The program's own definitions win over those of the C library, so the library under test gets these.

#include <unistd.h>

#include <atomic>
#include <ctime>

#include "tests/fake/fake.h"

namespace {
std::atomic<std::time_t> now{0};
}

namespace Velmar::Fake {
void setClock(std::time_t time) { now = time; }
}  // namespace Velmar::Fake

extern "C" {

__attribute__((visibility("default"))) std::time_t time(std::time_t* out) noexcept {
  const std::time_t value = now;
  if (out) *out = value;
  return value;
}

__attribute__((visibility("default"))) unsigned int sleep(unsigned int seconds) {
  Velmar::Fake::note("sleep", std::to_string(seconds));
  now += seconds;
  return 0;
}
}
