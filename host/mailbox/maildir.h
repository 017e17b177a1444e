#pragma once

// Which messages of one Maildir lie in a window of time, found from the directory listing alone.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/mailbox/files.h"
#include "host/mailbox/unreadable.h"

namespace Velmar::Host {

/// Half-open: holds t when from <= t < until.
struct TimeWindow {
  std::int64_t from;
  std::int64_t until;

  bool holds(std::int64_t time) const noexcept { return from <= time && time < until; }
};

enum class MaildirFolder : std::uint8_t { New, Cur };

/// One message as the listing shows it.
struct ListedMessage {
  std::int64_t time;           ///< of delivery, seconds since the epoch
  std::size_t offset;          ///< of its name within the listing's names
  std::uint16_t length;        ///< of its name
  std::uint16_t uniqueLength;  ///< of the part that stays the same when the message is moved or flagged
  MaildirFolder folder;
  bool regular;  ///< surely a regular file when it was listed; false: the file system does not tell
};

/// The messages of a window. Its size follows the window, not the mailbox: some 24 bytes and the name for each.
class Listing {
 public:
  /// Adds a name as it was seen. The same message may be added again under another name.
  void add(std::int64_t time, std::string_view name, MaildirFolder folder, bool regular);

  /// Adds a file whose time the system refused to tell: it may or may not belong to the window.
  void addUnexamined(const std::string& folder, std::string_view name, int error);
  /// Forgets these, before they are listed again.
  void clearUnexamined() { unexamined_ = Unreadable(); }
  const Unreadable& unexamined() const noexcept { return unexamined_; }

  /// Keeps one entry a message, the one added last, in the order of find().
  void dropDoubles();
  /// Puts the messages in the order of delivery, those of one second by name.
  void sortByDelivery();

  std::size_t size() const noexcept { return messages_.size(); }
  const ListedMessage& operator[](std::size_t index) const noexcept { return messages_[index]; }
  /// The file name; a NUL follows it. Lives as long as nothing is added.
  std::string_view name(const ListedMessage& message) const noexcept {
    return std::string_view(names_).substr(message.offset, message.length);
  }
  std::string_view unique(const ListedMessage& message) const noexcept {
    return std::string_view(names_).substr(message.offset, message.uniqueLength);
  }

  /// The message of this time and unique part; null when there is none. Only between dropDoubles() and
  /// sortByDelivery().
  const ListedMessage* find(std::int64_t time, std::string_view uniqueName) const noexcept;

 private:
  std::vector<ListedMessage> messages_;
  std::string names_;  // each followed by a NUL
  Unreadable unexamined_;
};

/// The folders new/ and cur/ of one Maildir. Used by one thread at a time.
class Maildir {
 public:
  /// directory  the open Maildir (O_PATH suffices)
  /// path       of it, for messages
  Maildir(Descriptor directory, std::string path);

  /// The messages whose time lies in the window, without doubles (see Listing::dropDoubles). A message's time is the
  /// one in its name, else the file's modification time; where the system refuses to tell that, see
  /// Listing::unexamined(). Names that begin with "." and what is known to be no regular file are left out; a folder
  /// that is not there is empty.
  ///
  /// Every message that nobody touches meanwhile is in the result. So that a message that is being renamed is not
  /// missed either, a Maildir that changes during the listing is listed twice. Throws Exception when a folder cannot be
  /// listed or is a symbolic link.
  Listing list(const TimeWindow& window);

  /// Descriptor and path of a folder as the last list() opened it; -1 when it was not there.
  int descriptor(MaildirFolder folder) const noexcept;
  const std::string& path(MaildirFolder folder) const noexcept;

 private:
  struct Folder {
    const char* name;
    MaildirFolder kind;
    std::string path;
    Descriptor directory;
  };

  bool listFolder(Folder& folder, const TimeWindow& window, Listing& found);

  Descriptor directory_;
  Folder folders_[2];
};

}  // namespace Velmar::Host
