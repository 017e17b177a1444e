// Finds and lists mailboxes, for the command's runs over many recipients. It looks at directories only, never into a
// quarantine.

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "host/common/root.h"
#include "host/host.h"
#include "host/mailbox/files.h"

namespace Velmar::Host {
namespace {

constexpr char kDeletedMark[] = ".deleted";

// The address of a directory "USER~DOMAIN"; nothing for another name. The last "~" divides, as it does where a report
// derives the address from the directory.
std::optional<std::string> addressOf(std::string_view directory, std::string_view domain) {
  const std::size_t tilde = directory.rfind('~');
  if (tilde == std::string_view::npos || tilde == 0 || directory.substr(tilde + 1) != domain) return std::nullopt;
  return std::string(directory.substr(0, tilde)).append("@").append(domain);
}

// Whether `name` inside `parent` exists with the given type (S_IFDIR), or with any type when 0.
bool exists(const Descriptor& parent, const std::string& name, const std::string& parentPath, mode_t type) {
  struct stat status {};
  if (::fstatat(parent.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    return type == 0 || (status.st_mode & S_IFMT) == type;
  }
  if (errno == ENOENT || errno == ENOTDIR) return false;
  throw systemError(__LINE__, "cannot examine", parentPath + "/" + name, errno);
}

bool isDirectory(const dirent64& entry, const Descriptor& parent, const std::string& parentPath) {
  if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
  return exists(parent, entry.d_name, parentPath, S_IFDIR);
}

std::string domainDirectory(const std::string& domain) {
  return underRoot("/home/" + checkedComponent("domain", domain));
}

}  // namespace

bool domainDirectoryExists(const std::string& domain) {
  return openDirectory(domainDirectory(domain), O_PATH).isOpen();
}

bool mailboxExists(const std::string& address) {
  const std::string path = underRoot(mailboxDirectory(address));
  return openDirectory(path, O_PATH).isOpen();
}

std::vector<std::string> mailboxesOfDomain(const std::string& domain) {
  const std::string path = domainDirectory(domain);
  const Descriptor directory = openDirectory(path, O_RDONLY);
  if (!directory) return {};
  DirectoryReader entries(directory, path);
  std::vector<std::string> addresses;
  while (const dirent64* entry = entries.next()) {
    const std::string name = entry->d_name;
    std::optional<std::string> address = addressOf(name, domain);
    if (!address || !isDirectory(*entry, directory, path)) continue;
    if (!exists(directory, name + "/" + kDeletedMark, path, 0)) addresses.push_back(std::move(*address));
  }
  std::sort(addresses.begin(), addresses.end());
  return addresses;
}

}  // namespace Velmar::Host
