// A report at whose allocations memory is lacking.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "platform/text_network.h"
#include "tests/faults/faults.h"
#include "tests/faults/rig.h"

namespace Velmar::Testing {
namespace {

class AllocationTest : public ::testing::TestWithParam<bool> {};

// Samples; VELMAR_FAULT_STRIDE=1 asks for all, which takes long.
TEST_P(AllocationTest, FailsAndTheNextReportIsWhole) {
  Rig rig;
  const char* wish = ::getenv("VELMAR_FAULT_STRIDE");
  const int stride = wish ? std::max(std::atoi(wish), 1) : 499;
  const auto struck = [] { return std::string(allocationFailed() ? "allocation" : ""); };
  int n = 1;
  const auto arm = [&] {
    const Md5Hasher setUp;  // OpenSSL crashes where its own first set-up lacks memory
    armAllocations({n, GetParam()});
  };
  while (!rig.report({arm, disarmAllocations, struck, GetParam(), true}, n).empty() && !HasFailure()) {
    n += n < 20 ? 1 : stride;
  }
  EXPECT_GT(n, 5000);
}

INSTANTIATE_TEST_SUITE_P(Faults, AllocationTest, ::testing::Values(false, true),
                         [](const auto& it) { return it.param ? "ForGood" : "Once"; });

}  // namespace
}  // namespace Velmar::Testing
