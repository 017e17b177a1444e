#pragma once

// The right to change one spool file.

#include <string>

#include "host/common/descriptor.h"
#include "host/mail_builder/spool.h"

namespace Velmar::Host {

enum class ClaimResult {
  kTaken,  ///< the file is ours until the claim dies
  kBusy,   ///< somebody else has it
  kGone,   ///< there is none (any more)
};

/// Holds the lock of one spool file, if it could be had; never waits. A claim ends with its process, however that ends,
/// so none is left behind. Each change takes effect whole and survives a crash, or throws Exception and leaves the file
/// as it was.
class QueueClaim {
 public:
  /// Tries to take the entry `id` of a place. Throws Exception naming the file when it cannot be opened or locked.
  QueueClaim(SpoolState place, std::string id);

  ClaimResult result() const noexcept { return result_; }

  // The others are for a claim that is taken.

  SpoolMail read() const;
  /// Puts this in place of the file; the claim goes over to the new one. The entry's id is the claim's.
  void rewrite(const SpoolEntry& entry, const std::string& content);
  /// Moves the file to another place, where there must be none of its name.
  void moveTo(SpoolState place);
  void remove();

 private:
  ClaimResult take();
  std::string path() const { return spoolPath(place_, id_); }

  SpoolState place_;
  std::string id_;
  Descriptor file_;
  ClaimResult result_;
};

}  // namespace Velmar::Host
