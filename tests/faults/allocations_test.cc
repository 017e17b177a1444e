// A report at whose allocations memory is lacking, in all libraries: this program's malloc stands before the C
// library's.

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include "platform/text_network.h"
#include "tests/faults/rig.h"

namespace {

thread_local bool armed = false;
thread_local int count = 0;
Velmar::Testing::Strike strike;
bool failed = false;

bool struck() {
  if (!armed || !strike.hits(++count)) return false;
  failed = true;
  errno = ENOMEM;
  return true;
}

}  // namespace

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t number, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

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
namespace {

class AllocationTest : public ::testing::TestWithParam<bool> {};

// Samples; VELMAR_FAULT_STRIDE=1 asks for all, which takes long.
TEST_P(AllocationTest, FailsAndTheNextReportIsWhole) {
  const Rig rig;
  const char* wish = ::getenv("VELMAR_FAULT_STRIDE");
  const int stride = wish ? std::max(std::atoi(wish), 1) : 499;
  const auto arm = [] {
    const Md5Hasher setUp;  // OpenSSL crashes where its own first set-up lacks memory
    armed = true;
  };
  const Fault fault{arm, [] { armed = false; }, [] { return failed ? "allocation" : ""; }, GetParam(), true};
  for (strike = {1, GetParam()}; rig.report(fault, strike.n) && !HasFailure();) strike.n += strike.n < 20 ? 1 : stride;
  EXPECT_GT(strike.n, 5000);
}

INSTANTIATE_TEST_SUITE_P(Faults, AllocationTest, ::testing::Values(false, true),
                         [](const auto& it) { return it.param ? "ForGood" : "Once"; });

}  // namespace
}  // namespace Velmar::Testing
