#pragma once

// Anti-spam profiles: what a mailbox's policy says about its quarantine.

#include "platform/export.h"

namespace Velmar {

/// The quarantine switches of one anti-spam profile; a value. A null profile has every switch off.
class VLM_EXPORT ProfileAntiSpam {
 public:
  struct Switches {
    bool quarantineReport = false;
    bool quarantineEmailRelease = false;
    bool quarantineWebRelease = false;
    bool quarantineWhitelistSender = false;
  };

  /// The null profile.
  ProfileAntiSpam() = default;
  explicit ProfileAntiSpam(const Switches& switches) : switches_(switches), null_(false) {}

  bool isNull() const noexcept { return null_; }
  /// Quarantine reports are sent.
  bool quarantineReport() const noexcept { return switches_.quarantineReport; }
  /// Held messages may be released and deleted by mail.
  bool quarantineEmailRelease() const noexcept { return switches_.quarantineEmailRelease; }
  /// Held messages may be released and deleted through the web.
  bool quarantineWebRelease() const noexcept { return switches_.quarantineWebRelease; }
  /// Releasing a message puts its sender on the whitelist.
  bool quarantineWhitelistSender() const noexcept { return switches_.quarantineWhitelistSender; }

 private:
  Switches switches_;
  bool null_ = true;
};

/// Makes profiles from the configuration.
class VLM_EXPORT ProfileFactory {
 public:
  /// The one factory; never null, lives as long as the process. Any thread.
  static ProfileFactory* instance();

  /// The profile with this number in the set of this domain number; where the domain's set lacks it, the one of
  /// domain 0 (system). A null profile when there is surely neither.
  /// Throws Exception when the configuration cannot be read. Any thread.
  ProfileAntiSpam createProfileAntiSpam(int profile, unsigned int domain);
};

}  // namespace Velmar
