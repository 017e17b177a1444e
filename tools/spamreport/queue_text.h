#pragma once

// What a round over the queue did, in words.

#include <string>

#include "host/host.h"

namespace Velmar::Tool {

/// "5 handed on, 1 delayed": the first count always, the others when they are not 0.
std::string flushSummary(const Host::FlushResult& result);

}  // namespace Velmar::Tool
