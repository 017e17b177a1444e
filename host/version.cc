// The version of the host platform, as the build states it.

#include "host/host.h"

namespace Velmar::Host {

const char* version() { return VELMAR_VERSION; }

}  // namespace Velmar::Host
