#pragma once

// The library's own exception: a report that cannot be made.

#include <string>

#include "platform/types.h"

namespace Velmar {

class SpamreportException : public Exception {
 public:
  /// line     mark of the failed check, stable across versions: administrators look it up
  /// message  what failed
  SpamreportException(int line, const std::string& message)
      : Exception("SpamreportException", 4, "SpamreportGenerator", line, message) {}
};

}  // namespace Velmar
