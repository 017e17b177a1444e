#pragma once

// Keeps a run from waiting for a dead server once a mailbox.

#include <chrono>
#include <mutex>
#include <optional>
#include <string>

namespace Velmar::Host {

/// Remembers that a server failed, and refuses it for a while. Once that time is over, one caller in each further such
/// time may try, until one reports that the server answered. Any thread; the time is the caller's.
class CircuitBreaker {
 public:
  using Clock = std::chrono::steady_clock;

  explicit CircuitBreaker(std::chrono::milliseconds pause) : pause_(pause) {}

  /// Why the server is not to be tried at `now`; nothing when the caller may try, and shall report what came of it.
  std::optional<std::string> refusal(Clock::time_point now);

  /// The server did not answer as it should; `reason` goes into refusals.
  void failed(Clock::time_point now, const std::string& reason);

  /// The server answered.
  void succeeded();

 private:
  std::mutex mutex_;
  const std::chrono::milliseconds pause_;
  std::optional<Clock::time_point> refusedUntil_;  // none = the server is not known to fail
  std::string reason_;
};

}  // namespace Velmar::Host
