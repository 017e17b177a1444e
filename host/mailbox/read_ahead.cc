// Reads ahead of a scan whose messages are not in memory. Called by the mailbox before each message. One read after
// the other leaves a disk idle most of the time, and opening a file waits for its inode as reading waits for its text;
// so a few threads do both. They run only within a call: nothing is left over when a scan ends early or a program
// forks.

#include "host/mailbox/read_ahead.h"

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <thread>
#include <utility>
#include <vector>

#include "host/common/signals_blocked.h"
#include "host/mailbox/message_file.h"

namespace Velmar::Host {
namespace {

// So many messages show whether the scan waits; so many are touched at once when it does.
constexpr std::size_t kSample = 8;
constexpr std::size_t kAhead = 4096;
constexpr std::size_t kFewest = 16;  // that are worth the threads
constexpr std::size_t kHelpers = 8;

// How often this thread has slept, for the disk above all; being displaced by other work does not count.
long waitsOfThisThread() {
  rusage usage{};
  ::getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nvcsw;
}

// Descriptors from this number on are left to the program, which may have few.
int descriptorBound() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
  return static_cast<int>(std::min<rlim_t>(limit.rlim_cur, 1 << 20) / 2);
}

// Touches the messages from `begin` to `end` and returns how often the threads had to wait.
long touch(const Maildir& maildir, const Listing& messages, std::size_t begin, std::size_t end) {
  const int bound = descriptorBound();
  std::atomic<std::size_t> next{begin};
  std::atomic<long> waits{0};
  const auto work = [&] {
    MessageOpener opener;
    for (std::size_t i = next++; i < end; i = next++) {
      const ListedMessage& message = messages[i];
      const char* const name = messages.name(message).data();
      if (message.regular && !opener.touch(maildir.descriptor(message.folder), name, bound)) break;
    }
    waits += waitsOfThisThread();
  };
  {
    std::vector<std::jthread> helpers;  // ends before what they use
    try {
      const SignalsBlocked blocked;  // not while they work: the program's own thread may have to stop
      helpers.reserve(kHelpers);
      while (helpers.size() < kHelpers) helpers.emplace_back(work);
    } catch (const std::exception&) {
      // No more threads or memory: those that run do what they can, and the scan reads the rest when it gets there.
    }
  }
  return waits;
}

}  // namespace

void ReadAhead::before(const Maildir& maildir, const Listing& messages, std::size_t position, std::size_t most) {
  if (position < end_) return;
  const std::size_t rest = std::min(messages.size() - position, most);
  if (rest < kFewest) return;
  const std::size_t done = position - std::exchange(begin_, position);
  const long now = waitsOfThisThread();
  const long waits = helpersWaits_ + now - std::exchange(waitsBefore_, now);
  const bool cold = done > 0 && waits * 2 >= static_cast<long>(done);
  end_ = position + std::min(rest, cold ? kAhead : kSample);
  helpersWaits_ = cold ? touch(maildir, messages, begin_, end_) : 0;
}

}  // namespace Velmar::Host
