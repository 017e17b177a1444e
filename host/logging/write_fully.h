#pragma once

// Writing bytes to a descriptor from code that may run in any program.

#include <string_view>

namespace Velmar::Host {

/// Writes all bytes, normally in one write(2). Returns 0 or the errno of the write that failed.
/// written  how many bytes went out
int writeFully(int fd, std::string_view bytes, std::size_t& written) noexcept;

/// Writes to stderr. Where its reader is gone the bytes are lost, and the process does not hear of it: no SIGPIPE.
void writeToStderr(std::string_view bytes) noexcept;

}  // namespace Velmar::Host
