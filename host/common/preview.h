#pragma once

// What this process looks at instead of the user's and the site's own choice, for previews.

#include <memory>

#include "host/host.h"

namespace Velmar::Host {

// Any thread.

/// What setPreview() set last; never null.
std::shared_ptr<const PreviewChoice> previewChoice();

/// Whether setPreview() was called.
bool isPreview() noexcept;

}  // namespace Velmar::Host
