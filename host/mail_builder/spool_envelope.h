#pragma once

// The form of a spool file: an envelope, an empty line, and the mail as it goes over the wire.
//
//   Velmar-Spool: 2
//   Id: QUEUE-ID                   the file's name
//   Sender: ADDRESS                "" = null reverse-path
//   Recipient: ADDRESS             one line each, at least one: who has not got the mail yet
//   Notify: default | never        "never": DSN NOTIFY=NEVER
//   Queued: SECONDS                since the epoch: when the mail was accepted, or revived after it had failed
//   Attempts: NUMBER               how often handing on has failed
//   Next: SECONDS                  not to be tried before; 0 = at once
//   Reply: TEXT                    what was said the last time; "" = never tried
//
// Version 1 ends with Queued. Envelope lines end with LF, those of the mail with CR LF. Addresses are UTF-8 and hold no
// control characters; nor does the reply.

#include <string>
#include <string_view>

#include "host/host.h"
#include "platform/types.h"

namespace Velmar::Host {

/// What a spool file says before the mail.
struct SpoolEnvelope {
  SpoolEntry entry;           ///< its size and state are not set
  std::size_t mailStart = 0;  ///< place of the mail's first byte
};

/// Size of the longest envelope that is read, in bytes; and of the longest of a new mail, which leaves room for
/// replies.
constexpr std::size_t kMaxEnvelope = std::size_t{4} << 20;
constexpr std::size_t kMaxNewEnvelope = kMaxEnvelope - (std::size_t{64} << 10);

/// The envelope of an entry with the empty line behind it.
std::string spoolEnvelopeText(const SpoolEntry& entry);

/// Reads the envelope at the front of a spool file's text; nothing but the form above is accepted.
/// path  stands in messages; its last component must be the id
/// Throws Exception naming path and fault.
SpoolEnvelope parseSpoolEnvelope(std::string_view text, const std::string& path);

/// Whether this may be a queue id: letters, digits and "-", as a name of a file.
bool isQueueId(const std::string& id);

/// Whether one id was made before the other, as far as ids of one second tell: numbers in them count by value.
bool madeBefore(std::string_view one, std::string_view other);

/// "spool file PATH: REASON".
Exception spoolFault(const std::string& path, const std::string& reason);

}  // namespace Velmar::Host
