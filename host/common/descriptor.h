#pragma once

// The owner of a file descriptor.

#include <unistd.h>

#include <utility>

namespace Velmar::Host {

/// Owns one file descriptor and closes it; -1 = none.
class Descriptor {
 public:
  Descriptor() noexcept = default;
  explicit Descriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : descriptor_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~Descriptor() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }

  int get() const noexcept { return descriptor_; }
  bool isOpen() const noexcept { return descriptor_ >= 0; }
  explicit operator bool() const noexcept { return isOpen(); }
  /// Gives the descriptor away.
  int release() noexcept { return std::exchange(descriptor_, -1); }

 private:
  int descriptor_ = -1;
};

}  // namespace Velmar::Host
