#pragma once

// A password that an administrator keeps in a file of its own.

#include <string>

namespace Velmar::Host {

/// The first line of the file, without its line end.
/// path  as the operating system takes it
/// Throws Exception with path and reason: it cannot be read, is no regular file, lets others than its owner and group
/// in, or its first line is empty (a bind without password succeeds without proving anything) or over 1024 bytes.
std::string passwordFromFile(const std::string& path);

}  // namespace Velmar::Host
