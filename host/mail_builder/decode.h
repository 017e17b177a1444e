#pragma once

// Raw header values as text.

#include <string>

#include "platform/mail_builder.h"

namespace Velmar::Host {

/// What stringToUtf8() puts into its buffer. fallbacks  null = the standard ones
std::string decodedHeader(const std::string& raw, const QRLStaticCharSetFallbacks* fallbacks);

}  // namespace Velmar::Host
