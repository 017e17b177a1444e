// Looks whether the spool's file system has room. Asked before something is written, so that a full disk refuses mails
// while there is still room to note what becomes of those that were accepted.

#include <sys/statvfs.h>

#include <cerrno>

#include "host/mail_builder/spool.h"
#include "host/mail_builder/spool_envelope.h"
#include "host/mail_builder/system_file.h"

namespace Velmar::Host {

std::string spoolSpaceFault(const std::string& path, std::size_t bytes, const SpoolFloor& floor) {
  struct statvfs system {};
  if (::statvfs(path.c_str(), &system) != 0) throw spoolFault(path, errorText(errno));
  const unsigned long long free = static_cast<unsigned long long>(system.f_bavail) * system.f_frsize;
  const unsigned long long wanted = (static_cast<unsigned long long>(floor.mib) << 20) + bytes;
  if (free < wanted) {
    return std::to_string(free >> 20) + " MiB are free, " + std::to_string(floor.mib) + " MiB must stay free beside " +
           std::to_string(bytes) + " bytes";
  }
  // A file system that makes its inodes as it needs them counts none.
  if (system.f_files != 0 && system.f_favail < static_cast<unsigned long long>(floor.inodes)) {
    return std::to_string(system.f_favail) + " inodes are free, " + std::to_string(floor.inodes) + " must be";
  }
  return {};
}

}  // namespace Velmar::Host
