// Reads the images of reports, each once as long as it stays the same: every report of a run carries the same four. The
// mail builder calls this for each image it attaches.

#include "host/mail_builder/report_image.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <map>
#include <mutex>
#include <utility>

#include "host/common/root.h"
#include "host/mail_builder/system_file.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kMaxImage = std::size_t{1} << 20;
constexpr std::size_t kMaxKept = 16;

struct KeptImage {
  FileIdentity identity;
  std::string bytes;
};

std::mutex keptMutex;

std::map<std::string, KeptImage>& kept() {
  static std::map<std::string, KeptImage> images;
  return images;
}

bool findKept(const std::string& path, const FileIdentity& identity, std::string& bytes) {
  const std::lock_guard lock(keptMutex);
  const auto found = kept().find(path);
  if (found == kept().end() || found->second.identity != identity) return false;
  bytes = found->second.bytes;
  return true;
}

void keep(const std::string& path, const FileIdentity& identity, const std::string& bytes) {
  if (!isSettled(identity)) return;
  const std::lock_guard lock(keptMutex);
  if (kept().size() >= kMaxKept && !kept().contains(path)) kept().clear();
  kept()[path] = {identity, bytes};
}

Exception cannotBeOpened(const std::string& name, const std::string& reason) {
  return Exception("MailBuilderException", 4, "ReportImage", __LINE__,
                   "image " + name + " cannot be opened: " + reason);
}

/// Not open, with errno set, when there is none. Never waits, whatever lies there.
Descriptor openImage(const std::string& path, const std::string& name, FileIdentity& identity) {
  Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  struct stat status {};
  if (!file.isOpen()) return file;
  if (::fstat(file.get(), &status) != 0) throw cannotBeOpened(name, errorText(errno));
  if (!S_ISREG(status.st_mode)) throw cannotBeOpened(name, "is not a regular file");
  identity = identityOf(status);
  return file;
}

}  // namespace

std::string reportImage(const std::string& path) {
  const std::string own = underRoot(path);
  const std::string installed = shareDirectory() + "/images/" + path.substr(path.rfind('/') + 1);
  std::string bytes;
  FileIdentity identity = identityAt(own);
  const bool isOwn = identity != FileIdentity{};
  if (!isOwn) identity = identityAt(installed);
  if (findKept(isOwn ? own : installed, identity, bytes)) return bytes;

  Descriptor file = openImage(own, path, identity);
  const bool missing = !file.isOpen() && (errno == ENOENT || errno == ENOTDIR);
  if (missing) file = openImage(installed, installed, identity);
  if (!file.isOpen()) throw cannotBeOpened(path, errorText(errno));
  bytes = readUpTo(file.get(), kMaxImage, "image " + path);
  keep(missing ? installed : own, identity, bytes);
  return bytes;
}

}  // namespace Velmar::Host
