#pragma once

// What a call says when it fails.

#include "platform/types.h"

namespace Velmar::Testing {

/// The text of the exception that a call throws; "nothing thrown" when it returns.
template <class Call>
std::string thrownBy(const Call& call) {
  try {
    call();
  } catch (const Exception& e) {
    return e.text();
  }
  return "nothing thrown";
}

}  // namespace Velmar::Testing
