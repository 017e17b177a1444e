// Reads and encodes the images of reports, each once as long as it stays the same: every report of a run carries the
// same four. The mail builder calls this for each image it attaches.

#include "host/mail_builder/report_image.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <mutex>
#include <string_view>
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
  std::string lines;
};

/// Base64 in lines that are ended by CR LF.
std::string base64Lines(std::string_view bytes) {
  constexpr std::size_t kLine = 57;  // bytes, for 76 characters
  std::string lines;
  lines.reserve(bytes.size() / kLine * 78 + 80);
  for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), kLine))) {
    unsigned char line[80];
    const auto* from = reinterpret_cast<const unsigned char*>(bytes.data());
    const int length = EVP_EncodeBlock(line, from, static_cast<int>(std::min(bytes.size(), kLine)));
    lines.append(reinterpret_cast<const char*>(line), static_cast<std::size_t>(length)).append("\r\n");
  }
  return lines;
}

std::mutex keptMutex;

std::map<std::string, KeptImage>& kept() {
  static std::map<std::string, KeptImage> images;
  return images;
}

bool findKept(const std::string& path, const FileIdentity& identity, std::string& lines) {
  const std::lock_guard lock(keptMutex);
  const auto found = kept().find(path);
  if (found == kept().end() || found->second.identity != identity) return false;
  lines = found->second.lines;
  return true;
}

void keep(const std::string& path, const FileIdentity& identity, const std::string& lines) {
  if (!isSettled(identity)) return;
  const std::lock_guard lock(keptMutex);
  if (kept().size() >= kMaxKept && !kept().contains(path)) kept().clear();
  kept()[path] = {identity, lines};
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
  std::string lines;
  FileIdentity identity = identityAt(own);
  const bool isOwn = identity != FileIdentity{};
  if (!isOwn) identity = identityAt(installed);
  if (findKept(isOwn ? own : installed, identity, lines)) return lines;

  Descriptor file = openImage(own, path, identity);
  const bool missing = !file.isOpen() && (errno == ENOENT || errno == ENOTDIR);
  if (missing) file = openImage(installed, installed, identity);
  if (!file.isOpen()) throw cannotBeOpened(path, errorText(errno));
  lines = base64Lines(readUpTo(file.get(), kMaxImage, "image " + path));
  keep(missing ? installed : own, identity, lines);
  return lines;
}

}  // namespace Velmar::Host
