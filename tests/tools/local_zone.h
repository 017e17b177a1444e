#pragma once

// Another local zone for a part of a test.

#include <time.h>

#include "tests/support/temp_root.h"

/// Sets the process's local zone for as long as it lives.
class LocalZone {
 public:
  explicit LocalZone(const std::string& name) : variable_("TZ", name) { ::tzset(); }

 private:
  Velmar::Testing::ScopedVariable variable_;
};
