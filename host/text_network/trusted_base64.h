#pragma once

// The other half of vlml_encode_trusted_base64_data, for the service that takes such texts back.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/export.h"

namespace Velmar::Host {

/// The text within an encoding that this installation made with this `key`; nothing for any other bytes.
/// Takes the encoding itself: undo URL escaping first. The time it takes does not depend on where a forgery differs.
/// Throws Exception when the installation's secret is missing or cannot be read. Any thread.
VLM_EXPORT std::optional<std::string> decodeTrusted(std::string_view encoded, std::uint32_t key);

}  // namespace Velmar::Host
