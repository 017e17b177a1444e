#pragma once

// What a server's answers mean for a mail. Pure: no clock, no disk.

#include <optional>
#include <string>
#include <vector>

#include "host/common/host_config.h"
#include "host/mail_builder/hand_over/transport.h"

namespace Velmar::Host {

/// Recipients who fared alike.
struct RecipientGroup {
  std::vector<std::string> recipients;
  std::string reply;  ///< printable; one text, or "ADDRESS: TEXT; ..." where they differ, cut when very long
};

/// The recipients of one mail, by what became of them. Each stands in exactly one group.
struct QueueOutcome {
  RecipientGroup accepted;
  RecipientGroup delayed;
  RecipientGroup refused;
  RecipientGroup givenUp;  ///< delayed too long

  std::optional<SpoolEntry> waiting;  ///< what is to wait further, if anything
  std::optional<SpoolEntry> failed;   ///< what is to be kept as failed; its id is the mail's own
};

/// entry   the mail as it waited
/// answer  one reply for each of its recipients; where one is missing, that recipient is delayed
/// now     seconds since the epoch
QueueOutcome outcomeOf(const SpoolEntry& entry, const HandOver& answer, const QueueConfig& config, long long now);

}  // namespace Velmar::Host
