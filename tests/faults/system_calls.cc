// Lets system calls fail, also those that the C library makes inside itself. A filter of the kernel turns each call
// that counts into a signal, and its handler makes the call or does not. The handler allocates nothing.

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "tests/faults/faults.h"

namespace Velmar::Testing {
namespace {

// The sixth argument, which none of the calls that count has, marks what the handler lets through.
constexpr unsigned long kOurs = 0x5e17a9c3;

int error = 0;
Strike strike;
const char* below = "";
int count = 0;
long struckNumber = -1;
char struckAbout[300] = "";

bool takesPath(long call) {
  for (const long other : {SYS_open, SYS_mkdir, SYS_unlink, SYS_access, SYS_statfs, SYS_rename}) {
    if (call == other) return true;
  }
  return false;
}

bool takesDirectoryAndPath(long call) {
  for (const long other : {SYS_openat, SYS_newfstatat, SYS_linkat, SYS_renameat2, SYS_unlinkat, SYS_faccessat2}) {
    if (call == other) return true;
  }
  return false;
}

/// The path that a call is about; of what is named beside a directory, the directory's when there is one.
void find(char (&about)[300], long call, const greg_t* registers) {
  std::memset(about, 0, sizeof about);
  const bool second = takesDirectoryAndPath(call);
  const int file = static_cast<int>(registers[REG_RDI]);
  if (takesPath(call) || (second && file == AT_FDCWD)) {
    std::strncpy(about, reinterpret_cast<const char*>(registers[second ? REG_RSI : REG_RDI]), sizeof about - 1);
    return;
  }
  char link[40];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", file);
  if (::readlink(link, about, sizeof about - 1) < 0) about[0] = '\0';
}

/// Whether this call is struck.
bool counts(long call, const greg_t* registers) {
  char about[300];
  find(about, call, registers);
  if (std::strncmp(about, below, std::strlen(below)) != 0) return false;
  ++count;
  if (count != strike.n && !(strike.forGood && count > strike.n)) return false;
  if (struckNumber < 0) std::memcpy(struckAbout, about, sizeof about);
  if (struckNumber < 0) struckNumber = call;
  return true;
}

void onCall(int, siginfo_t* info, void* context) {
  const int before = errno;
  greg_t* const registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
  const long call = info->si_syscall;
  const bool writes = call == SYS_write || call == SYS_pwrite64;
  const bool struck = counts(call, registers);
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

void install(const std::vector<int>& calls) {
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

}  // namespace

void armSystemCalls(const SystemCalls& calls, Strike when) {
  error = calls.error;
  below = calls.below;
  strike = when;
  struct sigaction action {};
  action.sa_sigaction = onCall;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  ::sigaction(SIGSYS, &action, nullptr);
  install(calls.numbers);
}

std::string struckSystemCall() {
  return struckNumber < 0 ? "" : "system call " + std::to_string(struckNumber) + " on " + struckAbout;
}

}  // namespace Velmar::Testing
