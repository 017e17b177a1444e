#pragma once

// The secret by which an installation knows what it made itself.

#include <array>

#include "platform/export.h"

namespace Velmar::Host {

using Secret = std::array<unsigned char, 32>;

/// The installation's secret: the bytes of the file var/lib/velmar/secret below the root. Read once for each root
/// and kept as long as the process; a failure is not kept. Any thread.
///
/// create  true: a missing secret is made, with its directory, and is on disk before this returns. Of several
///         processes that make it at once one wins, and all return the winner's.
///
/// Throws Exception, naming the path, when there is no secret (and `create` is false), when it cannot be read or made,
/// and when the file is unfit: no regular file, another size, open to group or others.
VLM_EXPORT Secret installationSecret(bool create);

}  // namespace Velmar::Host
