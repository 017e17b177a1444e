// Decides whether a server is tried. Called by the directory before it connects and after each look-up, and by the
// state store when it opens its file or database. It does not wait, and knows no clock of its own.

#include "host/users_lists/circuit_breaker.h"

namespace Velmar::Host {

std::optional<std::string> CircuitBreaker::refusal(Clock::time_point now) {
  const std::lock_guard lock(mutex_);
  if (!refusedUntil_) return std::nullopt;
  if (now < *refusedUntil_) {
    const auto left = std::chrono::ceil<std::chrono::seconds>(*refusedUntil_ - now);
    return "not tried for another " + std::to_string(left.count()) + " s after " + reason_;
  }
  // This caller tries for all: whether or not it reports, the others go on without the server meanwhile.
  refusedUntil_ = now + pause_;
  return std::nullopt;
}

void CircuitBreaker::failed(Clock::time_point now, const std::string& reason) {
  const std::lock_guard lock(mutex_);
  refusedUntil_ = now + pause_;
  reason_ = reason;
}

void CircuitBreaker::succeeded() {
  const std::lock_guard lock(mutex_);
  refusedUntil_.reset();
}

}  // namespace Velmar::Host
