#pragma once

// Bounds the steps of a connection whose library can block without a limit.

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

#include "host/common/descriptor.h"

namespace Velmar::Host {

/// Shuts a socket down when a step of its connection takes longer than the limit, so that whoever blocks on it returns.
/// It has a thread of its own, which takes no signals. One connection; all calls from the thread that uses it.
class ConnectionWatchdog {
 public:
  /// Throws std::system_error when there can be no further thread.
  explicit ConnectionWatchdog(std::chrono::milliseconds limit);
  ConnectionWatchdog(const ConnectionWatchdog&) = delete;
  ConnectionWatchdog& operator=(const ConnectionWatchdog&) = delete;
  ~ConnectionWatchdog();

  /// The connection's socket from now on; its owner may close it at any time. The time of a running step begins anew.
  /// Throws std::system_error when the socket cannot be watched.
  void watch(int socket);

  /// Shuts the socket down at once.
  void shutDown();

  /// Whether a step took too long; the connection is of no use then.
  bool hasBitten() const;

  /// One step: as long as this lives, up to the limit.
  class Step {
   public:
    explicit Step(ConnectionWatchdog& watchdog) : watchdog_(watchdog) { watchdog_.begin(); }
    Step(const Step&) = delete;
    Step& operator=(const Step&) = delete;
    ~Step() { watchdog_.end(); }

   private:
    ConnectionWatchdog& watchdog_;
  };

 private:
  using Clock = std::chrono::steady_clock;

  void begin();
  void end();
  void run();

  const std::chrono::milliseconds limit_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  Descriptor socket_;     // a duplicate: its number is not reused while we hold it
  bool running_ = false;  // a step does
  std::optional<Clock::time_point>
      deadline_;         // of the running step; none while the library still connects: it bounds that
  bool asleep_ = false;  // the thread waits for a step, not for a time
  bool bitten_ = false;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace Velmar::Host
