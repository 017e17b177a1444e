// The thread that ends a connection's step which takes too long. Used by LdapConnection: the directory library's own
// time limits do not hold while TLS shakes hands or reads half a record, and the TLS library repeats a read that the
// socket gave up. A shut-down socket ends that. It never closes what the library holds.

#include "host/users_lists/ldap/connection_watchdog.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>
#include <system_error>

#include "host/common/signals_blocked.h"

namespace Velmar::Host {

ConnectionWatchdog::ConnectionWatchdog(std::chrono::milliseconds limit) : limit_(limit) {
  const SignalsBlocked blocked;
  thread_ = std::thread([this] { run(); });
}

ConnectionWatchdog::~ConnectionWatchdog() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void ConnectionWatchdog::watch(int socket) {
  Descriptor duplicate(::fcntl(socket, F_DUPFD_CLOEXEC, 0));
  if (!duplicate) throw std::system_error(errno, std::generic_category(), "cannot watch a connection");
  {
    const std::lock_guard lock(mutex_);
    socket_ = std::move(duplicate);
    if (running_) deadline_ = Clock::now() + limit_;
  }
  changed_.notify_one();
}

void ConnectionWatchdog::shutDown() {
  const std::lock_guard lock(mutex_);
  if (socket_) ::shutdown(socket_.get(), SHUT_RDWR);
}

bool ConnectionWatchdog::hasBitten() const {
  const std::lock_guard lock(mutex_);
  return bitten_;
}

// The thread is not woken for each step: it sleeps on to an earlier step's time and then looks again.
void ConnectionWatchdog::begin() {
  bool wake = false;
  {
    const std::lock_guard lock(mutex_);
    running_ = true;
    if (socket_) deadline_ = Clock::now() + limit_;
    wake = asleep_;
  }
  if (wake) changed_.notify_one();
}

void ConnectionWatchdog::end() {
  const std::lock_guard lock(mutex_);
  running_ = false;
  deadline_.reset();
}

void ConnectionWatchdog::run() {
  std::unique_lock lock(mutex_);
  while (!ending_) {
    if (!deadline_) {
      asleep_ = true;
      changed_.wait(lock);
      asleep_ = false;
    } else if (Clock::now() >= *deadline_) {
      ::shutdown(socket_.get(), SHUT_RDWR);
      bitten_ = true;
      deadline_.reset();
    } else {
      const Clock::time_point until = *deadline_;  // which may be gone before the wait is over
      changed_.wait_until(lock, until);
    }
  }
}

}  // namespace Velmar::Host
