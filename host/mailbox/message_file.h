#pragma once

// The file of one held message: opening it and reading its header, nothing else.

#include <cstddef>
#include <optional>

#include "host/mailbox/files.h"
#include "host/mailbox/header_block.h"

namespace Velmar::Host {

/// As much of a message as is ever looked at: fields that begin beyond it do not count, one that reaches beyond is cut.
constexpr std::size_t kHeaderCap = std::size_t{1} << 20;

/// What came of opening a message.
struct OpenedMessage {
  Descriptor file;    ///< open for reading, or empty
  bool gone = false;  ///< empty because there is no such name (any more)
  int error = 0;      ///< empty because the system refused it: its error number
};

/// Opens message files. Used by one thread at a time.
class MessageOpener {
 public:
  /// Opens the file `name` inside `folder` (-1 = there is none) for reading, without blocking and without following a
  /// link. What is not there or cannot be opened gives an empty descriptor.
  ///
  /// regular  whether the listing showed a regular file; if it did not say, the open file is asked, and anything else
  ///          gives an empty descriptor. (What has taken the place of a regular file since then, a pipe or a
  ///          directory, opens but cannot be read at an offset, so readHeader refuses it.)
  /// Throws Exception, naming `folderPath`, when this process has run out of descriptors or memory: that says nothing
  /// of the message.
  OpenedMessage open(int folder, const char* name, bool regular, const std::string& folderPath);

  /// Opens and reads as open() and readHeader() do at first, so that they need not wait for the disk afterwards; what
  /// fails shows then. Does nothing more, and returns false, when the descriptor would be `bound` or higher.
  bool touch(int folder, const char* name, int bound) noexcept;

 private:
  int openFile(int folder, const char* name);

  bool keepAccessTime_ = true;  // until a file turns out to be another user's: only an owner may ask for it
};

/// Reads the header of an open message: usually one read of 8 KiB, never more than kHeaderCap.
/// Nothing when the file cannot be read at an offset.
std::optional<HeaderBlock> readHeader(const Descriptor& file);

}  // namespace Velmar::Host
