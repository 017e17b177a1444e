// Where a user's mailbox lies, and whether the user is deleted. Called for every recipient of a run.

#include <sys/stat.h>

#include <cerrno>
#include <string_view>
#include <system_error>

#include "host/common/current_mailbox.h"
#include "host/common/root.h"
#include "platform/types.h"
#include "platform/users_lists.h"

namespace Velmar {
namespace {

constexpr std::string_view kHome = "/home/";
constexpr int kQuarantine = 10;

// Whether `path` is /home/DOMAIN/DIRECTORY.
bool isMailboxDirectory(std::string_view path) {
  if (!path.starts_with(kHome)) return false;
  path.remove_prefix(kHome.size());
  const std::size_t slash = path.find('/');
  return slash != std::string_view::npos && Host::isPathComponent(path.substr(0, slash)) &&
         Host::isPathComponent(path.substr(slash + 1));
}

}  // namespace

// The first question of each report, so it also tells the log whose report is being made.
int vlm_is_deleted_user_path(const char* path) {
  Host::setCurrentMailbox(path ? path : "");
  if (!path || !isMailboxDirectory(path)) return 0;
  const std::string mark = Host::underRoot(path) + "/.deleted";
  struct stat status {};
  if (::lstat(mark.c_str(), &status) == 0) return 1;
  if (errno == ENOENT || errno == ENOTDIR) return 0;
  throw Exception("UserException", 4, "Users", __LINE__,
                  "cannot examine " + mark + ": " + std::generic_category().message(errno));
}

VXMailUserId::VXMailUserId(const std::string& address) : directory_(Host::mailboxDirectory(address)) {
  Host::checkedComponent("local part of mailbox address", address.substr(0, address.rfind('@')));
  Host::setCurrentMailbox(directory_);
}

std::string VXMailUserId::fname(int kind) const {
  if (kind != kQuarantine) {
    throw Exception("UserException", 1, "Users", __LINE__,
                    "unknown kind of mailbox " + std::to_string(kind) + " of " + directory_);
  }
  return directory_ + "/quarantine";
}

}  // namespace Velmar
