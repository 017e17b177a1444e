// Paths of the host platform: everything lies below one root, and nothing from a message or an argument becomes a
// path component unchecked.

#include "host/common/root.h"

#include <dlfcn.h>

#include <cstdlib>

#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kMaxComponent = 255;  // NAME_MAX of every file system we care for

Exception badComponent(const char* what, const std::string& value) {
  return Exception("PathException", 4, "HostPaths", __LINE__,
                   std::string(what) + " cannot be part of a path: \"" + value + "\"");
}

/// Where this library was loaded from. It goes through all libraries of the process.
std::string libraryDirectory() {
  Dl_info info{};
  std::string library;
  if (dladdr(reinterpret_cast<const void*>(&shareDirectory), &info) && info.dli_fname) library = info.dli_fname;
  const std::size_t slash = library.rfind('/');
  return slash == std::string::npos ? "." : library.substr(0, slash);
}

}  // namespace

std::string root() {
  const char* configured = std::getenv("VELMAR_ROOT");
  std::string path = configured ? configured : "";
  while (!path.empty() && path.back() == '/') path.pop_back();
  return path;
}

std::string underRoot(std::string_view systemPath) { return root().append(systemPath); }

bool isPathComponent(std::string_view value) noexcept {
  return !value.empty() && value != "." && value != ".." && value.size() <= kMaxComponent &&
         value.find('/') == std::string_view::npos && value.find('\0') == std::string_view::npos;
}

const std::string& checkedComponent(const char* what, const std::string& value) {
  if (!isPathComponent(value)) throw badComponent(what, value);
  return value;
}

std::string mailboxDirectory(const std::string& address) {
  const std::size_t at = address.rfind('@');
  if (at == std::string::npos || at == 0) throw badComponent("mailbox address", address);
  const std::string domain = address.substr(at + 1);
  checkedComponent("domain", domain);
  const std::string directory = address.substr(0, at) + "~" + domain;
  return "/home/" + domain + "/" + checkedComponent("mailbox address", directory);
}

std::string shareDirectory() {
  if (const char* configured = std::getenv("VELMAR_SHARE"); configured && *configured) return configured;
  static const std::string installed = libraryDirectory() + "/" + VELMAR_DATADIR_FROM_LIBDIR;
  return installed;
}

}  // namespace Velmar::Host
