// The test program's own time(), sleep() and strdup(): the clock stands still, a pause is recorded and moves it on, and
// memory for a copy can be lacking.
//
// Definitions in the program win over those of the C library. They are hidden, so that only the library under test,
// which is linked into the program, gets them.

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "tests/fake/fake.h"

namespace {

std::atomic<std::time_t> now{0};

}  // namespace

namespace Velmar::Fake {

void setClock(std::time_t time) { now = time; }

}  // namespace Velmar::Fake

extern "C" {

std::time_t time(std::time_t* out) noexcept {
  const std::time_t value = now;
  if (out) *out = value;
  return value;
}

unsigned int sleep(unsigned int seconds) {
  Velmar::Fake::note("sleep", std::to_string(seconds));
  const unsigned int slept = Velmar::Fake::world().signals-- > 0 ? 1 : seconds;
  now += slept;
  return seconds - slept;
}

char* strdup(const char* text) noexcept {
  const std::size_t size = std::strlen(text) + 1;
  char* copy = Velmar::Fake::world().copiesFail ? nullptr : static_cast<char*>(std::malloc(size));
  if (copy) std::memcpy(copy, text, size);
  return copy;
}
}
