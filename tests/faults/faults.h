#pragma once

// What can be made to fail while a report is made: each kind counts its calls in the thread that armed it, and lets the
// n-th fail, alone or with all that follow. One fault at a time.

#include <string>
#include <vector>

namespace Velmar::Testing {

/// What is to happen at the n-th call that counts.
struct Strike {
  int n = 0;             ///< from 1
  bool forGood = false;  ///< from the n-th call on, not only there
};

/// System calls of a kind, and how they fail. kKill ends the process at such a call, kHalf writes half of the bytes.
struct SystemCalls {
  std::vector<int> numbers;
  int error;               ///< an errno, kKill or kHalf
  const char* below = "";  ///< only calls about files whose path begins so count
};
inline constexpr int kKill = -1;
inline constexpr int kHalf = -2;

/// From here on this thread, and no other, meets them. They stay for its life, as does what is done at its end.
void armSystemCalls(const SystemCalls& calls, Strike strike);

/// What was struck first, for people: the call and what it was about; "" when nothing was.
std::string struckSystemCall();

/// Allocations that fail, in this thread until disarmAllocations().
void armAllocations(Strike strike);
void disarmAllocations();

/// Whether an allocation has failed since they were armed.
bool allocationFailed();

/// Puts this process's clock on. Sleeping does so, too, and takes no time.
void waitAMinute();

}  // namespace Velmar::Testing
