// A report at each of whose system calls something fails.

#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstdlib>

#include "tests/faults/faults.h"
#include "tests/faults/rig.h"

namespace Velmar::Testing {
namespace {

const std::vector<int> kReading = {SYS_open,       SYS_openat, SYS_read,   SYS_pread64,    SYS_getdents64,
                                   SYS_newfstatat, SYS_access, SYS_statfs, SYS_faccessat2, SYS_fcntl};
const std::vector<int> kOpening = {SYS_open, SYS_openat};
const std::vector<int> kWriting = {SYS_write,  SYS_pwrite64,  SYS_fsync, SYS_fdatasync, SYS_linkat,
                                   SYS_rename, SYS_renameat2, SYS_mkdir, SYS_ftruncate, SYS_fallocate,
                                   SYS_fchown, SYS_fchmod,    SYS_unlink};

struct Row {
  const char* name;
  SystemCalls calls;
  bool forGood;
  int least;  ///< so many calls at least
};

class SystemCallTest : public ::testing::TestWithParam<Row> {};

TEST_P(SystemCallTest, FailsAndTheNextReportIsWhole) {
  Rig rig;
  Row row = GetParam();
  // A library that cannot be looked for is taken for missing ever after: what fails for good lies below the root.
  if (row.forGood) row.calls.below = rig.root().c_str();
  int n = 1;
  const auto arm = [&] { armSystemCalls(row.calls, {n, row.forGood}); };
  while (!rig.report({arm, [] {}, struckSystemCall, row.forGood}, n).empty() && !HasFailure()) ++n;
  EXPECT_GT(n, row.least);
}

INSTANTIATE_TEST_SUITE_P(
    Faults, SystemCallTest,
    ::testing::Values(Row{"ReadOnce", {kReading, EIO}, false, 150}, Row{"ReadForGood", {kReading, EIO}, true, 80},
                      Row{"ReadInterrupted", {kReading, EINTR}, false, 150},
                      Row{"OpenForGood", {kOpening, EMFILE}, true, 15}, Row{"WriteOnce", {kWriting, ENOSPC}, false, 50},
                      Row{"WriteForGood", {kWriting, EDQUOT}, true, 50},
                      Row{"WriteInterrupted", {kWriting, EINTR}, false, 50},
                      Row{"WriteShort", {kWriting, kHalf}, true, 50}, Row{"WriteKilled", {kWriting, kKill}, false, 50}),
    [](const auto& it) { return it.param.name; });

}  // namespace
}  // namespace Velmar::Testing
