#pragma once

// A password that an administrator keeps in a file of its own.

#include <cstddef>
#include <string>

#include "platform/export.h"
#include "platform/types.h"

namespace Velmar::Host {

/// The first `most` bytes of a file that holds a secret, or all of it when it has fewer.
/// what  the file as the administrator knows it ("password file"), for the error
/// path  as the operating system takes it
/// Throws Exception with what, path and reason: it cannot be read, is no regular file, or lets others than its owner
/// and group in. What it holds is never in an error.
VLM_EXPORT std::string readSecretFile(const std::string& what, const std::string& path, std::size_t most);

/// The next line without its end, LF or CR LF, taken off the text.
VLM_EXPORT std::string takeLine(std::string& text);

/// The exception for what is wrong with such a file: "WHAT PATH REASON".
VLM_EXPORT Exception secretFileFault(const std::string& what, const std::string& path, const std::string& reason);

}  // namespace Velmar::Host
