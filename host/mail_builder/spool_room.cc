// How much room the file system of the spool has, for `spamreport check`.

#include <sys/statvfs.h>

#include <cerrno>

#include "host/common/host_config.h"
#include "host/common/root.h"
#include "host/host.h"
#include "host/mail_builder/system_file.h"
#include "platform/types.h"

namespace Velmar::Host {

SpoolRoom spoolRoom() {
  constexpr unsigned long long kMib = 1ULL << 20;
  const std::string path = underRoot("/var/spool/velmar");
  struct statvfs status {};
  if (::statvfs(path.c_str(), &status) != 0) {
    throw Exception("SpoolException", 4, "SpoolRoom", __LINE__, "spool directory " + path + ": " + errorText(errno));
  }
  const QueueConfig& limits = hostConfig().queue;
  SpoolRoom room;
  room.freeMib = static_cast<long long>(status.f_bavail * static_cast<unsigned long long>(status.f_frsize) / kMib);
  if (status.f_files != 0) room.freeFiles = static_cast<long long>(status.f_favail);
  room.leastMib = limits.minFreeMib;
  room.leastFiles = limits.minFreeInodes;
  return room;
}

}  // namespace Velmar::Host
