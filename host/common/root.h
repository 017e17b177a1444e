#pragma once

// Where the host platform lives on disk.

#include <string>
#include <string_view>

#include "host/host.h"  // shareDirectory
#include "platform/export.h"

namespace Velmar::Host {

/// The root directory: VELMAR_ROOT from the environment, "" (the real root) when unset or "/".
/// Without a slash at the end. Any thread, as long as nobody changes the environment.
VLM_EXPORT std::string root();

/// A path of the system, which starts with "/", below the root. The path is used as it is: see checkedComponent.
VLM_EXPORT std::string underRoot(std::string_view systemPath);

/// `value`, when it may be one component of a path: not empty, not "." or "..", without "/" and NUL, at most 255 bytes.
/// Throws Exception naming `what` ("domain", "template name") and the value otherwise.
VLM_EXPORT const std::string& checkedComponent(const char* what, const std::string& value);

/// The same as a question.
VLM_EXPORT bool isPathComponent(std::string_view value) noexcept;

/// The directory of a mailbox as a path of the system: "/home/DOMAIN/LOCAL~DOMAIN".
/// address  bare address, split at its last "@". Throws Exception when a part is no path component.
VLM_EXPORT std::string mailboxDirectory(const std::string& address);

}  // namespace Velmar::Host
