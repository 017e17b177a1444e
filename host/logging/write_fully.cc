// The write(2) and poll(2) loops of the log's sinks.

#include "host/logging/write_fully.h"

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

namespace Velmar::Host {
namespace {

/// Keeps SIGPIPE from this thread during its life; one that was raised meanwhile is taken back.
class SigpipeHeldBack {
 public:
  SigpipeHeldBack() noexcept {
    sigset_t pending;
    sigemptyset(&pending);
    ::sigpending(&pending);
    waitedBefore_ = sigismember(&pending, SIGPIPE) == 1;
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  SigpipeHeldBack(const SigpipeHeldBack&) = delete;
  SigpipeHeldBack& operator=(const SigpipeHeldBack&) = delete;
  ~SigpipeHeldBack() {
    const std::timespec now{};
    if (raised && !waitedBefore_) {
      while (::sigtimedwait(&pipe_, nullptr, &now) < 0 && errno == EINTR) {
      }
    }
    ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

  bool raised = false;

 private:
  sigset_t pipe_{};
  sigset_t before_{};
  bool waitedBefore_ = false;
};

}  // namespace

int writeFully(int fd, std::string_view bytes, std::size_t& written) noexcept {
  written = 0;
  while (written < bytes.size()) {
    const ssize_t count = ::write(fd, bytes.data() + written, bytes.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    written += static_cast<std::size_t>(count);
  }
  return 0;
}

int writeWithoutSignal(int fd, std::string_view bytes, std::size_t& written) noexcept {
  SigpipeHeldBack held;
  const int error = writeFully(fd, bytes, written);
  held.raised = error == EPIPE;
  return error;
}

bool waitWritable(int fd, std::chrono::milliseconds patience) noexcept {
  const auto end = std::chrono::steady_clock::now() + patience;
  for (auto left = patience; left.count() >= 0;
       left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now())) {
    pollfd descriptor{fd, POLLOUT, 0};
    const int ready = ::poll(&descriptor, 1, static_cast<int>(left.count()));
    if (ready > 0 || (ready < 0 && errno != EINTR)) return true;
    if (ready == 0) return false;
  }
  return false;
}

}  // namespace Velmar::Host
