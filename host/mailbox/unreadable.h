#pragma once

// The messages that a scan could not read.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Velmar::Host {

/// Collects the messages of one scan that the system refused to open or to read, and tells the log of them. Its size is
/// bounded: the first ten are kept by name, the others are counted.
class Unreadable {
 public:
  /// folder  path of the folder that holds the message; error: the system's error number
  void add(const std::string& folder, std::string_view name, int error);

  std::size_t count() const noexcept { return count_; }
  /// Folder and error of the first one; "" and 0 when there is none.
  const std::string& firstFolder() const noexcept { return firstFolder_; }
  int firstError() const noexcept { return named_.empty() ? 0 : named_.front().error; }

  /// Logs one event for each message that is named and one that counts the others, and forgets them.
  /// mailbox  path of the quarantine
  void tell(const std::string& mailbox);

 private:
  struct Message {
    std::string path;
    int error;
  };

  std::vector<Message> named_;
  std::size_t count_ = 0;
  std::string firstFolder_;
};

}  // namespace Velmar::Host
