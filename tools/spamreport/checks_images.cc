// Checks of the images that reports show.

#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "host/host.h"
#include "platform/mail_builder.h"
#include "platform/types.h"
#include "tools/spamreport/checks.h"
#include "tools/spamreport/image_kind.h"

namespace Velmar::Tool {
namespace {

constexpr char kDirectory[] = "/migadmin/www/admin/images/";
constexpr char kOwnLogo[] = "icon_titlelogo";

using FirstBytes = std::array<char, 16>;

/// The kind of a site's image; none when there is no such file.
std::optional<std::string> kindOf(const std::string& path) {
  errno = 0;
  const int file = File::openReadOnly(path.c_str());
  if (file < 0 && errno == ENOENT) return std::nullopt;
  if (file < 0 && errno == 0) throw std::runtime_error(path + " is no regular file");
  if (file < 0) throw std::system_error(errno, std::generic_category(), path);
  FirstBytes bytes{};
  const ssize_t count = ::read(file, bytes.data(), bytes.size());
  ::close(file);
  if (count < 0) throw std::runtime_error(path + " cannot be read");
  return std::string(imageKind({bytes.data(), static_cast<std::size_t>(count)}));
}

std::string installedKind(const std::string& name) {
  std::ifstream in(Host::shareDirectory() + "/images/" + name, std::ios::binary);
  FirstBytes bytes{};
  in.read(bytes.data(), bytes.size());
  return std::string(imageKind({bytes.data(), static_cast<std::size_t>(in.gcount())}));
}

/// Throws as a report would that attaches the image.
void attach(const std::string& path) {
  VXMPopulateEmail mail;
  mail.add_image_inline(path, ContentType::SUBTYPE_PNG);
}

std::string whatItIs(const std::string& kind) {
  if (kind.empty()) return "is neither PNG nor JPEG nor GIF";
  return "is a " + kind + " file";
}

/// Icons are sent as PNG whatever they are.
std::vector<Finding> lookAtIcon(const std::string& name) {
  const std::string path = kDirectory + name;
  attach(path);
  const std::optional<std::string> own = kindOf(path);
  const std::string kind = own ? *own : installedKind(name);
  if (kind != "PNG") return bad((own ? path : "the installed " + name) + " " + whatItIs(kind) + ", not PNG");
  return good(own ? "PNG" : "the installed one");
}

std::vector<Finding> lookAtOwnLogo() {
  const std::string path = std::string(kDirectory) + kOwnLogo;
  const std::optional<std::string> kind = kindOf(path);
  if (!kind) return good("none, icon_titlelogo.png is shown");
  if (kind->empty()) return bad(path + " " + whatItIs(*kind) + ": icon_titlelogo.png is shown instead");
  attach(path);
  return good(*kind);
}

}  // namespace

void addImageChecks(Checks& checks) {
  for (const std::string name : {"icon_delete.png", "icon_release.png", "icon_deleteall.png", "icon_titlelogo.png"}) {
    checks.push_back({"image " + name, [name] { return lookAtIcon(name); },
                      "put a readable PNG of at most 1 MiB there, or remove it: the installed one stands in"});
  }
  checks.push_back({"logo of the site", lookAtOwnLogo,
                    "put a readable PNG, JPEG or GIF of at most 1 MiB there, or remove it: the default stands in"});
}

}  // namespace Velmar::Tool
