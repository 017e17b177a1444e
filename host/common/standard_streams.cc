// Keeps the numbers of the standard streams from other files. Called before the platform opens its first file, and by
// the command before anything else.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "host/host.h"

namespace Velmar::Host {

bool occupyStandardStreams() noexcept {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(stream, F_GETFD) >= 0 || errno != EBADF) continue;
    // The wrong way round, so that the use of the stream fails as before.
    if (::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) < 0) return false;
  }
  return true;
}

}  // namespace Velmar::Host
