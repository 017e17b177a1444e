// Makes the directories of state, secret and spool, and makes them last.

#include "host/common/directories.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "host/common/descriptor.h"
#include "host/common/root.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr mode_t kAbove = 0755;
constexpr mode_t kOwn = 0750;

Exception failed(int line, const std::string& path, const char* what) {
  return Exception("DirectoryException", 4, "Directories", line,
                   "directory " + path + " " + what + ": " + std::generic_category().message(errno));
}

}  // namespace

void syncDirectory(const std::string& path) {
  const Descriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory.isOpen() || ::fsync(directory.get()) != 0) throw failed(__LINE__, path, "cannot be brought to disk");
}

void giveToOwnerOf(const std::string& directory, const Descriptor& file, const std::string& path) {
  if (::geteuid() != 0) return;
  struct stat owner {};
  if (::stat(directory.c_str(), &owner) != 0) throw failed(__LINE__, directory, "cannot be looked at");
  if (::fchown(file.get(), owner.st_uid, owner.st_gid) != 0 && errno != EPERM) {
    throw failed(__LINE__, directory, ("cannot pass its owner on to " + path).c_str());
  }
}

void prepareFile(const std::string& path) try {
  if (::geteuid() != 0) return;
  // Never one that is there already: it might be somebody else's under a second name.
  const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0640));
  if (file.isOpen()) giveToOwnerOf(path.substr(0, path.rfind('/') + 1), file, path);
} catch (const Exception&) {
  // The file is there, and stays root's.
}

void makeDirectories(std::string_view systemPath) {
  const std::string base = root();
  for (std::size_t slash = 0; slash != std::string_view::npos;) {
    const std::string parent = base + std::string(systemPath.substr(0, slash));
    slash = systemPath.find('/', slash + 1);
    const std::string path = base + std::string(systemPath.substr(0, slash));
    const bool own = systemPath.substr(0, slash).find("/velmar") != std::string_view::npos;
    if (::mkdir(path.c_str(), own ? kOwn : kAbove) == 0) {
      syncDirectory(parent.empty() ? "/" : parent);
    } else if (errno != EEXIST) {
      throw failed(__LINE__, path, "cannot be made");
    }
  }
}

}  // namespace Velmar::Host
