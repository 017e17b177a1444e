#pragma once

// A local socket as a sink of the log: the journal or syslog.

#include <chrono>
#include <mutex>
#include <string>
#include <string_view>

#include "host/common/descriptor.h"
#include "host/logging/write_fully.h"

namespace Velmar::Host {

/// Sends datagrams to the socket of a path. A service that is started anew is found again. Any thread.
class DatagramSink {
 public:
  /// What becomes of a datagram that is larger than the socket takes.
  enum class TooLarge { kRefused, kPassedAsFile };

  /// patience  how long a datagram waits for a service that does not read; those after it do not, until it reads again
  DatagramSink(std::string path, TooLarge tooLarge, std::chrono::milliseconds patience = kReaderPatience);

  const std::string& path() const noexcept { return path_; }

  /// Sends one datagram. Returns 0, or the errno of what failed; it is not delivered then. ETIMEDOUT: the service
  /// does not read.
  int send(std::string_view bytes);

 private:
  int connectAndSend(std::string_view bytes);
  int sendConnected(std::string_view bytes, int passed);
  int sendAsFile(std::string_view bytes);

  const std::string path_;
  const TooLarge tooLarge_;
  const std::chrono::milliseconds patience_;
  std::mutex mutex_;
  Descriptor socket_;
  bool patient_ = true;  // whether the next datagram may wait
};

}  // namespace Velmar::Host
