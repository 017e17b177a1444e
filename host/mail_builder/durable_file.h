#pragma once

// New files that are either there, whole and safe from a crash, or not there at all.

#include <string>
#include <string_view>

namespace Velmar::Host {

/// Creates `base`/new/`name` with these bytes. Once this returns, file and name survive a crash of the machine.
///
/// base  absolute path of a directory in which tmp/ and new/ exist
/// Throws Exception naming path and reason when the name exists or anything fails; then nothing is left in new/.
/// Any number of threads and processes.
void createDurably(const std::string& base, const std::string& name, std::string_view bytes);

/// The two ways to do it. The first writes a file that has no name until it is
/// whole, so a crash leaves nothing at all; it returns false, with nothing done, where the file system or a missing
/// /proc does not allow it. The second writes into tmp/, where a crash may leave a file.
bool createUnnamed(const std::string& base, const std::string& name, std::string_view bytes);
void createByRename(const std::string& base, const std::string& name, std::string_view bytes);

}  // namespace Velmar::Host
