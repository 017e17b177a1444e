#pragma once

// The events that the library logs. docs/log-events.md describes each.

namespace Velmar::LogEvent {

inline constexpr unsigned int kReportFailed = 0x8000b;
inline constexpr unsigned int kWebHostLeftEmpty = 0x8000c;
inline constexpr unsigned int kGroupOwnerLookupFailed = 0x8000d;
inline constexpr unsigned int kReportDisabled = 0x8000e;
inline constexpr unsigned int kNoRecipients = 0x8000f;
inline constexpr unsigned int kNothingHeld = 0x80010;
inline constexpr unsigned int kReportBuilt = 0x80011;
inline constexpr unsigned int kNoTemplate = 0x80012;
inline constexpr unsigned int kListLinksRepaired = 0x80013;
inline constexpr unsigned int kNoAddressInPath = 0x80014;
inline constexpr unsigned int kFailedReportGivenUp = 0x80015;

}  // namespace Velmar::LogEvent
