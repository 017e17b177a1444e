#pragma once

// Locks on open files (flock): who holds one has the file to itself, and a process that ends lets go of it, however it
// ends. So nothing is ever freed by its age.

#include <sys/stat.h>

#include <string>

#include "host/common/descriptor.h"

namespace Velmar::Host {

/// Locks the file, or returns false when somebody else has it: another process, or another descriptor of this one.
/// `path` stands in messages. Throws Exception when the system cannot lock.
bool tryLock(const Descriptor& file, const std::string& path);

/// Whether this name still stands for the open file. Throws Exception when it cannot be looked at.
bool isStillAt(const Descriptor& file, const std::string& path);

/// fstat. Throws Exception.
struct stat statusOf(const Descriptor& file, const std::string& path);

}  // namespace Velmar::Host
