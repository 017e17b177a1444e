// Lets allocations fail, those of all libraries: this program's malloc stands before the C library's.

#include <cerrno>
#include <cstddef>

#include "tests/faults/faults.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t number, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

thread_local bool armed = false;
bool failed = false;
thread_local int count = 0;
thread_local Velmar::Testing::Strike strike;

bool struck() {
  if (!armed) return false;
  ++count;
  if (count != strike.n && !(strike.forGood && count > strike.n)) return false;
  failed = true;
  errno = ENOMEM;
  return true;
}

}  // namespace

extern "C" {
void* malloc(std::size_t size) { return struck() ? nullptr : __libc_malloc(size); }
void* calloc(std::size_t number, std::size_t size) { return struck() ? nullptr : __libc_calloc(number, size); }
void* realloc(void* block, std::size_t size) { return struck() ? nullptr : __libc_realloc(block, size); }
void* memalign(std::size_t alignment, std::size_t size) {
  return struck() ? nullptr : __libc_memalign(alignment, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) { return memalign(alignment, size); }
int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = memalign(alignment, size);
  return *block ? 0 : ENOMEM;
}
}

namespace Velmar::Testing {

void armAllocations(Strike when) {
  strike = when;
  count = 0;
  failed = false;
  armed = true;
}

void disarmAllocations() { armed = false; }

bool allocationFailed() { return failed; }

}  // namespace Velmar::Testing
