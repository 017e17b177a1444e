#pragma once

// The spool: mails accepted for delivery and not yet handed on.
//
// var/spool/velmar/new/ below the root holds one file a mail, named by its queue id. tmp/ beside it holds what is being
// written. A file is an envelope, an empty line, and the mail as it goes over the wire:
//
//   Velmar-Spool: 1
//   Id: QUEUE-ID                   the file's name
//   Sender: ADDRESS                "" = null reverse-path
//   Recipient: ADDRESS             one line each, at least one
//   Notify: default | never        "never": DSN NOTIFY=NEVER
//   Queued: SECONDS                since the epoch
//
// Envelope lines end with LF, those of the mail with CR LF. Addresses are UTF-8 and hold no control characters.

#include <string>
#include <string_view>

#include "host/host.h"

namespace Velmar::Host {

/// Stores the mail. Once this returns, it survives a crash. Throws Exception naming path and reason; then nothing is
/// stored. Any number of threads and processes.
void writeToSpool(const QueuedMail& mail);

/// What a spool file says before the mail.
struct SpoolEnvelope {
  SpoolEntry entry;           ///< its size is not set
  std::size_t mailStart = 0;  ///< place of the mail's first byte
};

/// Reads the envelope at the front of a spool file's text; nothing but the form above is accepted.
/// path  stands in messages; its last component must be the id
/// Throws Exception naming path and fault.
SpoolEnvelope parseSpoolEnvelope(std::string_view text, const std::string& path);

}  // namespace Velmar::Host
