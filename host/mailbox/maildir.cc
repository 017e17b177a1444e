// Lists a Maildir for a window of time. Called once when a scope is set, and again when a message has moved away
// under the reader. It opens no message: only a name that tells no time costs a look at the file's status.

#include "host/mailbox/maildir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <tuple>

#include "host/common/file_time.h"
#include "host/mailbox/maildir_name.h"

namespace Velmar::Host {
namespace {

// Directory times advance with the kernel's clock tick (at most 10 ms); a change within this span may leave no trace.
constexpr long kTimeGrain = 20'000'000;  // nanoseconds

std::int64_t changeTime(int directory, const std::string& path) {
  struct stat status {};
  if (::fstat(directory, &status) != 0) throw systemError(__LINE__, "cannot examine directory", path, errno);
  return nanoseconds(status.st_mtim);
}

struct FileTime {
  std::optional<std::int64_t> time;  // nothing for what is no regular file or has gone meanwhile
  int error = 0;                     // of the system, when it refused to tell
};

FileTime modificationTime(int folder, const char* name) {
  struct stat status {};
  if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return {std::nullopt, errno == ENOENT || errno == ESTALE ? 0 : errno};
  }
  if (!S_ISREG(status.st_mode)) return {};
  return {status.st_mtime};
}

bool mayBeMessage(const dirent64& entry) {
  return entry.d_name[0] != '.' && (entry.d_type == DT_REG || entry.d_type == DT_UNKNOWN);
}

}  // namespace

void Listing::add(std::int64_t time, std::string_view name, MaildirFolder folder, bool regular) {
  messages_.push_back({time, names_.size(), static_cast<std::uint16_t>(name.size()),
                       static_cast<std::uint16_t>(uniquePart(name).size()), folder, regular});
  names_.append(name).push_back('\0');
}

void Listing::addUnexamined(const std::string& folder, std::string_view name, int error) {
  unexamined_.add(folder, name, error);
}

void Listing::dropDoubles() {
  // Of one message the later entry, which lies further on in names_, is the fresher one: it comes first and stays.
  const auto before = [this](const ListedMessage& a, const ListedMessage& b) {
    return std::make_tuple(a.time, unique(a), b.offset) < std::make_tuple(b.time, unique(b), a.offset);
  };
  const auto same = [this](const ListedMessage& a, const ListedMessage& b) {
    return a.time == b.time && unique(a) == unique(b);
  };
  std::sort(messages_.begin(), messages_.end(), before);
  messages_.erase(std::unique(messages_.begin(), messages_.end(), same), messages_.end());
}

void Listing::sortByDelivery() {
  std::sort(messages_.begin(), messages_.end(), [this](const ListedMessage& a, const ListedMessage& b) {
    return a.time != b.time ? a.time < b.time : name(a) < name(b);
  });
}

const ListedMessage* Listing::find(std::int64_t time, std::string_view uniqueName) const noexcept {
  const auto wanted = std::make_tuple(time, uniqueName);
  const auto at = std::lower_bound(
      messages_.begin(), messages_.end(), wanted,
      [this](const ListedMessage& a, const auto& key) { return std::make_tuple(a.time, unique(a)) < key; });
  if (at == messages_.end() || std::make_tuple(at->time, unique(*at)) != wanted) return nullptr;
  return &*at;
}

Maildir::Maildir(Descriptor directory, std::string path)
    : directory_(std::move(directory)),
      folders_{{"new", MaildirFolder::New, path + "/new", Descriptor()},
               {"cur", MaildirFolder::Cur, path + "/cur", Descriptor()}} {}

// Adds the messages of one folder; true when the folder changed about that time, so that a renamed one may be missing.
bool Maildir::listFolder(Folder& folder, const TimeWindow& window, Listing& found) {
  if (!folder.directory) return false;
  const int directory = folder.directory.get();
  DirectoryReader entries(folder.directory, folder.path);
  const std::int64_t start = nanosecondsNow();
  const std::int64_t before = changeTime(directory, folder.path);
  while (const dirent64* entry = entries.next()) {
    if (!mayBeMessage(*entry)) continue;
    const std::string_view name = entry->d_name;
    std::optional<std::int64_t> time = deliveryTime(name);
    if (!time) {
      const FileTime file = modificationTime(directory, entry->d_name);
      if (file.error != 0) found.addUnexamined(folder.path, name, file.error);
      time = file.time;
    }
    if (time && window.holds(*time)) found.add(*time, name, folder.kind, entry->d_type == DT_REG);
  }
  const std::int64_t after = changeTime(directory, folder.path);
  return after != before || after > start - kTimeGrain;
}

Listing Maildir::list(const TimeWindow& window) {
  for (Folder& folder : folders_) {
    folder.directory = Descriptor();  // first, for a program that has few
    folder.directory = openSubdirectory(directory_, folder.name, folder.path, O_RDONLY);
  }
  Listing found;
  // new/ before cur/: messages wander that way, so one that wanders during the listing is seen at least once.
  const auto pass = [&] {
    bool changed = false;
    for (Folder& folder : folders_) changed |= listFolder(folder, window, found);
    return changed;
  };
  if (pass()) {
    found.clearUnexamined();
    for (const Folder& folder : folders_) ::lseek(folder.directory.get(), 0, SEEK_SET);
    pass();
  }
  found.dropDoubles();
  return found;
}

int Maildir::descriptor(MaildirFolder folder) const noexcept {
  return folders_[static_cast<std::size_t>(folder)].directory.get();
}

const std::string& Maildir::path(MaildirFolder folder) const noexcept {
  return folders_[static_cast<std::size_t>(folder)].path;
}

}  // namespace Velmar::Host
