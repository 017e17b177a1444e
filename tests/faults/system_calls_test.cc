// A report at each of whose system calls something fails, also those that the C library makes inside itself. A filter
// of the kernel turns each call that counts into a signal, and its handler makes the call or does not. The handler
// allocates nothing. Both stay for the life of the thread that reports, as does what is done at its end.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "tests/faults/rig.h"

namespace Velmar::Testing {
namespace {

const std::vector<int> kReading = {SYS_open,       SYS_openat, SYS_read,   SYS_pread64,    SYS_getdents64,
                                   SYS_newfstatat, SYS_access, SYS_statfs, SYS_faccessat2, SYS_fcntl};
const std::vector<int> kOpening = {SYS_open, SYS_openat};
const std::vector<int> kWriting = {SYS_write,  SYS_pwrite64,  SYS_fsync, SYS_fdatasync, SYS_linkat,
                                   SYS_rename, SYS_renameat2, SYS_mkdir, SYS_ftruncate, SYS_fallocate,
                                   SYS_fchown, SYS_fchmod,    SYS_unlink};
constexpr int kPathFirst[] = {SYS_open, SYS_mkdir, SYS_unlink, SYS_access, SYS_statfs, SYS_rename};
constexpr int kPathBehindDirectory[] = {SYS_openat, SYS_newfstatat, SYS_linkat, SYS_renameat2, SYS_faccessat2};

// In the place of an errno: the process ends, or half of the bytes are written.
constexpr int kKill = -1;
constexpr int kHalf = -2;

// The sixth argument, which none of the calls that count has, marks what the handler lets through.
constexpr unsigned long kOurs = 0x5e17a9c3;

struct Row {
  const char* name;
  const std::vector<int>& calls;
  int error;
  bool forGood;
  int least;  ///< so many calls at least
};

int error = 0;
Strike strike;
const char* below = "";  // only calls about files whose path begins so count
int count = 0;
long struckNumber = -1;
char struckAbout[300] = "";

/// The path that a call is about; of what is named beside a directory, the directory's when there is one.
void find(char (&about)[300], long call, const greg_t* registers) {
  std::memset(about, 0, sizeof about);
  const bool first = std::ranges::count(kPathFirst, call) > 0;
  const bool second = std::ranges::count(kPathBehindDirectory, call) > 0;
  const int file = static_cast<int>(registers[REG_RDI]);
  if (first || (second && file == AT_FDCWD)) {
    std::strncpy(about, reinterpret_cast<const char*>(registers[second ? REG_RSI : REG_RDI]), sizeof about - 1);
    return;
  }
  char link[40];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", file);
  if (::readlink(link, about, sizeof about - 1) < 0) about[0] = '\0';
}

bool isStruck(long call, const greg_t* registers) {
  char about[300];
  find(about, call, registers);
  if (std::strncmp(about, below, std::strlen(below)) != 0 || !strike.hits(++count)) return false;
  if (struckNumber < 0) std::memcpy(struckAbout, about, sizeof about);
  if (struckNumber < 0) struckNumber = call;
  return true;
}

void onCall(int, siginfo_t* info, void* context) {
  const int before = errno;
  greg_t* const registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
  const long call = info->si_syscall;
  const bool writes = call == SYS_write || call == SYS_pwrite64;
  const bool struck = isStruck(call, registers);
  if (struck && error == kKill) ::kill(::getpid(), SIGKILL);
  if (struck && error > 0) {
    registers[REG_RAX] = -error;
  } else {
    const greg_t size = registers[REG_RDX];
    const long result =
        ::syscall(call, registers[REG_RDI], registers[REG_RSI], struck && writes ? (size + 1) / 2 : size,
                  registers[REG_R10], registers[REG_R8], kOurs);
    registers[REG_RAX] = result == -1 ? -errno : result;
  }
  errno = before;
}

/// From here on this thread, and no other, meets them.
void arm(const std::vector<int>& calls) {
  struct sigaction action {};
  action.sa_sigaction = onCall;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  ::sigaction(SIGSYS, &action, nullptr);
  std::vector<sock_filter> program = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args) + 5 * sizeof(std::uint64_t)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kOurs, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
  };
  for (const int call : calls) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP));
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
    throw std::runtime_error("no filter for system calls");
  }
}

class SystemCallTest : public ::testing::TestWithParam<Row> {};

TEST_P(SystemCallTest, FailsAndTheNextReportIsWhole) {
  const Rig rig;
  const Row& row = GetParam();
  error = row.error;
  // A library that cannot be looked for is taken for missing ever after: what fails for good lies below the root.
  below = row.forGood ? rig.root().c_str() : "";
  const auto struck = [] {
    return struckNumber < 0 ? "" : "system call " + std::to_string(struckNumber) + " on " + struckAbout;
  };
  const Fault fault{[&] { arm(row.calls); }, [] {}, struck, row.forGood};
  for (strike = {1, row.forGood}; rig.report(fault, strike.n) && !HasFailure();) ++strike.n;
  EXPECT_GT(strike.n, row.least);
}

INSTANTIATE_TEST_SUITE_P(
    Faults, SystemCallTest,
    ::testing::Values(Row{"ReadOnce", kReading, EIO, false, 150}, Row{"ReadForGood", kReading, EIO, true, 80},
                      Row{"ReadInterrupted", kReading, EINTR, false, 150},
                      Row{"OpenForGood", kOpening, EMFILE, true, 15}, Row{"WriteOnce", kWriting, ENOSPC, false, 50},
                      Row{"WriteForGood", kWriting, EDQUOT, true, 50},
                      Row{"WriteInterrupted", kWriting, EINTR, false, 50}, Row{"WriteShort", kWriting, kHalf, true, 50},
                      Row{"WriteKilled", kWriting, kKill, false, 50}),
    [](const auto& it) { return it.param.name; });

}  // namespace
}  // namespace Velmar::Testing
