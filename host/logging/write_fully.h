#pragma once

// Writing bytes to a descriptor from code that may run in any program.

#include <chrono>
#include <cstddef>
#include <string_view>

namespace Velmar::Host {

/// How long an entry of the log waits for a reader that is not reading.
constexpr std::chrono::seconds kReaderPatience{5};

/// Writes all bytes, normally in one write(2). Returns 0 or the errno of the write that failed.
/// written  how many bytes went out
int writeFully(int fd, std::string_view bytes, std::size_t& written) noexcept;

/// The same where a reader may be gone: that is EPIPE, and the process gets no SIGPIPE.
int writeWithoutSignal(int fd, std::string_view bytes, std::size_t& written) noexcept;

/// Waits until the descriptor takes bytes. False when it does not within `patience`. An error of the descriptor counts
/// as true: the write tells what it is.
bool waitWritable(int fd, std::chrono::milliseconds patience) noexcept;

}  // namespace Velmar::Host
