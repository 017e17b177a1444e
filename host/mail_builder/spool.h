#pragma once

// The spool: mails accepted for delivery and not yet handed on.
//
// var/spool/velmar/ below the root holds one file a mail, named by its queue id (spool_envelope.h says what is in it):
//   new/     waits to be handed on
//   failed/  was refused for good or given up
//   tmp/     is being written; whoever writes holds the file's lock
//   hold     says until when the mail server is left alone
// A file is never changed in place: another one takes its name. Whoever changes, moves or removes one holds its lock.

#include <string>
#include <string_view>
#include <vector>

#include "host/common/descriptor.h"
#include "host/host.h"

namespace Velmar::Host {

/// Size of the largest mail, in bytes.
constexpr std::size_t kMaxMail = std::size_t{64} << 20;

/// What must stay free in the spool's file system.
struct SpoolFloor {
  int mib = 0;
  int inodes = 0;
};

/// Stores the mail. Once this returns, it survives a crash. Throws Exception naming path and reason; then nothing is
/// stored. Any number of threads and processes.
void writeToSpool(const QueuedMail& mail, const SpoolFloor& floor = {});

/// What keeps `bytes` more from being written below `path` with the floor still free; "" when nothing does.
/// Throws Exception when it could not look.
std::string spoolSpaceFault(const std::string& path, std::size_t bytes, const SpoolFloor& floor);

/// Absolute path of the spool.
std::string spoolPath();

/// The directory of entries in this state (kWaiting or kFailed) below it: "new" or "failed".
std::string spoolPlace(SpoolState state);

/// Absolute path of one entry.
std::string spoolPath(SpoolState state, const std::string& id);

/// The entries of one place, the unreadable first, then oldest first. Throws Exception when it cannot be listed.
std::vector<SpoolEntry> listSpool(SpoolState state);

/// An entry and its mail.
struct SpoolMail {
  SpoolEntry entry;
  std::string content;
};

/// A spool file opened; no descriptor when there is none. access  O_RDONLY or O_RDWR
/// Throws Exception, also for what is no regular file.
Descriptor openSpoolFile(const std::string& path, int access);

/// Reads it all. state  where it is. Throws Exception naming path and fault.
SpoolMail readSpoolFile(const Descriptor& file, SpoolState state, const std::string& path);

/// The same as who hands it on takes it.
QueuedMail queuedMail(SpoolMail mail);

}  // namespace Velmar::Host
