#pragma once

// Files that are either there, whole and safe from a crash, or not there at all.
//
// All work in a base directory with tmp/ and other directories in it. Files in tmp/ are locked by who writes them. New
// files belong to the owner of the base directory when root makes them: what an administrator does by hand must not
// lock out the service. All throw Exception naming path and reason. Any number of threads and processes.

#include <string>
#include <string_view>

#include "host/common/descriptor.h"

namespace Velmar::Host {

/// Creates `base`/new/`name` with these bytes. Once this returns, file and name survive a crash of the machine.
///
/// base  absolute path of a directory in which tmp/ and new/ exist
/// Throws when the name exists or anything fails; then nothing is left in new/.
void createDurably(const std::string& base, const std::string& name, std::string_view bytes);

/// The two ways to do it. The first writes a file that has no name until it is
/// whole, so a crash leaves nothing at all; it returns false, with nothing done, where the file system or a missing
/// /proc does not allow it. The second writes into tmp/, where a crash may leave a file.
bool createUnnamed(const std::string& base, const std::string& name, std::string_view bytes);
void createByRename(const std::string& base, const std::string& name, std::string_view bytes);

/// Puts a file with these bytes under `base`/`place`/`name`, over the one that may be there: at every instant the name
/// stands for one of the two. Returns the new file, locked.
Descriptor replaceDurably(const std::string& base, const std::string& place, const std::string& name,
                          std::string_view bytes);

/// Moves a file from one place below `base` to another, never over one that is there.
void moveDurably(const std::string& base, const std::string& from, const std::string& to, const std::string& name);

/// Removes `base`/`place`/`name`.
void removeDurably(const std::string& base, const std::string& place, const std::string& name);

/// Gives the directory `base`/`name` to the owner of `base`, when root asks; nothing otherwise.
void giveToOwner(const std::string& base, const std::string& name);

/// Removes what dead processes have left in `base`/tmp.
void sweepTemporary(const std::string& base);

}  // namespace Velmar::Host
