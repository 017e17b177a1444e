#pragma once

// What the file name of a held message says. A Maildir name is UNIQUE or UNIQUE ":2," FLAGS; UNIQUE normally begins
// with the time of delivery and a ".". Any other byte but "/" and NUL may occur. Pure functions, any thread.

#include <cstdint>
#include <optional>
#include <string_view>

namespace Velmar::Host {

/// Further marks of a message, beside those that VXMessageFlags names.
enum MessageMark : std::uint64_t {
  MARK_SEEN = 0x01,     ///< Maildir flag S
  MARK_REPLIED = 0x02,  ///< R
  MARK_FLAGGED = 0x04,  ///< F
  MARK_DRAFT = 0x08,    ///< D
};

/// The time of delivery: the decimal digits before the first ".", seconds since the epoch.
/// Nothing when there is no ".", when anything but digits stands before it, or when the number exceeds 2^63 - 1.
std::optional<std::int64_t> deliveryTime(std::string_view name) noexcept;

/// The part of the name that a message keeps for life: what stands before the last ":2,", else the whole name.
std::string_view uniquePart(std::string_view name) noexcept;

/// By what an action finds its message: what stands before the first "," or ":2". No two messages of a quarantine may
/// have it in common, or an action on one of them reaches the other.
std::string_view identifyingPart(std::string_view name) noexcept;

/// The marks in FLAGS: T = deleted, P (passed on) = released, and those of MessageMark. Unknown letters are ignored.
std::uint64_t messageMarks(std::string_view name) noexcept;

}  // namespace Velmar::Host
